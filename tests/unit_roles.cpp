// SPDX-License-Identifier: MIT
// What arrives at the two roles, and what each does, logs and signals for it, whole and in order.
#include "support/engine_probe.h"

#include <QtCore/QRegularExpression>
#include <QtTest/QtTest>

using comunication::protobase_t;
using comunication::protoclient_t;
using comunication::protoserver_t;
using comunication::utility::service_t;
using comunication::utility::subscribe_t;

namespace {

// A message, with what stands before it and all that follows from it; data/roles.txt holds them as
//   # role: rule
//   master <the master that is known>
//   before <a message that came earlier>
//   message <topic> <payload, see payloadOf()>
//   <what follows, a line each, see expand()>
struct exchange_t {
    QString role; // client, server, bridge (either of them) or cloud (the client alone)
    QString master;
    QStringList before;
    QString message;
    QStringList expected;
};

const QString presentationOf = "forward-bridge/local/@installation_id/%1/%2/connection/presentation"_s;

// "+id type master" and "-id type master" are presentations of a node that is there and that is gone; everything
// else is JSON with ' for ".
QString payloadOf(QString text)
{
    if (text.startsWith(u'+') || text.startsWith(u'-')) {
        const QStringList words = text.mid(1).split(u' ');
        return probe::textOf(QJsonObject{{"clientid"_s, words[0]},
                                         {"type"_s, words[1]},
                                         {"masterid"_s, words.value(2)},
                                         {"connected"_s, text.startsWith(u'+')}});
    }
    return text.replace(u'\'', u'"');
}

QString topicOf(const QString& message)
{
    return message.section(u' ', 0, 0);
}

template <class Engine>
void deliver(Engine& engine, const QString& message)
{
    const QString payload = payloadOf(message.section(u' ', 1));
    const bool wrapped = !payload.isEmpty() && !message.startsWith(u'$');
    engine.on_message(5, topicOf(message), wrapped ? "{\"d\":"_l1 + payload + u'}' : payload, 0, 2, false);
}

// What a client says and asks for when it sets up or drops the topics of a master.
QStringList clientSubscriptions(const QString& verb, const QString& server)
{
    const bool on = verb == "subscribe"_l1;
    const QString qos = on ? " 2"_s : QString();
    const QString base = "local/@installation_id/@sender/@destination/"_s;
    const auto banner = [](const char* word) {
        return QString("4 init_subscription -----------------------------"_l1 + QLatin1String(word) +
                       "-----------------------------"_l1);
    };
    QStringList list{"4 init_subscription Init subscription client"_s, banner("PRESENTATION"), banner("MASTER")};
    for (const char* const bridge : {"forward-bridge/", "remote-bridge/", "cloud-bridge/"}) {
        list << verb + u' ' + QLatin1String(bridge) + "local/@installation_id/"_l1 + server + "/all_clients/master"_l1 +
                    qos;
    }
    list << banner("ALL BASE") << "4 init_subscription Init subscriptions "_s
         << "6 init_subscription Try to "_l1 + verb + " client "_l1 + base + "status/#"_l1;
    for (const char* const bridge : {"", "forward-bridge/", "remote-bridge/", "cloud-bridge/"}) {
        list << verb + u' ' + QLatin1String(bridge) + base + "status/#"_l1 + qos;
    }
    list << banner("ONLY CLIENT") << banner("SYS") << banner("NON SYS")
         << "6 init_subscription Try to "_l1 + verb + " client "_l1 + (on ? "forward-bridge/"_l1 : ""_l1) + base +
                "notification/#"_l1;
    for (const char* const bridge : {"forward-bridge/", "cloud-bridge/", "other-cloud-bridge/"}) {
        list << verb + u' ' + QLatin1String(bridge) + base + "notification/#"_l1 + qos;
    }
    return list;
}

QStringList bridges(const QString& verb)
{
    QStringList list;
    for (const char* const bridge : {"forward", "remote", "cloud"}) {
        list << verb + u' ' + QLatin1String(bridge) + "-bridge/local/@installation_id/#"_l1 +
                    (verb == "subscribe"_l1 ? " 2"_l1 : ""_l1);
    }
    return list;
}

// $T is the topic, $P the payload; "P 4 text" is a line of processPresentation. "@client verb server",
// "@bridges verb" and "@present destination" stand for all that is done and logged then.
QStringList expand(const QStringList& lines, const QString& message, const QString& own)
{
    QStringList list;
    for (QString line : lines) {
        line.replace("$T"_l1, topicOf(message)).replace("$P"_l1, payloadOf(message.section(u' ', 1)));
        const QStringList words = line.split(u' ');
        if (words[0] == "@client"_l1) {
            list << clientSubscriptions(words[1], words[2]);
        } else if (words[0] == "@bridges"_l1) {
            list << bridges(words[1]);
        } else if (words[0] == "@present"_l1) {
            const QString topic = presentationOf.arg(own, words[1]);
            list << "6 publish_presentation Try to public remote presentation: "_l1 + topic << "publish "_l1 + topic;
        } else {
            list << (line.startsWith("P "_l1) ? QString(words[1] + " processPresentation "_l1 + line.mid(4)) : line);
        }
    }
    return list;
}

// The payload of a presentation that went out is looked at elsewhere.
QStringList withoutPresentations(QStringList events)
{
    static const QRegularExpression payload("^(publish \\S+/presentation) \\{.*\\} 2 0$"_s);
    return events.replaceInStrings(payload, "\\1"_s);
}

const char* const srv = "forward-bridge/local/1234/srv/all/connection/presentation +srv server srv";
const char* const two = "remote-bridge/local/1234/two/all/connection/presentation +two server two";
const char* const panel = "forward-bridge/local/1234/pan/own_server/connection/presentation +pan client";

} // namespace

class unit_roles : public QObject {
    Q_OBJECT

    using client_t = probe_t<protoclient_t>;
    using server_t = probe_t<protoserver_t>;

    log_recorder_t log;
    QStringList& events = log.lines;
    const QJsonObject configuration{
        {"mqtt"_s, QJsonObject{{"global"_s, QJsonObject{{"installation_id"_s, "1234"_s}}}}}};

    std::unique_ptr<client_t> makeClient(const QString& master = QString())
    {
        auto engine = std::make_unique<client_t>(events, "1"_s, configuration, "panel"_s, false);
        engine->system->setMasterId(master);
        return engine;
    }
    std::unique_ptr<server_t> makeServer(const QString& master = QString(), bool defaultMaster = false)
    {
        auto engine = std::make_unique<server_t>(events, "1"_s, configuration, defaultMaster, "srv"_s, false);
        engine->system->setMasterId(master);
        return engine;
    }

    QList<exchange_t> exchanges;
    QStringList rules;

    template <class Engine>
    void exchange(Engine& engine, const exchange_t& row, const QString& own, const QString& word)
    {
        for (const QString& message : row.before) {
            deliver(engine, message);
        }
        events.clear();
        deliver(engine, row.message);
        const QString rest = topicOf(row.message) + " qos: 2 retain: 0"_l1;
        QStringList expected{"6 on_message Recieve message => mid: 5 topic: "_l1 + rest};
        if (row.message.startsWith(u'$')) {
            expected << "6 on_message $SYS message "_l1 + topicOf(row.message);
        } else {
            expected << "4 on_message Recieve message topic: "_l1 + topicOf(row.message)
                     << "6 onMessage Processing message => mid: 5 "_l1 + word + rest;
        }
        QCOMPARE(withoutPresentations(events), expected + expand(row.expected, row.message, own));
    }

private Q_SLOTS:
    void cleanup() { log.take(); }

    void initTestCase()
    {
        QFile file(QFINDTESTDATA("data/roles.txt"));
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QStringList lines = QString::fromUtf8(file.readAll()).split(u'\n', Qt::SkipEmptyParts);
        for (const QString& line : lines) {
            const QString word = line.section(u' ', 0, 0);
            const QString rest = line.section(u' ', 1);
            if (word == "#"_l1) {
                exchanges << exchange_t{rest.section(u':', 0, 0), QString(), {}, QString(), {}};
                rules << rest;
            } else if (word == "master"_l1) {
                exchanges.last().master = rest;
            } else if (word == "before"_l1) {
                exchanges.last().before << rest;
            } else if (word == "message"_l1) {
                exchanges.last().message = rest;
            } else {
                exchanges.last().expected << line;
            }
        }
        QVERIFY(exchanges.size() > 60);
    }

    void message_data()
    {
        QTest::addColumn<int>("number");
        for (int i = 0; i < exchanges.size(); ++i) {
            QTest::newRow(qPrintable(rules[i])) << i;
        }
    }
    void message()
    {
        QFETCH(int, number);
        exchange_t row = exchanges[number];
        const bool bridge = row.role == "bridge"_l1 || row.role == "cloud"_l1;
        const QString master = bridge ? "tarnel-server-1"_s : row.master;
        if (row.role != "server"_l1) {
            const auto engine = makeClient(master);
            engine->setBridgeKey("key"_s);
            exchange(*engine, row, "panel"_s, "topic: "_s);
        }
        if (row.role == "cloud"_l1) {
            row.expected.clear();
        }
        if (row.role != "client"_l1) {
            const auto engine = makeServer(master);
            exchange(*engine, row, "srv"_s, "_topic: "_s);
        }
    }

    void emptyBridgeKey()
    {
        const auto panel = makeClient();
        events.clear();
        panel->setBridgeKey(QString());
        panel->on_message(5, "$SYS/x/clients//connected"_s, "1"_s, 1, 0, false);
        QCOMPARE(events.first(),
                 "2 setBridgeKey Unable to subrscibe/unsubscribe bridge because bridge_key is empty!"_s);
        QCOMPARE(events.last(), "emit onBridgeConnectionCloudEvent $SYS/x/clients//connected  1 true"_s);
        events.clear();
        panel->setBridgeKey("k"_s);
        panel->subscribe_bridge();
        panel->setStatusbroker(true);
        panel->subscribe_bridge();
        const auto asked = [this](const char* verb) { return events.filter(QRegularExpression(QLatin1String(verb))); };
        QCOMPARE(asked("^subscribe"), (QStringList{"subscribe $SYS/brokers/+/clients/k/connected 2"_s,
                                                   "subscribe $SYS/brokers/+/clients/k/disconnected 2"_s}));
        QCOMPARE(asked("^unsubscribe"), (QStringList{"unsubscribe $SYS/brokers/+/clients/k/connected"_s,
                                                     "unsubscribe $SYS/brokers/+/clients/k/disconnected"_s}));
    }

    // A client at an accepted and a refused connection, and when the link goes.
    void clientLink()
    {
        const auto engine = makeClient();
        const QString own = "panel"_s;
        events.clear();
        engine->on_connect_with_flags(5, 0);
        QCOMPARE(events, (QStringList{"2 on_connect_with_flags (5) Connection Refused: not authorised 127.0.0.1:1883"_s,
                                      "emit onBrokerConnection 5 0"_s}));
        events.clear();
        engine->on_connect_with_flags(0, 1);
        QStringList expected{"4 on_connect_with_flags (0) Connected to broker to 127.0.0.1:1883"_s};
        for (const char* const destination : {"all", "panel", "all_clients"}) {
            for (const char* const bridge : {"forward", "remote", "cloud"}) {
                expected << "subscribe %1-bridge/local/@installation_id/+/%2/connection/presentation 2"_s.arg(
                    QLatin1String(bridge), QLatin1String(destination));
            }
        }
        expected << "subscribe $SYS/broker/connection/# 2"_s << expand({"@present own_server"_s}, QString(), own)
                 << "emit onBrokerConnection 0 1"_s;
        QCOMPARE(withoutPresentations(events), expected);

        deliver(*engine, QLatin1String(srv));
        QCOMPARE(engine->getServerId(), "srv"_s);
        QCOMPARE(engine->placeholders["@idserver"_s], QStringList{"srv"_s});
        events.clear();
        engine->on_disconnect(7);
        QCOMPARE(events,
                 (QStringList{"2 on_disconnect (7) Disconnection lost connection 127.0.0.1:1883"_s,
                              "4 onDisconnect Clear server id and status"_s, "emit onBrokerDisconnection 7"_s}));
        QCOMPARE(engine->getServerId(), QString());
        QVERIFY(engine->system->getMasterData().isEmpty());
    }

    void serverLink()
    {
        const auto engine = makeServer(QString(), true);
        QVERIFY(engine->placeholders ==
                (QMap<QString, QList<QString>>{{"@clientid"_s, {"srv"_s}},
                                               {"@destination"_s, {"@clientid"_s, "all_servers"_s, "all"_s}},
                                               {"@sender"_s, {"+"_s}}}));
        const QStringList presence = QStringLiteral(R"(
6 onConnect_with_flags Subscribe presentation and my client for all other servers
6 subscription_presentation Try to subcription presentation: local/@installation_id/+/+/connection/presentation
subscribe +/local/@installation_id/+/own_server/connection/presentation 2
subscribe +/local/@installation_id/+/all/connection/presentation 2
subscribe +/local/@installation_id/+/all_servers/connection/presentation 2
subscribe +/local/@installation_id/+/srv/connection/presentation 2
6 subscription_presentation Try to subcription masterelection: local/@installation_id/+/+/master
subscribe +/local/@installation_id/+/+/master 2
subscribe local/@installation_id/+/+/master 2
subscribe $SYS/broker/connection/# 2)")
                                         .split(u'\n', Qt::SkipEmptyParts);
        const QString accepted = "4 on_connect_with_flags (0) Connected to broker to 127.0.0.1:1883"_s;
        const QStringList end{"emit onConnection"_s, "emit onBrokerConnection 0 0"_s};
        events.clear();
        engine->on_connect_with_flags(0, 0);
        QCOMPARE(withoutPresentations(events), QStringList{accepted}
                                                   << "4 onConnect_with_flags I'm default master"_s << presence
                                                   << "6 isMaster I'm master -srv-"_s << ::bridges("subscribe"_s)
                                                   << expand({"@present all"_s}, QString(), "srv"_s) << end);
        const auto follower = makeServer();
        events.clear();
        follower->on_connect_with_flags(0, 0);
        QCOMPARE(withoutPresentations(events), QStringList{accepted}
                                                   << "4 onConnect_with_flags Master is not assigned"_s << presence
                                                   << "4 isMaster Master is not set!"_s
                                                   << expand({"@present all"_s}, QString(), "srv"_s) << end);
        events.clear();
        follower->subscription_presentation(service_t::server, subscribe_t(0));
        QStringList dropped = presence.mid(1);
        dropped.replaceInStrings(QRegularExpression("^subscribe (.*) 2$"_s), "unsubscribe \\1"_s);
        QCOMPARE(events, dropped);
        follower->system->setMasterId("  "_s);
        events.clear();
        QVERIFY(!follower->isMaster());
        follower->subscription_presentation();
        follower->subscription_presentation(service_t("other"_s), subscribe_t(1));
        QCOMPARE(events, (QStringList{"4 isMaster Master is not set!"_s,
                                      "0 subscription_presentation Function not implemented"_s}));
    }

    // The record of a default master at its n-th connection; what lies deeper than eight levels is cut.
    void mastersOfAMaster()
    {
        const auto engine = makeServer(QString(), true);
        const auto levels = [&engine] {
            int count = 0;
            for (QJsonObject data = engine->system->getMasterData(); !data.isEmpty(); ++count) {
                data = data["masterData"_s].toObject();
            }
            return count;
        };
        for (int connection = 1; connection < 20; ++connection) {
            engine->on_connect_with_flags(0, 0);
            QCOMPARE(levels(), std::min(connection, 8));
            engine->on_disconnect(7);
        }
    }

    // A host may hold the records of a link that was lost.
    void clientsOfALostLink()
    {
        const auto engine = makeServer();
        deliver(*engine, QLatin1String(panel));
        const auto clients = engine->getClients();
        QCOMPARE(clients.keys(), QStringList{"pan"_s});
        deliver(*engine, QLatin1String(two));
        events.clear();
        engine->on_disconnect(0);
        QCOMPARE(events[1], "4 onDisconnect Clear all client"_s);
        QVERIFY(engine->getClients().isEmpty());
        QCOMPARE(clients["pan"_s]->getClientid(), "pan"_s);
        QCOMPARE(engine->system->getMasterId(), "two"_s);
        events.clear();
        deliver(*engine, QLatin1String(two)); // servers are remembered
        QVERIFY(events.contains(
            QString("4 processPresentation Ignored same message as last: "_l1 + topicOf(QLatin1String(two)))));
    }

    // Ready is said once, when the broker has confirmed the status topic of this client or of all.
    void ready_data()
    {
        QTest::addColumn<QString>("topic");
        QTest::addColumn<bool>("isStatus");
        QTest::newRow("all") << "local/1234/srv/all/status/#"_s << true;
        QTest::newRow("this client") << "forward-bridge/local/1234/srv/panel/status/#"_s << true;
        QTest::newRow("another client") << "local/1234/srv/pane/status/#"_s << false;
        QTest::newRow("further levels") << "local/1234/srv/all/status/#/x"_s << false;
        QTest::newRow("notification") << "local/1234/srv/all/notification/#"_s << false;
        QTest::newRow("nothing before") << "/all/status/#"_s << false;
        QTest::newRow("unknown mid") << QString() << false;
    }
    void ready()
    {
        QFETCH(QString, topic);
        QFETCH(bool, isStatus);
        const auto engine = makeClient("srv"_s);
        const QString said =
            "6 publish Try to publish topic: forward-bridge/local/1234/panel/srv/command/client/ready qos: 2 retain: 0"_s;
        events.clear();
        engine->onSubscribe(1, 0, nullptr, topic);
        engine->onSubscribe(1, 0, nullptr, topic);
        QCOMPARE(events.count(said), isStatus ? 1 : 0);
        engine->onUnsubscribe(1, topic); // never one level only
        QCOMPARE(events.count(said), isStatus ? 1 : 0);
        engine->onUnsubscribe(1, "srv/panel/status/#"_s);
        QCOMPARE(events.count(said), isStatus ? 2 : 0);
        engine->onSubscribe(1, 0, nullptr, topic);
        QCOMPARE(events.count(said), isStatus ? 3 : 0);
        engine->subscription_presentation(); // readiness starts again with each link
        engine->onSubscribe(1, 0, nullptr, topic);
        QCOMPARE(events.count(said), isStatus ? 4 : 0);
    }

    void clientPublish()
    {
        const auto engine = makeClient();
        const QJsonObject packet{{"topic"_s, "request/DB/realtime"_s}, {"payload"_s, 1}};
        events.clear();
        engine->publish(packet);
        QCOMPARE(events, (QStringList{"3 publish No master id"_s, "emit onMasterIdError "_l1 + probe::textOf(packet)}));
        engine->system->setMasterId("srv"_s);
        events.clear();
        engine->publish(packet);
        QCOMPARE(
            events[0],
            "6 publish Try to publish topic: forward-bridge/local/1234/panel/srv/request/DB/realtime qos: 2 retain: 0"_s);
    }

    // A host may delete the engine in any slot of its own; the sanitizers watch what is touched afterwards.
    void deletedInItsSignals()
    {
        int deleted = 0;
        const auto after = [&](auto engine, auto signal, auto stimulus) {
            auto* const raw = engine.release();
            QObject::connect(raw, signal, this, [raw, &deleted] {
                delete raw;
                ++deleted;
            });
            stimulus(*raw);
        };
        const auto message = [](const char* text) {
            return [text](auto& engine) { deliver(engine, QLatin1String(text)); };
        };
        const auto bridge = [](auto& engine) {
            engine.on_message(1, "$SYS/broker/connection/x-y-1-2/state"_s, "0"_s, 1, 0, false);
        };
        const auto accepted = [](auto& engine) { engine.on_connect_with_flags(0, 0); };
        const auto lost = [](auto& engine) { engine.on_disconnect(7); };
        const QString one = "tarnel-server-1"_s;
        after(makeClient(), &protobase_t::onBrokerConnection, accepted);
        after(makeClient(), &protobase_t::onBrokerDisconnection, lost);
        after(makeClient(), &protobase_t::onBridgeConnectionEvent, bridge);
        after(makeClient(one), &protobase_t::onMasterBridgeError, bridge);
        after(makeClient(), &protobase_t::onMasterIdError, [](auto& engine) { engine.publish(QJsonObject()); });
        after(makeClient(), &protobase_t::on_Presentation, message(srv));
        after(makeClient("srv"_s), &protobase_t::on_Presentation,
              message("forward-bridge/local/1234/srv/all/connection/presentation -srv server srv"));
        after(makeClient(), &protobase_t::onDatabasePersistentStatus,
              message("local/1234/s/all/status/DB/persistent {}"));
        after(makeClient(), &protobase_t::on_Unknown, message("local/1234/s/all/unknown {}"));
        after(makeClient(), &protobase_t::onBridgeConnectionCloudEvent,
              [](auto& engine) { engine.on_message(1, "$SYS/clients//connected"_s, QString(), 0, 0, false); });
        after(makeServer(), &protoserver_t::onConnection, accepted);
        after(makeServer(), &protobase_t::onBrokerDisconnection, lost);
        after(makeServer(), &protobase_t::onBridgeConnectionEvent, bridge);
        after(makeServer(one), &protobase_t::onMasterBridgeError, bridge);
        after(makeServer("srv"_s), &protobase_t::on_Presentation, message(panel));
        after(makeServer("srv"_s), &protobase_t::on_Presentation,
              message("local/1234/pan/own_server/connection/presentation -pan client"));
        after(makeServer("two"_s), &protobase_t::on_Presentation,
              message("remote-bridge/local/1234/two/srv/connection/presentation +two server srv"));
        after(makeServer("srv"_s), &protobase_t::on_Presentation,
              message("remote-bridge/local/1234/two/all/connection/presentation -two server srv"));
        after(makeServer(), &protoserver_t::onRequestCmd, message("local/1234/s/srv/request/DB/command {}"));
        after(makeServer(), &protoserver_t::onClientReady, message("local/1234/s/srv/command/client/ready '1'"));
        after(makeServer(), &protobase_t::on_Unknown, message("local/1234/s/all/unknown {}"));
        QCOMPARE(deleted, 21);
    }
};

QTEST_GUILESS_MAIN(unit_roles)
#include "unit_roles.moc"
