// SPDX-License-Identifier: MIT
// Brokers that do not keep to the protocol, or keep to its edges.
#include <flotrofobul/platform/mosquittopp/mosquittoqt.h>

#include <QtTest/QSignalSpy>
#include <QtTest/QTest>

#include "support/fake_broker.h"
#include "support/log_recorder.h"
#include "support/loop_watch.h"

using comunication::mosquittopp::mosquittoqt;

class adapter_protocol : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void oddPackets_data();
    void oddPackets();
    void subscriptionAnswers_data();
    void subscriptionAnswers();
    void payloads_data();
    void payloads();
    void flood();
    void wrongAcknowledgements();
    void forgottenReleases();
};

void adapter_protocol::oddPackets_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<bool>("survives");
    QTest::newRow("remaining length of five bytes") << QByteArray("\x30\xff\xff\xff\xff\x7f") << false;
    QTest::newRow("256 MB announced") << QByteArray("\x30\xff\xff\xff\x7f") << true;
    QTest::newRow("garbage") << QByteArray("\x01\x02\xbe\xef") << false;
    QTest::newRow("reserved type") << QByteArray("\xf0\x00", 2) << false;
    QTest::newRow("CONNECT from a broker") << QByteArray("\x10\x00", 2) << false;
    QTest::newRow("CONNACK again") << QByteArray("\x20\x02\x00\x00", 4) << true;
    QTest::newRow("refusal afterwards") << QByteArray("\x20\x02\x00\x05", 4) << false;
    QTest::newRow("empty topic") << QByteArray("\x30\x02\x00\x00", 4) << false;
    QTest::newRow("topic longer than the packet") << QByteArray("\x30\x04\x00\xff"
                                                                "ab",
                                                                6)
                                                  << false;
    QTest::newRow("QoS 3") << QByteArray("\x36\x05\x00\x01"
                                         "a\x00\x01",
                                         7)
                           << false;
    QTest::newRow("id 0") << QByteArray("\x32\x05\x00\x01"
                                        "a\x00\x00",
                                        7)
                          << false;
    QTest::newRow("topic of invalid UTF-8") << QByteArray("\x30\x04\x00\x02\xc3\x28", 6) << false;
    QTest::newRow("PUBACK of nothing") << QByteArray("\x40\x02\x12\x34", 4) << true;
    QTest::newRow("PUBREC of nothing") << QByteArray("\x50\x02\x12\x34", 4) << true;
    QTest::newRow("PUBREL of nothing") << QByteArray("\x62\x02\x12\x34", 4) << true;
    QTest::newRow("PUBCOMP of nothing") << QByteArray("\x70\x02\x12\x34", 4) << true;
    QTest::newRow("SUBACK of nothing") << QByteArray("\x90\x03\x12\x34\x00", 5) << true;
    QTest::newRow("UNSUBACK of nothing") << QByteArray("\xb0\x02\x12\x34", 4) << true;
    QTest::newRow("PINGRESP unasked") << QByteArray("\xd0\x00", 2) << true;
    QTest::newRow("SUBACK without an answer") << QByteArray("\x90\x02\x12\x34", 4) << false;
    QTest::newRow("short PUBACK") << QByteArray("\x40\x01\x12", 3) << false;
}

void adapter_protocol::oddPackets()
{
    QFETCH(QByteArray, bytes);
    QFETCH(bool, survives);
    log_recorder_t log(::utility::logs::info);
    fake_broker_t broker;
    mosquittoqt client(QStringLiteral("panel"), true, false);
    QSignalSpy losses(&client, SIGNAL(onDisconnect(int)));
    QSignalSpy answers(&client, SIGNAL(onConnect(int)));
    QSignalSpy acknowledged(&client, SIGNAL(onPublish(int)));
    QCOMPARE(client.connect_async(broker.host(), broker.port(), 60), 0);
    QTRY_VERIFY(client.getConnected());
    loop_watch_t watch;
    broker.send(bytes);
    QTest::qWait(30);
    QCOMPARE(client.getConnected(), survives);
    QCOMPARE(losses.count(), survives ? 0 : 1);
    QCOMPARE(log.count(QStringLiteral("lost: ")), survives ? 0 : 1);
    QCOMPARE(answers.count(), 1);
    QCOMPARE(acknowledged.count(), 0);
    QVERIFY2(watch.longestGap() < 50, QByteArray::number(watch.longestGap()));
}

void adapter_protocol::subscriptionAnswers_data()
{
    QTest::addColumn<QByteArray>("codes");
    QTest::newRow("granted") << QByteArray("\x02");
    QTest::newRow("refused") << QByteArray("\x80");
    QTest::newRow("too many") << QByteArray("\x00\x01\x02\x80", 4);
}

void adapter_protocol::subscriptionAnswers()
{
    QFETCH(QByteArray, codes);
    fake_broker_t broker;
    broker.script = [&](int type, const QByteArray& body) {
        if (type == SUBSCRIBE) {
            broker.send(SUBACK, body.left(2) + codes);
        }
        return type == SUBSCRIBE;
    };
    mosquittoqt client(QStringLiteral("panel"), true, true);
    QByteArray granted;
    int answers = 0;
    connect(&client, &mosquittoqt::onSubscribe, this, [&](int mid, int count, const int* qos) {
        QCOMPARE(mid, 1);
        ++answers;
        for (int i = 0; i < count; ++i) {
            granted.append(static_cast<char>(qos[i]));
        }
    });
    client.connect_async(broker.host(), broker.port(), 60);
    QTRY_VERIFY(client.getConnected());
    int mid = 0;
    QCOMPARE(client.subscribe(&mid, QStringLiteral("a/#"), 2), 0);
    QTRY_COMPARE(answers, 1);
    QCOMPARE(granted, codes);
}

void adapter_protocol::payloads_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("arrives");
    QTest::newRow("empty") << QString() << true;
    QTest::newRow("with NUL") << QStringLiteral("a") + QChar(0) + QStringLiteral("b") << true;
    QTest::newRow("1 MB") << QString(1000000, QLatin1Char('x')) << true;
    QTest::newRow("just the limit") << QString(16 << 20, QLatin1Char('x')) << true;
    QTest::newRow("over the limit") << QString((16 << 20) + 1, QLatin1Char('x')) << false;
    QTest::newRow("50 MB") << QString(50000000, QLatin1Char('x')) << false;
}

void adapter_protocol::payloads()
{
    QFETCH(QString, text);
    QFETCH(bool, arrives);
    log_recorder_t log(::utility::logs::info);
    fake_broker_t broker;
    mosquittoqt client(QStringLiteral("panel"), true, true);
    QSignalSpy messages(&client, SIGNAL(onMessage(int, QString, QString, int, int, bool)));
    QSignalSpy acknowledged(&client, SIGNAL(onPublish(int)));
    client.connect_async(broker.host(), broker.port(), 60);
    QTRY_VERIFY(client.getConnected());
    int mid = 0;
    QCOMPARE(client.publish(&mid, QStringLiteral("a"), text, 2, false), 0);
    QTRY_COMPARE_WITH_TIMEOUT(acknowledged.count(), 1, 20000);
    QCOMPARE(broker.publications().value(0).mid(5), text.toUtf8());
    broker.sendMessage("a", text.toUtf8(), 1);
    QTRY_COMPARE_WITH_TIMEOUT(broker.received().count(PUBACK), 1, 20000);
    QCOMPARE(messages.count(), arrives ? 1 : 0);
    QCOMPARE(log.count(QStringLiteral("Message dropped, it is longer than 16777216 bytes: a")), arrives ? 0 : 1);
    if (arrives) {
        QCOMPARE(messages[0][2].toString(), text);
        QCOMPARE(messages[0][3].toInt(), text.size());
    }
}

// A broker that sends faster than the host works must not stop the rest of the event loop.
void adapter_protocol::flood()
{
    fake_broker_t broker;
    mosquittoqt client(QStringLiteral("panel"), true, true);
    int arrived = 0;
    connect(&client, &mosquittoqt::onMessage, this, [&] {
        ++arrived;
        QElapsedTimer work;
        work.start();
        while (work.nsecsElapsed() < 20000) {
        }
    });
    client.connect_async(broker.host(), broker.port(), 60);
    QTRY_VERIFY(client.getConnected());
    for (int i = 0; i < 20000; ++i) {
        broker.sendMessage("a", "{\"d\":1}", 1, i + 1);
    }
    loop_watch_t watch;
    QTRY_COMPARE_WITH_TIMEOUT(arrived, 20000, 20000);
    QVERIFY2(watch.longestGap() < 50, QByteArray::number(watch.longestGap()));
}

void adapter_protocol::wrongAcknowledgements()
{
    fake_broker_t broker;
    broker.script = [&](int type, const QByteArray& body) {
        // The wrong kind for a QoS 1 message, then the right one.
        if (type == PUBLISH) {
            broker.send(PUBREC, body.mid(3, 2));
            broker.send(PUBACK, body.mid(3, 2));
        }
        return type == PUBLISH;
    };
    mosquittoqt client(QStringLiteral("panel"), true, true);
    QSignalSpy acknowledged(&client, SIGNAL(onPublish(int)));
    QSignalSpy losses(&client, SIGNAL(onDisconnect(int)));
    client.connect_async(broker.host(), broker.port(), 60);
    QTRY_VERIFY(client.getConnected());
    int mid = 0;
    client.publish(&mid, QStringLiteral("a"), QStringLiteral("x"), 1, false);
    QTRY_VERIFY(losses.count() == 1 || acknowledged.count() == 1);
    client.disconnect_sync();
}

void adapter_protocol::forgottenReleases()
{
    fake_broker_t broker;
    broker.script = [](int type, const QByteArray&) { return type == PUBREC; };
    mosquittoqt client(QStringLiteral("panel"), true, true);
    QSignalSpy messages(&client, SIGNAL(onMessage(int, QString, QString, int, int, bool)));
    client.connect_async(broker.host(), broker.port(), 60);
    QTRY_VERIFY(client.getConnected());
    for (int i = 1; i <= 2000; ++i) {
        broker.sendMessage("a", "x", 2, i);
    }
    QTRY_COMPARE(broker.received().count(PUBREC), 2000);
    QCOMPARE(messages.count(), 0);
    broker.send(PUBREL, fake_broker_t::number(7), 2);
    QTRY_COMPARE(messages.count(), 1);
    QVERIFY(client.getConnected());
}

QTEST_GUILESS_MAIN(adapter_protocol)
#include "adapter_protocol.moc"
