// SPDX-License-Identifier: MIT
// The broker adapter in an undisturbed session with a real broker.
#include <flotrofobul/platform/mosquittopp/mosquittoqt.h>

#include <QtCore/QAbstractEventDispatcher>
#include <QtCore/QElapsedTimer>
#include <QtCore/QFile>
#include <QtCore/QTimer>
#include <QtTest/QSignalSpy>
#include <QtTest/QTest>

#include <algorithm>
#include <memory>
#include <vector>

#include <signal.h>

#include "support/broker.h"
#include "support/certificates.h"

using comunication::mosquittopp::mosquittoqt;

class adapter_session : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void conversation_data();
    void conversation();
    void connectAgain();
    void will();
    void burst();
    void idle_data();
    void idle();
    void nestedLoop();
    void memory();
};

void adapter_session::conversation_data()
{
    QTest::addColumn<int>("qos");
    QTest::addColumn<bool>("wait");
    QTest::newRow("QoS 0") << 0 << false;
    QTest::newRow("QoS 1, connect waits") << 1 << true;
    QTest::newRow("QoS 2") << 2 << false;
}

void adapter_session::conversation()
{
    QFETCH(int, qos);
    QFETCH(bool, wait);
    broker_t broker;
    QVERIFY(broker.start());
    mosquittoqt client(QStringLiteral("panel"), true, true);
    QSignalSpy connections(&client, SIGNAL(onConnect_with_flags(int, int)));
    QSignalSpy subscriptions(&client, SIGNAL(onSubscribe(int, int, const int*)));
    QSignalSpy publications(&client, SIGNAL(onPublish(int)));
    QSignalSpy messages(&client, SIGNAL(onMessage(int, QString, QString, int, int, bool)));
    QSignalSpy removals(&client, SIGNAL(onUnsubscribe(int)));
    QSignalSpy disconnections(&client, SIGNAL(onDisconnect(int)));

    const auto connectTo = wait ? &mosquittoqt::connect_sync : &mosquittoqt::connect_async;
    QCOMPARE((client.*connectTo)(broker.host(), broker.port(), 60), 0);
    QCOMPARE(client.getConnected(), wait);
    QTRY_COMPARE(connections.count(), 1);
    QVERIFY(client.getConnected());

    int mid = 7;
    QCOMPARE(client.subscribe(&mid, QStringLiteral("house/#"), qos), 0);
    QCOMPARE(mid, 1);
    QTRY_COMPARE(subscriptions, (QList<QVariantList>{{1, 1, subscriptions.value(0).value(2)}}));

    const QString payload = QStringLiteral("{\"d\":\"\u00e9\"}");
    QCOMPARE(client.publish(&mid, QStringLiteral("house/a"), payload, qos, false), 0);
    QCOMPARE(publications.count(), 0);
    QTRY_COMPARE(publications, (QList<QVariantList>{{2}}));
    QTRY_COMPARE(messages.count(), 1);
    QCOMPARE(messages[0].mid(1),
             (QVariantList{QStringLiteral("house/a"), payload, payload.toUtf8().size(), qos, false}));

    QCOMPARE(client.unsubscribe(&mid, QStringLiteral("house/#")), 0);
    QTRY_COMPARE(removals, (QList<QVariantList>{{3}}));
    QCOMPARE(client.disconnect_sync(), 0);
    QCOMPARE(disconnections.count(), 0);
    QTRY_COMPARE(disconnections, (QList<QVariantList>{{0}}));
    QVERIFY(!client.getConnected());
}

void adapter_session::connectAgain()
{
    broker_t broker;
    mosquittoqt client(QStringLiteral("panel"), true, true);
    QSignalSpy answers(&client, SIGNAL(onConnect(int)));
    // Nobody there yet: the code of the network, and the attempts go on.
    QCOMPARE(client.connect_async(broker.host(), broker.port(), 60), 14);
    QVERIFY(broker.start());
    QTRY_VERIFY_WITH_TIMEOUT(client.getConnected(), 2000);
    QCOMPARE(client.connect_async(broker.host(), broker.port(), 60), 0);
    QCOMPARE(client.connect_sync(broker.host(), broker.port(), 60), 0);
    QCOMPARE(answers.count(), 1);
    broker.kill(SIGKILL);
    QTRY_VERIFY(!client.getConnected());
    QVERIFY(broker.start());
    // Before the waiting time is over.
    QCOMPARE(client.connect_sync(broker.host(), broker.port(), 60), 0);
    broker.kill(SIGKILL);
    QTRY_VERIFY(!client.getConnected());
    QCOMPARE(client.disconnect_sync(), 0);
    QVERIFY(broker.start());
    QTest::qWait(2200);
    QVERIFY(!client.getConnected());
}

void adapter_session::will()
{
    broker_t broker;
    QVERIFY(broker.start());
    mosquittoqt observer(QStringLiteral("observer"), true, true);
    QSignalSpy messages(&observer, SIGNAL(onMessage(int, QString, QString, int, int, bool)));
    QCOMPARE(observer.connect_sync(broker.host(), broker.port(), 60), 0);
    QCOMPARE(observer.subscribe(nullptr, QStringLiteral("will/#"), 2), 0);
    auto client = std::make_unique<mosquittoqt>(QStringLiteral("panel"), true, true);
    QCOMPARE(client->will_set(QStringLiteral("will/first"), QStringLiteral("x"), 1, false), 0);
    QCOMPARE(client->will_set(QStringLiteral("will/second"), QStringLiteral("gone"), 2, false), 0);
    QVERIFY(client->hasWill());
    QCOMPARE(client->getWill().topic, QStringLiteral("will/second"));
    QCOMPARE(client->getWill().payload, QStringLiteral("gone"));
    QCOMPARE(client->connect_sync(broker.host(), broker.port(), 60), 0);
    QTest::qWait(20);
    // A disconnection in order keeps it quiet, the end of the program does not.
    QCOMPARE(client->disconnect_sync(), 0);
    QCOMPARE(client->connect_sync(broker.host(), broker.port(), 60), 0);
    QCOMPARE(messages.count(), 0);
    client.reset();
    QTRY_COMPARE(messages.count(), 1);
    QCOMPARE(messages[0][1].toString(), QStringLiteral("will/second"));
    QTest::qWait(20);
    QCOMPARE(messages.count(), 1);
}

void adapter_session::burst()
{
    broker_t broker;
    QVERIFY(broker.start());
    mosquittoqt client(QStringLiteral("panel"), true, true);
    QCOMPARE(client.connect_sync(broker.host(), broker.port(), 60), 0);
    QEventLoop loop;
    int missing = 0;
    connect(&client, &mosquittoqt::onPublish, &loop, [&] {
        if (--missing == 0) {
            loop.quit();
        }
    });
    std::vector<qint64> times;
    for (int round = 0; round < 51; ++round) {
        QElapsedTimer clock;
        clock.start();
        missing = 5;
        for (int i = 0; i < 5; ++i) {
            QCOMPARE(client.publish(nullptr, QStringLiteral("a"), QStringLiteral("x"), 2, false), 0);
        }
        loop.exec();
        times.push_back(clock.nsecsElapsed() / 1000);
    }
    std::sort(times.begin(), times.end());
    qInfo("five QoS 2 messages acknowledged in %lld microseconds (median)", static_cast<long long>(times[25]));
    QVERIFY2(times[25] < 2000, QByteArray::number(times[25]));
}

void adapter_session::idle_data()
{
    QTest::addColumn<bool>("secure");
    QTest::addColumn<bool>("disturbed");
    QTest::newRow("plain") << false << false;
    QTest::newRow("TLS") << true << false;
    QTest::newRow("plain, after a lost connection and a full socket") << false << true;
}

void adapter_session::idle()
{
    QFETCH(bool, secure);
    QFETCH(bool, disturbed);
    const certificates_t certificates;
    broker_t broker(secure ? certificates.listener(QStringLiteral("good")) : QString());
    QVERIFY(broker.start());
    mosquittoqt client(QStringLiteral("panel"), true, true);
    if (secure) {
        QCOMPARE(client.tls_set(certificates.authority(), QString(), QString(), QString()), 0);
    }
    QCOMPARE(client.connect_sync(broker.host(), broker.port(), 60), 0);
    QSignalSpy acknowledged(&client, SIGNAL(onPublish(int)));
    if (disturbed) {
        broker.kill(SIGKILL);
        QTRY_VERIFY(!client.getConnected());
        QVERIFY(broker.start());
        QTRY_VERIFY(client.getConnected());
        QCOMPARE(client.publish(nullptr, QStringLiteral("a"), QString(8 << 20, QLatin1Char('x')), 2, false), 0);
        QTRY_COMPARE(acknowledged.count(), 1);
    }
    QTest::qWait(100);
    int wakes = 0;
    const auto connection =
        connect(QAbstractEventDispatcher::instance(), &QAbstractEventDispatcher::awake, this, [&wakes] { ++wakes; });
    QEventLoop loop;
    QTimer::singleShot(3000, Qt::PreciseTimer, &loop, &QEventLoop::quit);
    loop.exec();
    disconnect(connection);
    // The timer that ends the test is one of them.
    QVERIFY2(wakes <= 7, QByteArray::number(wakes));
}

// A slot with an event loop of its own gets what has been read already.
void adapter_session::nestedLoop()
{
    broker_t broker;
    QVERIFY(broker.start());
    mosquittoqt client(QStringLiteral("panel"), true, false);
    client.setLoopInterval(15000); // so that no housekeeping helps
    QCOMPARE(client.connect_sync(broker.host(), broker.port(), 60), 0);
    QSignalSpy subscribed(&client, &mosquittoqt::onSubscribe);
    client.subscribe(nullptr, QStringLiteral("house/nested"), 0);
    QTRY_COMPARE(subscribed.count(), 1);
    int started = 0;
    bool cameInside = false;
    QObject::connect(&client, &mosquittoqt::onMessage, this, [&] {
        if (++started == 1) {
            cameInside = QTest::qWaitFor([&] { return started == 3; }, 2000);
        }
    });
    for (int i = 0; i < 3; ++i) {
        client.publish(nullptr, QStringLiteral("house/nested"), QStringLiteral("x"), 0, false);
    }
    QTRY_COMPARE(started, 3);
    QVERIFY(cameInside);
}

void adapter_session::memory()
{
#ifdef __SANITIZE_ADDRESS__
    QSKIP("The sanitizer's own memory is in the way.");
#endif
    broker_t broker;
    QVERIFY(broker.start());
    const auto resident = [] {
        QFile file(QStringLiteral("/proc/self/statm"));
        return file.open(QIODevice::ReadOnly) ? file.readAll().split(' ').value(1).toLongLong() * 4096 : 0;
    };
    std::vector<std::unique_ptr<mosquittoqt>> clients;
    qint64 before = 0;
    for (int i = 0; i < 250; ++i) {
        if (i == 50) {
            before = resident();
        }
        clients.push_back(std::make_unique<mosquittoqt>(QStringLiteral("panel%1").arg(i), true, true));
        QCOMPARE(clients.back()->connect_sync(broker.host(), broker.port(), 60), 0);
        QCOMPARE(clients.back()->publish(nullptr, QStringLiteral("a"), QStringLiteral("x"), 2, false), 0);
        QTest::qWait(0);
    }
    const qint64 each = (resident() - before) / 200;
    qInfo("a connected adapter costs %lld bytes", static_cast<long long>(each));
    QVERIFY2(each < 12 * 1024, QByteArray::number(each));
}

QTEST_GUILESS_MAIN(adapter_session)
#include "adapter_session.moc"
