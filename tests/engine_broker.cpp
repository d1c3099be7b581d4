// SPDX-License-Identifier: MIT
// Engines on real brokers: how a link begins and ends, who is master, and what strangers send.
#include <flotrofobul/house/keeper.h>
#include <flotrofobul/testkit/broker.h>
#include <flotrofobul/testkit/observer.h>
#include <flotrofobul/testkit/waiting.h>
#include <flotrofobul/utility/statusbroker.h>

#include "support/engine_probe.h"

#include <QtCore/QElapsedTimer>
#include <QtTest/QtTest>

#include <csignal>

using comunication::protobase_t;
using comunication::protoclient_t;
using comunication::protoserver_t;
using comunication::testkit::awaited_t;
using comunication::testkit::broker_t;
using comunication::testkit::observer_t;
using comunication::utility::qos_t;
using comunication::utility::subscribe_t;

class engine_broker : public QObject {
    Q_OBJECT

    using panel_t = bare_t<protoclient_t>;
    using server_t = bare_t<protoserver_t>;

    std::unique_ptr<log_recorder_t> log;
    std::unique_ptr<broker_t> broker;
    std::unique_ptr<observer_t> observer;
    std::unique_ptr<panel_t> panel;
    std::unique_ptr<server_t> server;

    static QJsonObject configuration(const broker_t& broker)
    {
        return parse("{'mqtt':{'global':{'installation_id':'1234','logging':true,'port':" +
                     QByteArray::number(broker.port()) + "},'connect':{'keepalive':5}}}");
    }
    // True when the panel has said that it is ready for its master.
    bool meet()
    {
        awaited_t ready(server.get(), &protoserver_t::onClientReady);
        server->connect();
        panel->connect();
        return ready.comes();
    }
    int published(const QString& part) const { return observer->messages.filter(part).size(); }

private Q_SLOTS:
    void init()
    {
        log = std::make_unique<log_recorder_t>();
        broker = std::make_unique<broker_t>();
        QVERIFY(broker->start());
        observer = std::make_unique<observer_t>(broker->port());
        panel = std::make_unique<panel_t>("1"_s, configuration(*broker), "panel"_s, false);
        server = std::make_unique<server_t>("1"_s, configuration(*broker), true, "srv"_s, false);
    }
    void cleanup()
    {
        panel.reset();
        server.reset();
        log.reset();
    }

    void link()
    {
        QSignalSpy lost(panel.get(), &protobase_t::onBrokerDisconnection);
        QCOMPARE(panel->connect(), 0);
        QVERIFY(!panel->getConnected());
        QTRY_COMPARE(published("/panel/own_server/connection/presentation"_s), 1);
        QVERIFY(broker->output().contains("as panel (p2, c1, k10)"));
        QVERIFY(log->lines.contains("4 on_log Client panel sending CONNECT"_s));
        QCOMPARE(panel->connect(), 0); // while connected: the session is left alone

        QElapsedTimer clock;
        clock.start();
        QCOMPARE(panel->disconnection(), 0);
        QVERIFY(panel->getConnected());
        QTest::qWait(600);
        QCOMPARE(panel->disconnection(), 0); // the second goes on
        QTRY_COMPARE(lost, (QList<QVariantList>{{0}}));
        QVERIFY2(clock.elapsed() >= 900 && clock.elapsed() < 1500, qPrintable(QString::number(clock.elapsed())));
        QCOMPARE(published("\"connected\":false"_s), 2);
        QCOMPARE(panel->disconnection(false), 4); // nothing to end
        QCOMPARE(panel->disconnection(), 0);      // nobody to tell, not even at the next connection
        QCOMPARE(panel->connect("wall_7"_s, false), 0);
        QVERIFY(log->lines.contains("4 connect Set mosquitto client id: wall_7"_s));
        const QString own = "/client@wall7/own_server/connection/presentation"_s;
        QTRY_COMPARE(published(own), 1);
        QCOMPARE(published("\"connected\":false"_s), 2);

        // Within the will's second: closed at once, and connected anew, which the second does not end.
        QCOMPARE(panel->disconnection(), 0);
        QTRY_COMPARE(published(own), 2);
        QCOMPARE(panel->disconnection(false), 0);
        QCOMPARE(panel->connect(QString(), false), 0);
        QTRY_COMPARE(published(own), 3);
        QTest::qWait(1100);
        QCOMPARE(lost.count(), 2);
        QCOMPARE(panel->disconnection(), 0);
        QTRY_COMPARE(published(own), 4);
        QCOMPARE(panel->connect(QString(), false), 0);
        QTRY_COMPARE(published(own), 5);
        QTest::qWait(1100);
        QVERIFY(panel->getConnected());
        QCOMPARE(lost.count(), 3);

        // Its will has left when an engine goes within the second.
        QCOMPARE(panel->disconnection(), 0);
        panel.reset();
        QTRY_VERIFY(published(own) > 5);
    }

    // What belongs to one session does not reach into the next.
    void sessions()
    {
        QCOMPARE(panel->connect(), 0);
        QCOMPARE(panel->disconnection(), 0); // ends the attempt: no node appears and goes without a word
        QCOMPARE(panel->connect(QString(), false), 0);
        QCOMPARE(panel->disconnection(false), 0);
        QCOMPARE(panel->connect(QString(), false), 0); // before the end of the first is reported
        panel->protoclient_t::protobase_t::publish(parse("{'topic':'t','payload':1}"), qos_t(2), false);
        panel->subscribe("z/#"_s, qos_t(2));
        const auto& asked = *panel->messages->getSubscriptions();
        const auto isPending = [](const auto* one) { return int(one->getState()) != 2; };
        QTRY_VERIFY(asked.size() > 10 && std::none_of(asked.begin(), asked.end(), isPending));
        QTRY_VERIFY(panel->messages->getPublications()->isEmpty());
        QCOMPARE(log->count("not found!"_s), 0);
        QVERIFY(std::any_of(asked.begin(), asked.end(), [](const auto* one) { return one->getTopic() == "z/#"_l1; }));
        QCOMPARE(panel->linkProblem(), QString());
    }

    void statistics()
    {
        QCOMPARE(server->connect("wall_7"_s), 0);
        const auto& asked = *server->messages->getSubscriptions();
        QTRY_COMPARE(asked.size(), 10);
        QTRY_COMPARE(int(asked.last()->getState()), 2);
        log->take();
        server->setStatusbroker(true); // something is subscribed already
        QCOMPARE(log->count("Try to subscribe"_s), 0);
        server->setStatusbroker(false);
        QCOMPARE(asked.firstKey(), 2); // the lowest made room
        server->messages->reset();
        server->getStatusBroken()->setStoreBrokerStatistics(true);
        server->setStatusbroker(true);
        QTRY_VERIFY(server->getStatusBroken()->version.startsWith("mosquitto version "_l1));
        server->init_subscription(subscribe_t(1));
        for (const char* const line :
             {"6 setStatusbroker Set status broker to: true", "6 setStatusbroker Set status broker to: false",
              "6 unsubscribe Try to unsubscribe topic: $SYS/#", "3 on_message Recording status broker is enabled...",
              "6 init_subscription Try to subscribe server $SYS/#",
              "6 subscribe Try to subscribe topic: local/1234/+/server@wall7/request/# qos: 2"}) {
            QVERIFY2(log->lines.contains(QLatin1String(line)), line);
        }
    }

    void lossOfTheBroker()
    {
        QSignalSpy ready(server.get(), &protoserver_t::onClientReady);
        QSignalSpy lost(panel.get(), &protobase_t::onBrokerDisconnection);
        QVERIFY(meet());
        const auto clients = server->getClients();
        broker->kill(SIGKILL);
        QTRY_COMPARE(lost, (QList<QVariantList>{{7}}));
        QTRY_VERIFY(server->getClients().isEmpty());
        ready.clear(); // the panel answers each presentation of its master, of which there may have been two
        QCOMPARE(clients.first()->getClientid(), "panel"_s); // the host may hold the records
        QCOMPARE(server->system->getMasterId(), "srv"_s);
        QVERIFY(panel->getServerId().isEmpty() && server->messages->getSubscriptions()->isEmpty());
        QVERIFY(broker->start());
        QTRY_VERIFY(!ready.isEmpty());
        QCOMPARE(server->getClients().keys(), QStringList{"panel"_s});
    }

    // Two brokers joined by a bridge, a server on each: the last who says that it is master is.
    void bridgedHouse()
    {
        broker_t far;
        QVERIFY(far.start());
        broker_t near(
            ("connection x-y-1-2\naddress 127.0.0.1:%1\nremote_clientid x-y-1-2\ncleansession true\nrestart_timeout 1\n"
             "topic local/1234/# out 2 forward-bridge/ remote-bridge/\n"
             "topic local/1234/# in 2 remote-bridge/ forward-bridge/"_s)
                .arg(far.port()));
        QVERIFY(near.start());
        server_t first("1"_s, configuration(near), true, "tarnel-server-1"_s, false);
        server_t second("1"_s, configuration(far), false, "tarnel-server-2"_s, false);
        panel = std::make_unique<panel_t>("1"_s, configuration(near), "panel"_s, false);
        QSignalSpy bridge(&first, &protobase_t::onBridgeConnectionEvent);
        QSignalSpy bridgeError(&first, &protobase_t::onMasterBridgeError);
        second.connect();
        first.connect();
        panel->connect();
        QTRY_COMPARE(panel->getServerId(), "tarnel-server-1"_s);
        // The last announcement wins, so those that are still on their way have to arrive before the next one.
        for (int heard = -1; heard != log->lines.size() || second.system->getMasterId().isEmpty();) {
            heard = log->lines.size();
            QTest::qWait(300);
        }
        second.setMaster();
        QVERIFY(log->lines.contains("3 setMaster Publish that i'm a master"_s));
        QTRY_COMPARE(panel->getServerId(), "tarnel-server-2"_s);
        QTRY_COMPARE(first.system->getMasterId(), "tarnel-server-2"_s);
        far.kill(SIGKILL);
        QTRY_COMPARE(bridge.value(bridge.size() - 1).value(2), "0"_s);
        QVERIFY(!bridgeError.isEmpty()); // the bridge joins the master
    }

    // A default master is of the first rank where its configuration names none. A slot may delete the companion between
    // two things that it tells.
    void companionOfDefaultMaster()
    {
        const QPointer<comunication::house::keeper_t> keeper = new comunication::house::keeper_t(*server);
        QStringList happened;
        auto* const recorder = new signal_recorder_t([&](const QString& line) { happened << line; }, keeper);
        recorder->setParent(keeper);
        QSignalSpy connected(server.get(), &protoserver_t::onConnection);
        server->connect();
        QVERIFY(connected.wait());
        server->on_message(1, "$SYS/broker/connection/a-b-srv-2/state"_s, "1"_s, 1, 0, true);
        QTRY_VERIFY(published("connection/house {\"d\":{\"asks\":true,\"master\":\"srv\",\"rank\":1,"_s) > 0);
        happened.clear();
        recorder->fuse = 1;
        server->on_message(1, "remote-bridge/local/1234/aaa/all_servers/connection/house"_s,
                           textOf(parse("{'d':{'rank':1,'master':'aaa'}}")), 1, 0, false);
        QTRY_VERIFY(!keeper);
        QTest::qWait(0);
        QCOMPARE(happened.size(), 1);
        QVERIFY2(happened[0].startsWith("emit twoMasters aaa"_l1), qPrintable(happened[0]));
        QCOMPARE(server->system->getMasterId(), "aaa"_s);
    }

    // What a companion takes note of, says and hands on. Of too many servers it keeps no records.
    void companion_data()
    {
        QTest::addColumn<int>("others");
        QTest::addColumn<QString>("kept");
        QTest::newRow("many servers") << 255 << "x";
        QTest::newRow("too many servers") << 256 << "";
    }
    void companion()
    {
        QFETCH(const int, others);
        QJsonObject own = configuration(*broker);
        own["house"_s] = parse("{'rank':7,'start':200,'patience':200}");
        server = std::make_unique<server_t>("1"_s, own, false, "tarnel-server-1"_s, false);
        auto keeper = std::make_unique<comunication::house::keeper_t>(*server);
        QStringList happened;
        const signal_recorder_t recorder([&](const QString& line) { happened << line; }, keeper.get());
        const auto hears = [&](const QString& way, const QByteArray& packet) {
            const QString text = textOf(QJsonValue(parse("{'d':" + packet + '}')));
            server->on_message(1, way, text, text.size(), 2, false);
        };
        const QString from = "remote-bridge/local/1234/tarnel-server-%1/"_s;
        const auto advertises = [&](int number, const QByteArray& packet) {
            hears(from.arg(number) + "all_servers/connection/house"_l1, packet);
        };
        const auto presents = [&](int number, const QByteArray& more) {
            const QByteArray id = "tarnel-server-" + QByteArray::number(number);
            hears(from.arg(number) + "all/connection/presentation"_l1,
                  "{'clientid':'" + id + "','type':'server','connected':true" + more + '}');
        };
        const auto reports = [&](const QString& bridge) {
            server->on_message(1, "$SYS/broker/connection/%1/state"_s.arg(bridge), "1"_s, 1, 0, true);
        };
        const auto said = [&](const char* marker) { // advertisements until the marker
            QTest::qWait(1);                        // what is to be said at once is said in the next turn
            server->protoserver_t::protobase_t::publish(QLatin1String(marker), QJsonObject(), qos_t(0), false);
            [[maybe_unused]] const bool came = QTest::qWaitFor([&] { return published(QLatin1String(marker)) == 1; });
            return observer->messages.filter("all_servers/connection/house"_s);
        };
        QSignalSpy connected(server.get(), &protoserver_t::onConnection);
        QCOMPARE(server->connect(), 0);
        QVERIFY(connected.wait());
        server->init_subscription(subscribe_t(1));

        // Where nothing is heard of another server, nothing is said. A rank that no server has is no advertisement, and
        // no bridge of this server is one that others have.
        for (const char* const packet :
             {"{'rank':0,'master':'tarnel-server-2'}", "{'rank':256,'master':'tarnel-server-2'}"}) {
            advertises(2, packet);
        }
        QTRY_COMPARE(happened.value(0).left(34), "emit masterChanged tarnel-server-1"_s);
        QVERIFY(server->isMaster() && keeper->isMaster());
        for (const char* const bridge : {"a-b-2-3", "a-b-1", "1-1-2-3"}) {
            reports(QLatin1String(bridge));
        }
        QCOMPARE(said("local/1234/a/b/c"), QStringList());
        reports("a-b-2-1"_s); // of a server that has not been heard: it may be there
        const QRegularExpression first(
            R"(^forward-bridge/local/1234/tarnel-server-1/all_servers/connection/house )"
            R"(\{"d":\{"asks":true,"master":"tarnel-server-1","rank":7,"requests":0,"since":\d\}\} 0 0$)"_s);
        QTRY_COMPARE(observer->messages.filter(first).size(), 1);

        // Requests to this server are counted, and both sides told where a second master turns up.
        happened.clear();
        presents(2, ",'os':'x'");
        QCOMPARE(log->count("Add/Update server presentation"_s), 1); // the engine hears of it, too
        for (int i = 0; i < others; ++i) {
            presents(3 + i, ",'os':'y'");
        }
        for (const char* const to : {"tarnel-server-1/request/DB/persistent", "tarnel-server-1/request/DB/realtime",
                                     "all/request/DB/persistent", "tarnel-server-1/status/DB/persistent"}) {
            hears("forward-bridge/local/1234/panel/"_l1 + QLatin1String(to), "{}");
        }
        hears("forward-bridge/local/1234/admin/all_servers/master"_s, "{'masterid':'tarnel-server-3'}"); // of no effect
        QVERIFY(server->isMaster());
        advertises(2, "{'rank':5,'master':'tarnel-server-2','since':60,'requests':3}");
        QTRY_COMPARE(happened.size(), 2);
        QVERIFY2(
            happened[0].contains(QRegularExpression(R"(^emit twoMasters tarnel-server-2 \{"requests":2,"since":\d\} )"
                                                    R"(\{"requests":3,"since":60\}$)"_s)),
            qPrintable(happened[0]));
        QVERIFY(happened[1].startsWith("emit masterChanged tarnel-server-2"_l1) && !keeper->isMaster());
        QCOMPARE(keeper->master(), "tarnel-server-2"_s);
        QTRY_COMPARE(server->system->getMasterId(), "tarnel-server-2"_s);
        const QJsonObject master = server->system->getMasterData();
        QTEST(master["os"_s].toString(), "kept");
        QCOMPARE(master["clientid"_s].toString() + master["masterid"_s].toString(), "tarnel-server-2tarnel-server-2"_s);
        QCOMPARE(master["connected"_s], QJsonValue(true));

        // A panel speaks to its own server; who has no companion any more is told of elections again.
        for (const char* const to : {"tarnel-server-2", "tarnel-server-1", "own_server", "all"}) {
            const QString topic = "remote-bridge/local/1234/p-%1/%1/connection/presentation"_s.arg(QLatin1String(to));
            hears(topic, "{'clientid':'" + topic.section(u'/', 3, 3).toUtf8() + "','type':'client','connected':true}");
        }
        QCOMPARE(server->getClients().keys(), QStringList({"p-all"_s, "p-own_server"_s, "p-tarnel-server-1"_s}));
        keeper.reset();
        QCOMPARE(log->count("Try to unsubscribe topic: remote-bridge/local/1234/+/all_servers/connection/house"_s), 1);
        presents(3, ",'masterid':'tarnel-server-3'");
        QCOMPARE(server->system->getMasterId(), "tarnel-server-3"_s);
    }

    // What no engine would send is dropped, and the conversation goes on, over the same link.
    void strangers()
    {
        QSignalSpy requests(server.get(), &protoserver_t::onRequestRealtimeRequest);
        QSignalSpy states(panel.get(), &protobase_t::onDatabaseRealtimeStatus);
        QVERIFY(meet());
        const QByteArray node = "{\"d\":{\"clientid\":\"x\",\"connected\":true,\"type\":";
        const QByteArray payloads[] = {"",
                                       "{\"d\":",
                                       "{\"d\":\"\xff\xc0\x80\xed\xa0\x80\"}",
                                       QByteArray("{\"d\":\"\0\0\"}\0", 11),
                                       "{\"d\":{\"a\":\"" + QByteArray(1 << 20, 'x') + "\"}}",
                                       QByteArray(100000, '['),
                                       node + "[]}}",
                                       node + "\"server\",\"masterData\":\"x\"}}",
                                       node + "\"server\",\"@class\":\"QProcess\"}}"};
        for (const QString& topic : {"x/all/connection/presentation"_s, "x/all_clients/master"_s, "x/\u20ac*/%&/~"_s,
                                     "x/srv/command/client/ready"_s, "srv/all/status/DB/persistent"_s}) {
            for (const QByteArray& payload : payloads) {
                observer->publish("forward-bridge/local/1234/"_l1 + topic, payload);
            }
            panel->publish(parse("{'topic':'request/DB/realtime','payload':1}"));
            QTRY_COMPARE(requests.count(), states.count() + 1);
            server->eventPublish(parse("{'topic':'status/DB/realtime','payload':1,'destination':'all'}"), qos_t(2),
                                 false);
            QTRY_COMPARE(requests.count(), states.count());
        }
        QVERIFY(server->isMaster() && server->getClients().contains("panel"_s));
        QCOMPARE(log->count(" Connected to broker to "_s), 4); // as asked for and as answered, each once
    }
};

QTEST_GUILESS_MAIN(engine_broker)
#include "engine_broker.moc"
