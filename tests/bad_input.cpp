// SPDX-License-Identifier: MIT
// What no engine would send, through a real broker: it is dropped, and the conversation goes on.
#include "support/broker.h"
#include "support/engine_probe.h"
#include "support/observer.h"

#include <QtTest/QtTest>

using comunication::protobase_t;
using comunication::protoclient_t;
using comunication::protoserver_t;
using comunication::utility::qos_t;

class bad_input : public QObject {
    Q_OBJECT

    broker_t broker{"set_tcp_nodelay true"_s};
    std::unique_ptr<observer_t> observer;
    std::unique_ptr<protoserver_t> server;
    std::unique_ptr<protoclient_t> panel;

private Q_SLOTS:
    // One server and one panel that all of it comes to; the server answers each request.
    void initTestCase()
    {
        ::utility::logs::classlogs::getInstance()->setSink([](const ::utility::logs::LogRecord&) {});
        QVERIFY(broker.start());
        observer = std::make_unique<observer_t>(broker.port());
        const QJsonObject global{{"installation_id"_s, "1234"_s}, {"port"_s, broker.port()}};
        const QJsonObject configuration{{"mqtt"_s, QJsonObject{{"global"_s, global}}}};
        server = std::make_unique<protoserver_t>(QString(), configuration, true, "srv"_s, false);
        panel = std::make_unique<protoclient_t>(QString(), configuration, "panel"_s, false);
        QObject::connect(server.get(), &protoserver_t::onRequestRealtimeRequest, server.get(), [this] {
            server->eventPublish({{"topic"_s, "status/DB/realtime"_s}, {"payload"_s, 1}, {"destination"_s, "all"_s}},
                                 qos_t(2), false);
        });
        QSignalSpy ready(server.get(), &protoserver_t::onClientReady);
        server->connect();
        panel->connect();
        QTRY_COMPARE(ready.count(), 1);
        QVERIFY(observer->isReady());
    }
    void cleanupTestCase()
    {
        panel.reset();
        server.reset();
        ::utility::logs::classlogs::getInstance()->setSink({});
    }

    void message_data()
    {
        QTest::addColumn<QString>("topic");
        QTest::addColumn<QByteArray>("payload");
        const auto row = [](const QByteArray& rule, const QByteArray& topic, const QByteArray& payload) {
            QTest::newRow(rule.constData()) << QString::fromUtf8(topic) << payload;
        };
        const char* const node = "forward-bridge/local/1234/x/all/connection/presentation";
        const char* const election = "local/1234/x/all_clients/master";
        const char* const ready = "forward-bridge/local/1234/x/srv/command/client/ready";
        const char* const request = "forward-bridge/local/1234/x/srv/request/DB/persistent";
        const char* const status = "forward-bridge/local/1234/srv/all/status/DB/persistent";
        row("foreign topic below the installation", "forward-bridge/local/1234/a b", "{}");
        row("too short", "forward-bridge/local/1234/a", "{}");
        row("odd characters", "forward-bridge/local/1234/x/\u20ac*/%&/~", "{}");
        row("many levels", "forward-bridge/local/1234" + QByteArray("/x").repeated(150), "{}");
        for (const QByteArray topic : {node, election, ready, request, status}) {
            const QByteArray name = topic.mid(topic.indexOf("/x/") + 3) + ": ";
            row(name + "empty", topic, "");
            row(name + "no JSON", topic, "{\"d\":");
            row(name + "number", topic, "{\"d\":1e400}");
            row(name + "null", topic, "{\"d\":null}");
            row(name + "array", topic, "{\"d\":[{\"clientid\":1}]}");
            row(name + "invalid UTF-8", topic, "{\"d\":\"\xff\xc0\x80\xed\xa0\x80\"}");
            row(name + "zero bytes", topic, QByteArray("{\"d\":\"\0\0\"}\0", 11));
            row(name + "a megabyte", topic, "{\"d\":{\"a\":\"" + QByteArray(1 << 20, 'x') + "\"}}");
            row(name + "deep nesting", topic,
                "{\"d\":" + QByteArray("{\"masterData\":").repeated(900) + "{}" + QByteArray(900, '}') + "}");
            row(name + "too deep nesting", topic, QByteArray(100000, '['));
            row(name + "duplicate keys", topic, R"({"d":1,"d":{"clientid":"a","clientid":"x","a":null}})");
        }
        const auto wrong = [&](const char* rule, const char* members) {
            row(rule, node,
                QByteArray("{\"d\":{\"clientid\":\"x\",\"type\":\"server\",\"connected\":true,") + members + "}}");
        };
        wrong("client id of a number", "\"clientid\":5");
        wrong("client id of null", "\"clientid\":null");
        wrong("type of an array", "\"type\":[]");
        wrong("connected of an object", "\"connected\":{}");
        wrong("master id of a boolean", "\"masterid\":true");
        wrong("master data of a text", "\"masterid\":\"y\",\"masterData\":\"x\"");
        wrong("a class of its own", "\"@class\":\"QProcess\"");
        wrong("an object name", "\"objectName\":7");
        row("10,000 keys", node, [] {
            QByteArray keys = "{\"d\":{\"clientid\":\"x\",\"type\":\"client\",\"connected\":true";
            for (int i = 0; i < 10000; ++i) {
                keys += ",\"k" + QByteArray::number(i) + "\":" + QByteArray::number(i);
            }
            return QByteArray(keys + "}}");
        }());
        row("broker statistics from a stranger", "forward-bridge/$SYS/broker/connection", "1");
    }
    // After each of them both engines still do their work, on the same link.
    void message()
    {
        QFETCH(QString, topic);
        QFETCH(QByteArray, payload);
        QSignalSpy states(panel.get(), &protobase_t::onDatabaseRealtimeStatus);
        QSignalSpy lost(server.get(), &protobase_t::onBrokerDisconnection);
        QSignalSpy lostPanel(panel.get(), &protobase_t::onBrokerDisconnection);
        observer->messages.clear();
        observer->publish(topic, payload);
        observer->publish("forward-bridge/local/1234/tester/srv/request/DB/realtime"_s, "{\"d\":{}}");
        QVERIFY(states.wait());
        QCOMPARE(states.count(), 1);
        QTRY_VERIFY(!observer->messages.filter(topic + u' ').isEmpty());
        QCOMPARE(lost.count() + lostPanel.count(), 0);
        QCOMPARE(panel->getServerId(), "srv"_s);
        QVERIFY(server->isMaster() && server->getClients().contains("panel"_s));
    }
};

QTEST_GUILESS_MAIN(bad_input)
#include "bad_input.moc"
