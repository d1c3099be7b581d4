// SPDX-License-Identifier: MIT
// What the broker client reports reaches the role and the host: the link, acknowledgements and messages.
#include <flotrofobul/utility/statusbroker.h>

#include "support/engine_hooks.h"

#include <QtTest/QtTest>

using comunication::protoclient_t;
using comunication::utility::qos_t;
using comunication::utility::topic_t;

class unit_incoming : public QObject {
    Q_OBJECT

    log_recorder_t log;
    QStringList& events = log.lines;

    QStringList take() { return log.take(); }
    static QStringList lines(const QByteArray& text)
    {
        return QString::fromUtf8(text).split(u'\n', Qt::SkipEmptyParts);
    }

private Q_SLOTS:
    void cleanup() { log.take(); }

    void linkResults_data()
    {
        QTest::addColumn<int>("rc");
        QTest::addColumn<QString>("connection");
        QTest::addColumn<QString>("disconnection");
        const auto row = [](int rc, const char* connection, const char* disconnection) {
            QTest::newRow(qPrintable(QString::number(rc)))
                << rc << QString::fromUtf8(connection) << QString::fromUtf8(disconnection);
        };
        row(0, "Connected to broker to ", "Disconnected to broker to ");
        row(1, "Connection Refused: unacceptable protocol version to ",
            "Disconnection Refused: unacceptable protocol version to ");
        row(2, "Connection Refused: identifier rejected to ", "Disconnection Refused: identifier rejected to ");
        row(3, "Connection Refused: broker unavailable to ", "Disconnection Refused: broker unavailable to ");
        row(4, "Connection Refused: bad user name or password to ",
            "Disconnection Refused: bad user name or password to ");
        row(5, "Connection Refused: not authorised ", "Disconnection Refused: not authorised ");
        row(7, "Connection lost connection ", "Disconnection lost connection ");
        row(14, "Connection internal error (maby broker is down or wrong port) ",
            "Disconnection internal error (maby broker is down or wrong port) ");
        for (const int other : {-1, 6, 8, 15, 19, 128}) {
            row(other, "Connection Refused: unknown reason ", "Disconnection Refused: unknown reason ");
        }
    }
    void linkResults()
    {
        QFETCH(int, rc);
        QFETCH(QString, connection);
        QFETCH(QString, disconnection);
        hooks_t engine(events);
        take();
        const auto line = [rc](const char* function, const QString& text) {
            return QString("%1 %2 (%3) "_s.arg(rc == 0 ? 4 : 2).arg(QLatin1String(function)).arg(rc) + text +
                           "127.0.0.1:1883"_l1);
        };
        engine.on_connect(rc);
        QCOMPARE(take(), QStringList{"onConnect %1"_s.arg(rc)});
        engine.on_connect_with_flags(rc, 1);
        QCOMPARE(take(), (QStringList{line("on_connect_with_flags", connection), "role %1 1"_s.arg(rc),
                                      "emit onBrokerConnection %1 1"_s.arg(rc)}));
        engine.messages->addSubscription(1, QString(), qos_t(2));
        engine.on_disconnect(rc);
        QCOMPARE(take(), (QStringList{line("on_disconnect", disconnection), "role %1 0"_s.arg(rc),
                                      "emit onBrokerDisconnection %1"_s.arg(rc)}));
    }

    void logLevels()
    {
        hooks_t engine(events);
        take();
        const QMap<int, int> levels{{0, 4}, {1, 4}, {2, 4}, {4, 3}, {8, 2}, {10, 6}, {16, 4}, {3, 4}};
        for (auto level = levels.begin(); level != levels.end(); ++level) {
            engine.setMosquittoLog(true);
            engine.on_log(level.key(), "text"_s);
            engine.setMosquittoLog(false);
            engine.on_log(level.key(), "text"_s);
            const QString role = "onLog %1 text"_s.arg(level.key());
            QCOMPARE(take(), (QStringList{"%1 on_log text"_s.arg(*level), role, role}));
        }
        engine.on_error();
        QCOMPARE(take(), lines("2 on_error An error occured in mosquitto\nonError"));
    }

    void acknowledgements()
    {
        hooks_t engine(events);
        take();
        const int granted[] = {2, 128};
        auto& registry = *engine.messages;
        registry.addPublication(3, "a"_s, "p"_s, qos_t(2), true);
        registry.addPublication(4, "b"_s, "p"_s, qos_t(1), false);
        registry.addSubscription(5, "c"_s, qos_t(2));
        engine.on_publish(3);
        engine.on_publish(3);
        QCOMPARE(take(), lines(R"(
4 on_publish Publish topic mid 3 - topic a - qos 2 - retain: 1
6 on_publish Published: 1
6 on_publish Subscribe: 1
onPublish 3
3 on_publish Publish topic with mid 3 not found!
6 on_publish Published: 1
6 on_publish Subscribe: 1
onPublish 3)"));
        engine.on_subscribe(5, 2, granted);
        QCOMPARE(int(registry.getSubsciption(5)->getState()), 2); // and stays
        engine.on_subscribe(6, 1, granted);
        QCOMPARE(take(), lines(R"(
4 on_subscribe Subscribe topic mid 5 - topic c - qos 2
6 on_subscribe Published: 1
6 on_subscribe Subscribe: 1
onSubscribe 5 2 128 c
3 on_subscribe Subscribe topic with mid 6 not found!
6 on_subscribe Published: 1
6 on_subscribe Subscribe: 1
onSubscribe 6 1 2 )"));
        engine.on_unsubscribe(5);
        engine.on_unsubscribe(5);
        QCOMPARE(take(), lines(R"(
4 on_unsubscribe Unsubscribe topic mid 5 - topic c - qos 2
onUnsubscribe 5 c
3 on_unsubscribe Unubscribe topic with mid 5 not found!
onUnsubscribe 5 )"));
    }

    void messages_data()
    {
        QTest::addColumn<QString>("topic");
        QTest::addColumn<QString>("payload");
        QTest::addColumn<QByteArray>("expected");
        const auto row = [](const char* rule, const char* topic, const char* payload, const QByteArray& expected) {
            QTest::newRow(rule) << QString::fromUtf8(topic) << QString::fromUtf8(payload) << expected;
        };
        const char* const good = "local/1234/srv/all/x";
        const auto reached = [](const char* value) -> QByteArray {
            return QByteArray("4 on_message Recieve message topic: local/1234/srv/all/x\nonMessage 9 x ") + value +
                   " 1 1";
        };
        row("object", good, "{\"d\":{\"a\":[1]}}", reached("{\"a\":[1]}"));
        row("number", good, "{\"d\":5}", reached("5"));
        row("null", good, "{\"d\":null}", reached("null"));
        row("without d", good, "{\"e\":5}", reached("undefined"));
        row("the last of two", good, "{\"d\":1,\"d\":2}", reached("2"));
        row("an array", good, "[{\"d\":5}]", reached("undefined"));
        row("no JSON", good, "{\"d\":5", reached("undefined"));
        row("encoded", good, "eyJkIjo1fQ", reached("undefined"));
        row("empty", good, "", reached("undefined"));
        row("four levels", "local/1234/srv/all", "{}", "2 on_message Message error length: local/1234/srv/all");
        row("no topic", "", "{}", "2 on_message Message error length: ");
        row("foreign", "home/1234/srv/all/x", "{}",
            "2 topic_t Unknown topic not processing messsage: home/1234/srv/all/x\n"
            "2 on_message Unknown topic not processing messsage: home/1234/srv/all/x");
        row("own", "forward-bridge/local/1234/panel/all/x", "{}",
            "6 on_message Myself Message topic forward-bridge/local/1234/panel/all/x");
        row("broker", "$SYS/broker/uptime", "1",
            "6 on_message $SYS message $SYS/broker/uptime\n"
            "onChangeStausBroker 9 $SYS/broker/uptime 1 3 1 1");
        row("broker in small letters", "$sysx", "1",
            "6 on_message $SYS message $sysx\nonChangeStausBroker 9 $sysx 1 3 1 1");
    }
    void messages()
    {
        QFETCH(QString, topic);
        QFETCH(QString, payload);
        QFETCH(QByteArray, expected);
        hooks_t engine(events);
        take();
        engine.on_message(9, topic, payload, 3, 1, true);
        QCOMPARE(take(),
                 QStringList("6 on_message Recieve message => mid: 9 topic: "_l1 + topic + " qos: 1 retain: 1"_l1) +
                     lines(expected));
    }

    void statistics()
    {
        hooks_t engine(events);
        const QString topic = "$SYS/broker/version"_s;
        engine.getStatusBroken()->setStoreBrokerStatistics(true);
        engine.setStatusbroker(true);
        QVERIFY(engine.isStatusbroker());
        take();
        engine.on_message(1, topic, "mosquitto version 2"_s, 1, 0, false);
        QVERIFY(events.contains("3 on_message Recording status broker is enabled..."_s));
        QCOMPARE(events.last(), "onChangeStausBroker 1 $SYS/broker/version mosquitto version 2 1 0 0"_l1);
    }
};

QTEST_GUILESS_MAIN(unit_incoming)
#include "unit_incoming.moc"
