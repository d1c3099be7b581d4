// SPDX-License-Identifier: MIT
// The broker adapter in an undisturbed session with a real broker.
#include "support/client.h"

#include <flotrofobul/testkit/broker.h>

#include <QtCore/QAbstractEventDispatcher>

using comunication::testkit::broker_t;

class adapter_session : public QObject {
    Q_OBJECT

    broker_t broker;

private Q_SLOTS:
    void initTestCase() { QVERIFY(broker.start()); }

    // Nothing waits for a delayed acknowledgement, neither alone nor when the messages come back to their sender.
    void burst()
    {
        client_t client;
        QVERIFY(client.joins(broker.port()));
        QEventLoop loop;
        int missing = 0;
        const auto came = [&] {
            if (--missing == 0) {
                loop.quit();
            }
        };
        connect(&client, &client_t::onPublish, &loop, came);
        connect(&client, &client_t::onMessage, &loop, came);
        for (const int signalsEach : {1, 2}) {
            QElapsedTimer clock;
            clock.start();
            for (int round = 0; round < 50; ++round) {
                for (missing = 0; missing < 5 * signalsEach; missing += signalsEach) {
                    client.say("x"_s);
                }
                loop.exec();
            }
            QVERIFY2(clock.elapsed() < 1500, QByteArray::number(clock.elapsed()));
            client.subscribe(nullptr, "house/#"_s, 2);
        }
    }

    // A notifier that is left on wakes the loop without end: also after a lost connection and a full socket.
    void idle()
    {
        client_t client;
        client.setLoopInterval(15000); // so that it need not look at the keep-alive meanwhile
        QVERIFY(client.joins(broker.port()));
        broker.kill(SIGKILL);
        QTRY_VERIFY(!client.getConnected());
        QVERIFY(broker.start() && client.joins(broker.port())); // before the waiting time is over
        client.say(QString(8 << 20, u'x'));
        QTRY_COMPARE(client.acknowledged.size(), 1);
        QTest::qWait(100);
        QSignalSpy wakes(QAbstractEventDispatcher::instance(), &QAbstractEventDispatcher::awake);
        QEventLoop loop;
        QTimer::singleShot(2500, Qt::PreciseTimer, &loop, &QEventLoop::quit);
        loop.exec();
        // The timer ends the test.
        QVERIFY2(wakes.count() <= 2, QByteArray::number(wakes.count()));
    }

    void payloads()
    {
        log_recorder_t log(::utility::logs::info);
        client_t client;
        QVERIFY(client.joins(broker.port()));
        client.subscribe(nullptr, "house/#"_s, 1);
        const QString limit(16 << 20, u'x');
        for (const QString& text : QStringList{"\u00e9"_s + QChar(0), limit, limit + u'x'}) {
            client.say(text);
        }
        QTRY_COMPARE_WITH_TIMEOUT(log.count("Message dropped, it is longer than 16777216 bytes: house/a"_s), 1, 20000);
        QCOMPARE(client.messages,
                 QStringList({"house/a 3 1 0 \u00e9"_s + QChar(0), "house/a 16777216 1 0 "_s + limit}));
    }

    // A host that was slow is heard at once when it is not any more.
    void slowSlot()
    {
        client_t client;
        client.setLoopInterval(15000); // so that no housekeeping helps
        QVERIFY(client.joins(broker.port()));
        client.subscribe(nullptr, "house/#"_s, 0);
        connect(&client, &client_t::onMessage, [] { QTest::qSleep(20); });
        for (const int all : {8, 16}) {
            for (int i = 0; i < 8; ++i) {
                client.say("x"_s, 0);
            }
            QTRY_COMPARE_WITH_TIMEOUT(client.messages.size(), all, 1000);
        }
    }

    // No signal comes from inside an operation, and a slot with an event loop of its own gets the next ones.
    void nestedLoop()
    {
        client_t client;
        client.setLoopInterval(15000); // so that no housekeeping helps
        QVERIFY(client.joins(broker.port()));
        QSignalSpy unsubscribed(&client, &client_t::onUnsubscribe);
        int mid = 7;
        QCOMPARE(client.subscribe(&mid, "house/#"_s, 0), 0);
        QCOMPARE(mid, 1);
        connect(&client, &client_t::onMessage, [&] {
            if (client.messages.size() < 3) {
                QTest::qSleep(20); // so that the third comes on a turn of its own
            } else if (client.messages.size() == 3) {
                QTRY_COMPARE(client.messages.size(), 4);
                QCOMPARE(client.unsubscribe(&mid, "house/#"_s), 0);
            }
        });
        for (const int expected : {2, 3, 4, 5}) {
            QCOMPARE(client.say("\u00e9"_s, 0), expected);
        }
        QVERIFY(client.acknowledged.isEmpty() && client.subscribed.isEmpty());
        QTRY_COMPARE(unsubscribed, QList<QVariantList>({{6}}));
        QCOMPARE(client.messages.mid(3), QStringList{"house/a 2 0 0 \u00e9"_s});
        QCOMPARE(client.subscribed, QList<int>({1, 0}));
        QCOMPARE(client.acknowledged, QList<int>({2, 3, 4, 5}));
    }
};

QTEST_GUILESS_MAIN(adapter_session)
#include "adapter_session.moc"
