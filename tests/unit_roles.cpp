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

struct exchange_t {
    const char* rule;
    const char* master;   // known before
    const char* before;   // messages that came before, a line each
    const char* message;  // topic, blank, what stands under "d"
    const char* expected; // what follows, a line each; see expand()
};

const QString presentationOf = QStringLiteral("forward-bridge/local/@installation_id/%1/%2/connection/presentation");

// "+id type master" and "-id type master" are presentations of a node that is there and that is gone; everything
// else is JSON with ' for ".
QString payloadOf(QString text)
{
    if (text.startsWith(u'+') || text.startsWith(u'-')) {
        const QStringList words = text.mid(1).split(u' ');
        return probe::textOf(QJsonObject{{QStringLiteral("clientid"), words[0]},
                                         {QStringLiteral("type"), words[1]},
                                         {QStringLiteral("masterid"), words.value(2)},
                                         {QStringLiteral("connected"), text.startsWith(u'+')}});
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
    engine.on_message(5, topicOf(message), payload.isEmpty() ? payload : "{\"d\":"_l1 + payload + u'}', 0, 2, false);
}

// What a client says and asks for when it sets up or drops the topics of a master.
QStringList clientSubscriptions(const QString& verb, const QString& server)
{
    const bool on = verb == "subscribe"_l1;
    const QString qos = on ? QStringLiteral(" 2") : QString();
    const QString base = QStringLiteral("local/@installation_id/@sender/@destination/");
    const auto banner = [](const char* word) {
        return QString("4 init_subscription -----------------------------"_l1 + QLatin1String(word) +
                       "-----------------------------"_l1);
    };
    QStringList list{QStringLiteral("4 init_subscription Init subscription client"), banner("PRESENTATION"),
                     banner("MASTER")};
    for (const char* const bridge : {"forward-bridge/", "remote-bridge/", "cloud-bridge/"}) {
        list << verb + u' ' + QLatin1String(bridge) + "local/@installation_id/"_l1 + server + "/all_clients/master"_l1 +
                    qos;
    }
    list << banner("ALL BASE") << QStringLiteral("4 init_subscription Init subscriptions ")
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
QStringList expand(const char* expected, const QString& message, const QString& own)
{
    QStringList list;
    const QStringList lines = QString::fromUtf8(expected).split(u'\n', Qt::SkipEmptyParts);
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
    static const QRegularExpression payload(QStringLiteral("^(publish \\S+/presentation) \\{.*\\} 2 0$"));
    return events.replaceInStrings(payload, QStringLiteral("\\1"));
}

const char* const srv = "forward-bridge/local/1234/srv/all/connection/presentation +srv server srv";

const exchange_t clientExchanges[] = {
    {"a master appears", "", "", srv, R"(
P 4 Receive presentation srv from server is ONLINE - $T
P 4 My master is online: srv
4 init_subscription Init subscription client
4 init_subscription No init subscription because server id is null
P 4 Add/Update backup my server presentation
@client subscribe srv
emit on_Presentation srv all true $P
@present srv
P 4 Servers connected: 1
P 4 0. server: srv)"},
    {"a second master takes the place of the first, addressed to this client: no answer", "srv", srv,
     "remote-bridge/local/1234/two/panel/connection/presentation +two server two", R"(
P 4 Receive presentation two from server is ONLINE - $T
P 4 My master is online: two
@client unsubscribe srv
P 4 Add/Update backup my server presentation
@client subscribe two
emit on_Presentation two panel true $P
P 4 Servers connected: 2
P 4 0. server: srv
P 4 1. server: two)"},
    {"the master again: answered, not adopted again", "srv", srv, srv, R"(
P 4 Receive presentation srv from server is ONLINE - $T
@present srv
P 4 Servers connected: 1
P 4 0. server: srv)"},
    {"a server that follows another is known, never adopted", "", "",
     "forward-bridge/local/1234/two/all/connection/presentation +two server srv", R"(
P 4 Receive presentation two from server is ONLINE - $T
@present two
P 4 Servers connected: 1
P 4 0. server: two)"},
    {"a server without a master is not adopted", "", "", "local/1234/two/panel/connection/presentation +two server", R"(
P 4 Receive presentation two from server is ONLINE - $T
P 4 Servers connected: 1
P 4 0. server: two)"},
    {"last will of the master", "srv", srv, "forward-bridge/local/1234/srv/all/connection/presentation -srv server srv",
     R"(
P 4 Receive last will - The server is OFFLINE id: srv
@client unsubscribe srv
emit on_Presentation srv all false $P
P 4 Servers connected: 0)"},
    {"last will of another server", "srv", "local/1234/two/panel/connection/presentation +two server srv",
     "local/1234/two/all/connection/presentation -two server srv", R"(
P 4 Receive last will - The server is OFFLINE id: two
P 4 Servers connected: 0)"},
    {"another client", "srv", "", "local/1234/other/all/connection/presentation +other client srv", R"(
P 2 Anomaly, the client should not receive messages presentation from another client $T)"},
    {"a node of no role", "srv", "", "local/1234/x/all/connection/presentation +x robot srv", R"(
P 2 non-compliant type (no client - no server) :robot
3 onMessage Message unknown: $T
emit on_Unknown $T $P 2 false)"},
    {"sender and client id differ", "srv", "", "local/1234/x/all/connection/presentation +y server srv", R"(
P 3 Internal error not complient packet for y)"},
    {"no type", "", "", "local/1234/x/all/connection/presentation {'clientid':'x','connected':true}", R"(
P 3 Internal error not complient packet for x)"},
    {"no connected", "", "", "local/1234/x/all/connection/presentation {'clientid':'x','type':'server'}", R"(
P 3 Internal error not complient packet for x)"},
    {"no client id", "", "", "local/1234/x/all/connection/presentation {'connected':true,'type':'server'}", R"(
P 3 Internal error not complient packet for )"},
    {"no object", "", "", "local/1234/x/all/connection/presentation 5", R"(
P 3 Internal error not complient packet for )"},
    {"presentation below its topic", "", "", "local/1234/x/all/connection/presentation/x 'a'", R"(
3 onMessage Message unknown: $T
emit on_Unknown $T "a" 2 false)"},
    {"election names the master", "srv", srv, "forward-bridge/local/1234/srv/all_clients/master {'masterid':'srv'}",
     "@client unsubscribe srv"},
    {"election names another", "srv", "", "local/1234/two/all_clients/master {'masterid':'two'}", R"(
4 processMasterElection Ignore my master is srv)"},
    {"election without a name", "srv", "", "local/1234/two/all_clients/master {'master':'srv'}", R"(
2 processMasterElection Master id is void)"},
    {"persistent status", "", "", "cloud-bridge/local/1234/srv/panel/status/DB/persistent/1/a {'n':1,'topic':2}", R"(
4 processStatusDB Status Message
emit onDatabasePersistentStatus {"destination":"panel","n":1,"sender":"srv","topic":"status/DB/persistent/1/a"})"},
    {"realtime status without an object", "", "", "local/1234/srv/all/status/DB/realtime 5", R"(
4 processStatusDB Status Message
emit onDatabaseRealtimeStatus {"destination":"all","sender":"srv","topic":"status/DB/realtime"})"},
    {"presence simulation, a sender called status", "", "", "local/1234/mystatus/all/status/DB/presencesimulationX {}",
     R"(
4 processStatusDB Status Message
emit onDatabasePresenceSimulationStatus {"destination":"all","sender":"mystatus","topic":"status/all/status/DB/presencesimulationX"})"},
    {"command has no status", "", "", "local/1234/srv/all/status/DB/command {'a':1}", R"(
3 onMessage Message unknown: $T
emit on_Unknown $T {"a":1} 2 false)"},
    {"a number", "", "", "local/1234/srv/all/notification 5", R"(
3 onMessage Message unknown: $T
emit on_Unknown $T 5 2 false)"},
    {"no payload", "", "", "local/1234/srv/all/notification ", R"(
3 onMessage Message unknown: $T
emit on_Unknown $T undefined 2 false)"},
};

const char* const two = "remote-bridge/local/1234/two/all/connection/presentation +two server two";
const char* const panel = "forward-bridge/local/1234/pan/own_server/connection/presentation +pan client";

const exchange_t serverExchanges[] = {
    {"a master appears over the remote bridge", "", "", two, R"(
P 4 Receive presentation two server is ONLINE - $T
P 6 Add/Update server presentation
P 4 Update masterid
@bridges subscribe
4 isMaster Master id is -two-
P 4 Server known: 1
P 4 0. two - master id-two-)"},
    {"it names this server as master", "two", "",
     "remote-bridge/local/1234/two/srv/connection/presentation +two server srv", R"(
P 4 Receive presentation two server is ONLINE - $T
P 6 Add/Update server presentation
P 4 Update masterid
@bridges subscribe
6 isMaster I'm master -srv-
@present all
emit on_Presentation two srv true $P
P 4 Server known: 1
P 4 0. two - master id-srv-)"},
    {"it has the same master", "srv", "", "remote-bridge/local/1234/two/all/connection/presentation +two server srv",
     R"(
P 4 Receive presentation two server is ONLINE - $T
P 6 Add/Update server presentation
@present all_servers
P 4 Server known: 1
P 4 0. two - master id-srv-)"},
    {"it has none", "srv", "", "remote-bridge/local/1234/two/all/connection/presentation +two server", R"(
P 4 Receive presentation two server is ONLINE - $T
P 6 Add/Update server presentation
@present all_servers
P 4 Server known: 1
P 4 0. two - master id--)"},
    {"it says nothing new", "", two, two, "P 4 Ignored same message as last: $T"},
    {"on this broker", "", "", "forward-bridge/local/1234/two/all/connection/presentation +two server two",
     "P 2 Many server on same broker: $T"},
    {"from this broker, gone", "", "", "forward-bridge/local/1234/two/all/connection/presentation -two server two",
     "P 2 Many server on same broker:$T"},
    {"on the cloud", "", "", "cloud-bridge/local/1234/two/all/connection/presentation +two server two",
     "P 2 Run server on cloud broker:$T"},
    {"from the other cloud, gone", "", "",
     "other-cloud-bridge/local/1234/two/all/connection/presentation -two server two",
     "P 2 Run server on cloud broker:$T"},
    {"without an origin", "", "", "local/1234/two/all/connection/presentation +two server two",
     "P 2 Presentation from another server non-compliant:$T"},
    {"without an origin, gone", "", "", "/local/1234/two/all/connection/presentation -two server two",
     "P 2 Presentation from another server non-compliant:$T"},
    {"last will of the master: its id is kept", "srv", two,
     "remote-bridge/local/1234/two/all/connection/presentation -two server srv", R"(
P 4 Receive last will from two server is OFFLINE
4 isMaster Master id is -two-
P 4 Server known: 0)"},
    {"last will of an unknown server, this is the master", "srv", "",
     "remote-bridge/local/1234/two/all/connection/presentation -two server srv", R"(
P 4 Receive last will from two server is OFFLINE
6 isMaster I'm master -srv-
P 6 E' master allora aggiorno il payload
emit on_Presentation two all false $P
P 4 Server known: 0)"},
    {"a client, this is the master", "srv", "", panel, R"(
P 4 Receive presentation from local: pan client is ONLINE $T
P 6 Add/Update client presentation
@present pan
6 isMaster I'm master -srv-
emit on_Presentation pan own_server true $P
P 4 Client connected: 1
P 4 0. pan)"},
    {"the same client again, addressed to this server: no answer", "srv", panel,
     "forward-bridge/local/1234/pan/srv/connection/presentation +pan client", R"(
P 4 Receive presentation from local: pan client is ONLINE $T
P 6 Add/Update client presentation
6 isMaster I'm master -srv-
emit on_Presentation pan srv true $P
P 4 Client connected: 1
P 4 0. pan)"},
    {"a client, no master: the host hears nothing", "", "", panel, R"(
P 4 Receive presentation from local: pan client is ONLINE $T
P 6 Add/Update client presentation
@present pan
4 isMaster Master is not set!
P 4 Client connected: 1
P 4 0. pan)"},
    {"last will of a client", "srv", panel, "local/1234/pan/own_server/connection/presentation -pan client", R"(
P 4 Receive last will from pan client is OFFLINE
P 6 Remove client presentation
6 isMaster I'm master -srv-
emit on_Presentation pan own_server false $P
P 4 Client connected: 0)"},
    {"sender and client id differ: forgotten and answered", "srv", panel,
     "local/1234/pan/all/connection/presentation +other client", R"(
P 2 Internal error not complient packet from: pan
@present pan
P 4 Client connected: 0)"},
    {"no object", "", "", "local/1234/x/all/connection/presentation [1]", R"(
P 2 Internal error not complient packet from: x
@present x
P 4 Client connected: 0)"},
    {"a node of no role", "", "", "local/1234/x/all/connection/presentation +x robot", R"(
P 2 non-compliant type (no client - no server) from: x)"},
    {"election names nobody", "", "", "local/1234/two/all/master {'master':1}",
     "2 processMasterElection Master id is void"},
    {"election names the same", "two", "", "local/1234/two/all/master {'masterid':'two'}", R"(
3 processMasterElection Master election two - two
4 processMasterElection Ignore same masterid: two)"},
    {"first election", "", "", "remote-bridge/local/1234/two/all/master {'masterid':'two'}", R"(
3 processMasterElection Master election  - two
4 processMasterElection New masterid: two old: 
4 isMaster Master id is -two-)"},
    {"the role moves on between others", "two", "", "local/1234/two/all/master {'masterid':'six'}", R"(
3 processMasterElection Master election two - six
4 processMasterElection New masterid: six old: two
4 isMaster Master id is -six-
4 processMasterElection Unsubscribe all message from client and bridge old master: -two-
@bridges unsubscribe)"},
    {"the master loses the role", "srv", "", "local/1234/two/all/master {'masterid':'two'}", R"(
3 processMasterElection Master election srv - two
4 processMasterElection New masterid: two old: srv
4 publish_undomaster I advise only client who are no longer the master
6 publish_undomaster forward-bridge/local/@installation_id/srv/all_clients/master
publish forward-bridge/local/@installation_id/srv/all_clients/master {"masterid":"srv"} 2 0
4 isMaster Master id is -two-
4 processMasterElection Unsubscribe all message from client and bridge old master: -srv-
@bridges unsubscribe)"},
    {"this server gets the role", "two", "", "local/1234/two/all/master {'masterid':'srv'}", R"(
3 processMasterElection Master election two - srv
4 processMasterElection New masterid: srv old: two
6 isMaster I'm master -srv-
@bridges subscribe
3 processMasterElection Publish that i'm a master
@present all)"},
    {"persistent request", "", "", "forward-bridge/local/1234/pan/srv/request/DB/persistent/1 {'n':1}", R"(
6 processRequestDB Request Message for Database Persistent 
6 processRequestDB Request Message request/DB/persistent/1
6 processRequestDB Payload 
emit onRequestPersistentRequest {"destination":"srv","n":1,"sender":"pan","topic":"request/DB/persistent/1"})"},
    {"realtime request", "", "", "local/1234/pan/srv/request/DB/realtime {'sender':'x'}", R"(
6 processRequestDB Request Message for Database Realtime 
6 processRequestDB Request Message request/DB/realtime
6 processRequestDB Payload 
emit onRequestRealtimeRequest {"destination":"srv","sender":"pan","topic":"request/DB/realtime"})"},
    {"presence simulation request of a text", "", "", "local/1234/pan/srv/request/DB/presencesimulation 'on'", R"(
6 processRequestDB Request Message for Database Presence simulation 
6 processRequestDB Request Message request/DB/presencesimulation
6 processRequestDB Payload on
emit onRequestPresenceSimulationRequest {"destination":"srv","sender":"pan","topic":"request/DB/presencesimulation"})"},
    {"command, a sender called request", "", "", "local/1234/request/srv/request/DB/command {}", R"(
6 processRequestDB Request Message for Database command 
6 processRequestDB Request Message request/srv/request/DB/command
6 processRequestDB Payload 
emit onRequestCmd {"destination":"srv","sender":"request","topic":"request/srv/request/DB/command"})"},
    {"client ready", "", "", "forward-bridge/local/1234/pan/srv/command/client/ready '1'", R"(
4 processClientReady Client ready message
emit onClientReady {"destination":"srv","payload":"1","sender":"pan","topic":"$T"})"},
    {"status is not for servers", "", "", "local/1234/two/all/status/DB/realtime {}", R"(
3 onMessage Message unknown: $T
emit on_Unknown $T {} 2 false)"},
};

struct bridge_row_t {
    const char* rule;
    const char* topic;
    const char* payload;
    const char* client; // what a client says, then what a server says where it differs
    const char* server = nullptr;
};

const bridge_row_t bridgeRows[] = {
    {"short name up", "$SYS/broker/connection/a-b/state", "1", R"(
emit onBridgeConnectionEvent $T a-b 1
3 onChangeStausBroker Bridging a-b is UP)"},
    {"short name down", "$SYS/broker/connection/a-b/state", "0", R"(
emit onBridgeConnectionEvent $T a-b 0
3 onChangeStausBroker Bridging a-bis DOWN)"},
    {"between others", "$SYS/broker/connection/x-y-2-3/state", "0", R"(
emit onBridgeConnectionEvent $T x-y-2-3 0
3 onChangeStausBroker Bridging with server: 2 to 3 is DOWN)"},
    {"from the master", "$SYS/broker/connection/x-y-1-3-z/state", "0", R"(
emit onBridgeConnectionEvent $T x-y-1-3-z 0
3 onChangeStausBroker Bridging with server: 1 to 3 is DOWN
3 onChangeStausBroker Comunication that bridging with server: 1 to 3 is DOWN
emit onMasterBridgeError)"},
    {"to the master", "$SYS/broker/connection/x-y-3-1/state", "0", R"(
emit onBridgeConnectionEvent $T x-y-3-1 0
3 onChangeStausBroker Bridging with server: 3 to 1 is DOWN
3 onChangeStausBroker Comunication that bridging with server: 3 to 1 is DOWN
emit onMasterBridgeError)"},
    {"to the master, up", "$SYS/broker/connection/x-y-3-1/state", "1", R"(
emit onBridgeConnectionEvent $T x-y-3-1 1
3 onChangeStausBroker Bridging with server: 3 to 1 is UP)"},
    {"to the master, neither up nor down", "$SYS/broker/connection/x-y-3-1/state", "2", R"(
emit onBridgeConnectionEvent $T x-y-3-1 2
3 onChangeStausBroker Bridging with server: 3 to 1 is DOWN)"},
    {"no name", "$SYS/broker/connection/", "1", R"(
emit onBridgeConnectionEvent $T  1
3 onChangeStausBroker Bridging  is UP)"},
    {"cloud bridge up", "$SYS/brokers/x/clients/key/connected", "t", R"(
emit onBridgeConnectionCloudEvent $T key t true)",
     ""},
    {"cloud bridge down", "$SYS/brokers/x/clients/key/disconnected", "t", R"(
emit onBridgeConnectionCloudEvent $T key t false)",
     ""},
    {"another cloud bridge", "$SYS/brokers/x/clients/keys/connected", "t", ""},
    {"other letters", "$sys/broker/connection/a-b/state", "1", ""},
    {"statistics", "$SYS/broker/uptime", "1", ""},
};

} // namespace

class unit_roles : public QObject {
    Q_OBJECT

    using client_t = probe_t<protoclient_t>;
    using server_t = probe_t<protoserver_t>;

    QStringList events;
    const QJsonObject configuration{
        {QStringLiteral("mqtt"), QJsonObject{{QStringLiteral("global"), QJsonObject{{QStringLiteral("installation_id"),
                                                                                     QStringLiteral("1234")}}}}}};

    std::unique_ptr<client_t> makeClient(const QString& master = QString())
    {
        auto engine =
            std::make_unique<client_t>(events, QStringLiteral("1"), configuration, QStringLiteral("panel"), false);
        engine->system->setMasterId(master);
        return engine;
    }
    std::unique_ptr<server_t> makeServer(const QString& master = QString(), bool defaultMaster = false)
    {
        auto engine = std::make_unique<server_t>(events, QStringLiteral("1"), configuration, defaultMaster,
                                                 QStringLiteral("srv"), false);
        engine->system->setMasterId(master);
        return engine;
    }

    template <std::size_t Count>
    static void addRows(const exchange_t (&exchanges)[Count])
    {
        QTest::addColumn<int>("number");
        for (int i = 0; i < int(Count); ++i) {
            QTest::newRow(exchanges[i].rule) << i;
        }
    }

    template <class Engine>
    void exchange(Engine& engine, const exchange_t& row, const QString& own, const QString& word)
    {
        const QStringList before = QString::fromUtf8(row.before).split(u'\n', Qt::SkipEmptyParts);
        for (const QString& message : before) {
            deliver(engine, message);
        }
        events.clear();
        const QString message = QString::fromUtf8(row.message);
        deliver(engine, message);
        const QString rest = topicOf(message) + " qos: 2 retain: 0"_l1;
        QStringList expected{"6 on_message Recieve message => mid: 5 topic: "_l1 + rest,
                             "4 on_message Recieve message topic: "_l1 + topicOf(message),
                             "6 onMessage Processing message => mid: 5 "_l1 + word + rest};
        expected << expand(row.expected, message, own);
        QCOMPARE(withoutPresentations(events), expected);
    }

private Q_SLOTS:
    void init()
    {
        auto* const logs = ::utility::logs::classlogs::getInstance();
        logs->setLevel(6);
        logs->setSink([this](const ::utility::logs::LogRecord& record) { events << log_recorder_t::textOf(record); });
    }
    void cleanup()
    {
        ::utility::logs::classlogs::getInstance()->setSink({});
        ::utility::logs::classlogs::getInstance()->setLevel(4);
        events.clear();
    }

    void client_data() { addRows(clientExchanges); }
    void client()
    {
        QFETCH(int, number);
        const exchange_t& row = clientExchanges[number];
        const auto engine = makeClient(QString::fromUtf8(row.master));
        exchange(*engine, row, QStringLiteral("panel"), QStringLiteral("topic: "));
    }

    void server_data() { addRows(serverExchanges); }
    void server()
    {
        QFETCH(int, number);
        const exchange_t& row = serverExchanges[number];
        const auto engine = makeServer(QString::fromUtf8(row.master));
        exchange(*engine, row, QStringLiteral("srv"), QStringLiteral("_topic: "));
    }

    void bridges_data()
    {
        QTest::addColumn<int>("number");
        for (int i = 0; i < int(std::size(bridgeRows)); ++i) {
            QTest::newRow(bridgeRows[i].rule) << i;
        }
    }
    void bridges()
    {
        QFETCH(int, number);
        const bridge_row_t& bridge = bridgeRows[number];
        const QString topic = QString::fromUtf8(bridge.topic);
        const QString payload = QString::fromUtf8(bridge.payload);
        const QStringList head{"6 on_message Recieve message => mid: 5 topic: "_l1 + topic + " qos: 1 retain: 1"_l1,
                               "6 on_message $SYS message "_l1 + topic};
        const auto panel = makeClient(QStringLiteral("tarnel-server-1"));
        panel->setBridgeKey(QStringLiteral("key"));
        events.clear();
        panel->on_message(5, topic, payload, payload.size(), 1, true);
        QCOMPARE(events, head + expand(bridge.client, topic, QString()));
        const auto server = makeServer(QStringLiteral("tarnel-server-1"));
        events.clear();
        server->on_message(5, topic, payload, payload.size(), 1, true);
        QCOMPARE(events, head + expand(bridge.server != nullptr ? bridge.server : bridge.client, topic, QString()));
    }

    void emptyBridgeKey()
    {
        const auto panel = makeClient();
        events.clear();
        panel->setBridgeKey(QString());
        panel->on_message(5, QStringLiteral("$SYS/x/clients//connected"), QStringLiteral("1"), 1, 0, false);
        QCOMPARE(events.first(),
                 QStringLiteral("2 setBridgeKey Unable to subrscibe/unsubscribe bridge because bridge_key is empty!"));
        QCOMPARE(events.last(), QStringLiteral("emit onBridgeConnectionCloudEvent $SYS/x/clients//connected  1 true"));
        events.clear();
        panel->setBridgeKey(QStringLiteral("k"));
        panel->subscribe_bridge();
        panel->setStatusbroker(true);
        panel->subscribe_bridge();
        const auto asked = [this](const char* verb) { return events.filter(QRegularExpression(QLatin1String(verb))); };
        QCOMPARE(asked("^subscribe"),
                 (QStringList{QStringLiteral("subscribe $SYS/brokers/+/clients/k/connected 2"),
                              QStringLiteral("subscribe $SYS/brokers/+/clients/k/disconnected 2")}));
        QCOMPARE(asked("^unsubscribe"),
                 (QStringList{QStringLiteral("unsubscribe $SYS/brokers/+/clients/k/connected"),
                              QStringLiteral("unsubscribe $SYS/brokers/+/clients/k/disconnected")}));
    }

    // A client at an accepted and a refused connection, and when the link goes.
    void clientLink()
    {
        const auto engine = makeClient();
        const QString own = QStringLiteral("panel");
        events.clear();
        engine->on_connect_with_flags(5, 0);
        QCOMPARE(events, (QStringList{QStringLiteral("2 on_connect_with_flags (5) Connection Refused: not authorised "
                                                     "127.0.0.1:1883"),
                                      QStringLiteral("emit onBrokerConnection 5 0")}));
        events.clear();
        engine->on_connect_with_flags(0, 1);
        QStringList expected{QStringLiteral("4 on_connect_with_flags (0) Connected to broker to 127.0.0.1:1883")};
        for (const char* const destination : {"all", "panel", "all_clients"}) {
            for (const char* const bridge : {"forward", "remote", "cloud"}) {
                expected << QStringLiteral("subscribe %1-bridge/local/@installation_id/+/%2/connection/presentation 2")
                                .arg(QLatin1String(bridge), QLatin1String(destination));
            }
        }
        expected << QStringLiteral("subscribe $SYS/broker/connection/# 2")
                 << expand("@present own_server", QString(), own) << QStringLiteral("emit onBrokerConnection 0 1");
        QCOMPARE(withoutPresentations(events), expected);

        deliver(*engine, QLatin1String(srv));
        QCOMPARE(engine->getServerId(), QStringLiteral("srv"));
        QCOMPARE(engine->placeholders[QStringLiteral("@idserver")], QStringList{QStringLiteral("srv")});
        events.clear();
        engine->on_disconnect(7);
        QCOMPARE(events,
                 (QStringList{QStringLiteral("2 on_disconnect (7) Disconnection lost connection 127.0.0.1:1883"),
                              QStringLiteral("4 onDisconnect Clear server id and status"),
                              QStringLiteral("emit onBrokerDisconnection 7")}));
        QCOMPARE(engine->getServerId(), QString());
        QVERIFY(engine->system->getMasterData().isEmpty());
    }

    void serverLink()
    {
        const auto engine = makeServer(QString(), true);
        QVERIFY(engine->placeholders ==
                (QMap<QString, QList<QString>>{
                    {QStringLiteral("@clientid"), {QStringLiteral("srv")}},
                    {QStringLiteral("@destination"),
                     {QStringLiteral("@clientid"), QStringLiteral("all_servers"), QStringLiteral("all")}},
                    {QStringLiteral("@sender"), {QStringLiteral("+")}}}));
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
        const QString accepted = QStringLiteral("4 on_connect_with_flags (0) Connected to broker to 127.0.0.1:1883");
        const QStringList end{QStringLiteral("emit onConnection"), QStringLiteral("emit onBrokerConnection 0 0")};
        events.clear();
        engine->on_connect_with_flags(0, 0);
        QCOMPARE(withoutPresentations(events), QStringList{accepted}
                                                   << QStringLiteral("4 onConnect_with_flags I'm default master")
                                                   << presence << QStringLiteral("6 isMaster I'm master -srv-")
                                                   << ::bridges(QStringLiteral("subscribe"))
                                                   << expand("@present all", QString(), QStringLiteral("srv")) << end);
        const auto follower = makeServer();
        events.clear();
        follower->on_connect_with_flags(0, 0);
        QCOMPARE(withoutPresentations(events), QStringList{accepted}
                                                   << QStringLiteral("4 onConnect_with_flags Master is not assigned")
                                                   << presence << QStringLiteral("4 isMaster Master is not set!")
                                                   << expand("@present all", QString(), QStringLiteral("srv")) << end);
        events.clear();
        follower->subscription_presentation(service_t::server, subscribe_t(0));
        QStringList dropped = presence.mid(1);
        dropped.replaceInStrings(QRegularExpression(QStringLiteral("^subscribe (.*) 2$")),
                                 QStringLiteral("unsubscribe \\1"));
        QCOMPARE(events, dropped);
        follower->system->setMasterId(QStringLiteral("  "));
        events.clear();
        QVERIFY(!follower->isMaster());
        follower->subscription_presentation();
        follower->subscription_presentation(service_t(QStringLiteral("other")), subscribe_t(1));
        QCOMPARE(events, (QStringList{QStringLiteral("4 isMaster Master is not set!"),
                                      QStringLiteral("0 subscription_presentation Function not implemented")}));
    }

    // The record of a default master at its n-th connection; what lies deeper than eight levels is cut.
    void mastersOfAMaster()
    {
        const auto engine = makeServer(QString(), true);
        const auto levels = [&engine] {
            int count = 0;
            for (QJsonObject data = engine->system->getMasterData(); !data.isEmpty(); ++count) {
                data = data[QStringLiteral("masterData")].toObject();
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
        QCOMPARE(clients.keys(), QStringList{QStringLiteral("pan")});
        deliver(*engine, QLatin1String(two));
        events.clear();
        engine->on_disconnect(0);
        QCOMPARE(events[1], QStringLiteral("4 onDisconnect Clear all client"));
        QVERIFY(engine->getClients().isEmpty());
        QCOMPARE(clients[QStringLiteral("pan")]->getClientid(), QStringLiteral("pan"));
        QCOMPARE(engine->system->getMasterId(), QStringLiteral("two"));
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
        QTest::newRow("all") << QStringLiteral("local/1234/srv/all/status/#") << true;
        QTest::newRow("this client") << QStringLiteral("forward-bridge/local/1234/srv/panel/status/#") << true;
        QTest::newRow("another client") << QStringLiteral("local/1234/srv/pane/status/#") << false;
        QTest::newRow("further levels") << QStringLiteral("local/1234/srv/all/status/#/x") << false;
        QTest::newRow("notification") << QStringLiteral("local/1234/srv/all/notification/#") << false;
        QTest::newRow("nothing before") << QStringLiteral("/all/status/#") << false;
        QTest::newRow("unknown mid") << QString() << false;
    }
    void ready()
    {
        QFETCH(QString, topic);
        QFETCH(bool, isStatus);
        const auto engine = makeClient(QStringLiteral("srv"));
        const QString said =
            QStringLiteral("6 publish Try to publish topic: forward-bridge/local/1234/panel/srv/command/"
                           "client/ready qos: 2 retain: 0");
        events.clear();
        engine->onSubscribe(1, 0, nullptr, topic);
        engine->onSubscribe(1, 0, nullptr, topic);
        QCOMPARE(events.count(said), isStatus ? 1 : 0);
        engine->onUnsubscribe(1, topic); // never one level only
        QCOMPARE(events.count(said), isStatus ? 1 : 0);
        engine->onUnsubscribe(1, QStringLiteral("srv/panel/status/#"));
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
        const QJsonObject packet{{QStringLiteral("topic"), QStringLiteral("request/DB/realtime")},
                                 {QStringLiteral("payload"), 1}};
        events.clear();
        engine->publish(packet);
        QCOMPARE(events, (QStringList{QStringLiteral("3 publish No master id"),
                                      "emit onMasterIdError "_l1 + probe::textOf(packet)}));
        engine->system->setMasterId(QStringLiteral("srv"));
        events.clear();
        engine->publish(packet);
        QCOMPARE(events[0],
                 QStringLiteral("6 publish Try to publish topic: forward-bridge/local/1234/panel/srv/request/DB/"
                                "realtime qos: 2 retain: 0"));
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
            engine.on_message(1, QStringLiteral("$SYS/broker/connection/x-y-1-2/state"), QStringLiteral("0"), 1, 0,
                              false);
        };
        const auto accepted = [](auto& engine) { engine.on_connect_with_flags(0, 0); };
        const auto lost = [](auto& engine) { engine.on_disconnect(7); };
        const QString one = QStringLiteral("tarnel-server-1");
        after(makeClient(), &protobase_t::onBrokerConnection, accepted);
        after(makeClient(), &protobase_t::onBrokerDisconnection, lost);
        after(makeClient(), &protobase_t::onBridgeConnectionEvent, bridge);
        after(makeClient(one), &protobase_t::onMasterBridgeError, bridge);
        after(makeClient(), &protobase_t::onMasterIdError, [](auto& engine) { engine.publish(QJsonObject()); });
        after(makeClient(), &protobase_t::on_Presentation, message(srv));
        after(makeClient(QStringLiteral("srv")), &protobase_t::on_Presentation,
              message("forward-bridge/local/1234/srv/all/connection/presentation -srv server srv"));
        after(makeClient(), &protobase_t::onDatabasePersistentStatus,
              message("local/1234/s/all/status/DB/persistent {}"));
        after(makeClient(), &protobase_t::on_Unknown, message("local/1234/s/all/unknown {}"));
        after(makeClient(), &protobase_t::onBridgeConnectionCloudEvent, [](auto& engine) {
            engine.on_message(1, QStringLiteral("$SYS/clients//connected"), QString(), 0, 0, false);
        });
        after(makeServer(), &protoserver_t::onConnection, accepted);
        after(makeServer(), &protobase_t::onBrokerDisconnection, lost);
        after(makeServer(), &protobase_t::onBridgeConnectionEvent, bridge);
        after(makeServer(one), &protobase_t::onMasterBridgeError, bridge);
        after(makeServer(QStringLiteral("srv")), &protobase_t::on_Presentation, message(panel));
        after(makeServer(QStringLiteral("srv")), &protobase_t::on_Presentation,
              message("local/1234/pan/own_server/connection/presentation -pan client"));
        after(makeServer(QStringLiteral("two")), &protobase_t::on_Presentation,
              message("remote-bridge/local/1234/two/srv/connection/presentation +two server srv"));
        after(makeServer(QStringLiteral("srv")), &protobase_t::on_Presentation,
              message("remote-bridge/local/1234/two/all/connection/presentation -two server srv"));
        after(makeServer(), &protoserver_t::onRequestCmd, message("local/1234/s/srv/request/DB/command {}"));
        after(makeServer(), &protoserver_t::onClientReady, message("local/1234/s/srv/command/client/ready '1'"));
        after(makeServer(), &protobase_t::on_Unknown, message("local/1234/s/all/unknown {}"));
        QCOMPARE(deleted, 21);
    }
};

QTEST_GUILESS_MAIN(unit_roles)
#include "unit_roles.moc"
