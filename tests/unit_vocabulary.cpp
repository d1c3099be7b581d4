// SPDX-License-Identifier: MIT
// The words of the protocol, its packet templates, and what the meta-objects of the engines promise to hosts.
#include <flotrofobul/define/define.h>
#include <flotrofobul/define/topic_t.h>
#include <flotrofobul/messages/messages.h>
#include <flotrofobul/protoclient_t.h>
#include <flotrofobul/protoserver_t.h>
#include <flotrofobul/utility/system_t.h>

#include "support/log_recorder.h"

#include <QtCore/QJsonDocument>
#include <QtCore/QMetaMethod>
#include <QtCore/QMetaProperty>
#include <QtTest/QtTest>

using namespace comunication;
namespace words = comunication::utility;
using words::destination_publish_client_t;
using words::destination_publish_server_t;
using words::destination_subscription_t;

Q_DECLARE_METATYPE(const QMetaObject*)

class unit_vocabulary : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void texts_data();
    void texts();
    void templates_data();
    void templates();
    void wordsAndNumbers();
    void metaTypes();
    void metaObjects_data();
    void metaObjects();
};

void unit_vocabulary::texts_data()
{
    QTest::addColumn<QString>("constant");
    QTest::addColumn<QString>("text");
    const QString prefix = "local/@installation_id/@sender/@destination"_s;
#define ROW(name, value) QTest::newRow(#name) << name << QStringLiteral(value)
#define LEVEL_ROW(name, value) QTest::newRow(#name) << name << prefix + QStringLiteral(value)
    ROW(DESTINATION, "@destination");
    ROW(SENDER, "@sender");
    ROW(CLIENTID, "@clientid");
    ROW(INSTALLATIONID, "@installation_id");
    ROW(BRIDGEKEY, "@bridgekey");
    ROW(REMOTE_PREFIX, "remote-bridge");
    ROW(FORWARD_PREFIX, "forward-bridge");
    ROW(CLOUD_PREFIX_1, "cloud-bridge");
    ROW(CLOUD_PREFIX_2, "other-cloud-bridge");
    ROW(LOCAL_PREFIX, "local");
    ROW(PREFIX_DB_PERSISTENT, "DB/persistent");
    ROW(PREFIX_DB_REALTIME, "DB/realtime");
    ROW(PREFIX_DB_PRESENCESIMULATION, "DB/presencesimulation");
    ROW(PREFIX_DB_COMAMND, "DB/command");
    ROW(PREFIX_PERFORMANCE, "$SYS");
    LEVEL_ROW(PREFIX, "");
    LEVEL_ROW(PREFIX_CONNECTIONS, "/connection");
    LEVEL_ROW(PREFIX_MASTER, "/master");
    LEVEL_ROW(PREFIX_STATUS, "/status");
    LEVEL_ROW(PREFIX_STATUS_PERSISTENT_DB, "/status/DB/persistent");
    LEVEL_ROW(PREFIX_STATUS_REALTIME_DB, "/status/DB/realtime");
    LEVEL_ROW(PREFIX_STATUS_PRESENCESIMULATION_DB, "/status/DB/presencesimulation");
    LEVEL_ROW(PREFIX_REQUEST, "/request");
    LEVEL_ROW(PREFIX_REQUEST_PERSISTENT_DB, "/request/DB/persistent");
    LEVEL_ROW(PREFIX_REQUEST_REALTIME_DB, "/request/DB/realtime");
    LEVEL_ROW(PREFIX_REQUEST_PRESENCESIMULATION_DB, "/request/DB/presencesimulation");
    LEVEL_ROW(PREFIX_REQUEST_COMMAND_DB, "/request/DB/command");
    LEVEL_ROW(PREFIX_NOTIFICATION, "/notification");
    LEVEL_ROW(PREFIX_COMMAND, "/command");
    ROW(words::topic_t::getAdmitedword(), "\\w-_{}\\[\\]\\(\\)\\?\\^\\$\u00a3!:.,=;@+'");
    ROW(words::topic_t::regex_allowed_topic_plain,
        "^(remote-bridge|forward-bridge|cloud-bridge|other-cloud-bridge)?[/]?(local)/([@installation_id]+)/"
        "([\\w-_{}\\[\\]\\(\\)\\?\\^\\$\u00a3!:.,=;@+']+)/([\\w-_{}\\[\\]\\(\\)\\?\\^\\$\u00a3!:.,=;@+']+)/"
        "([\\w-_{}\\[\\]\\(\\)\\?\\^\\$\u00a3!:.,=;@+'/]+$)");
    // Nothing has set an installation id yet.
    QTest::newRow("pattern before an id is set")
        << words::topic_t::tmp_regex_allowed_topic_plain << words::topic_t::regex_allowed_topic_plain;
}

void unit_vocabulary::texts()
{
    QFETCH(QString, constant);
    QTEST(constant, "text");
}

void unit_vocabulary::templates_data()
{
    QTest::addColumn<QJsonObject>("packet");
    QTest::addColumn<QByteArray>("json");
    const QByteArray base = "local/@installation_id/@sender/@destination";
    const auto plain = [](const QByteArray& topic, const char* rest = ",\"retain\":false") {
        return QByteArray("{\"qos\":2" + QByteArray(rest) + ",\"topic\":\"" + topic + "\"}");
    };
    const QByteArray retained = plain(base + "/status/#", ",\"retain\":true");
#undef ROW
#define ROW(name, value) QTest::newRow(#name) << name << QByteArray(value)
    ROW(bridge_state, plain("$SYS/broker/connection/#"));
    ROW(bridge_state_cloud_connection, plain("$SYS/brokers/+/clients/@bridgekey/connected"));
    ROW(bridge_state_cloud_disconnection, plain("$SYS/brokers/+/clients/@bridgekey/disconnected"));
    ROW(bridge_forward_sub, plain("forward-bridge/local/@installation_id/#", ""));
    ROW(bridge_remote_sub, plain("remote-bridge/local/@installation_id/#", ""));
    ROW(bridge_cloud_sub, plain("cloud-bridge/local/@installation_id/#", ""));
    ROW(masterelection, plain(base + "/master"));
    ROW(presentation, plain(base + "/connection/presentation"));
    ROW(lastwill, plain(base + "/connection/presentation"));
    ROW(performance, plain("$SYS/#"));
    ROW(status, retained);
    ROW(request, plain(base + "/request/#"));
    ROW(notification, plain(base + "/notification/#"));
    ROW(all_packet, plain("#"));
    ROW(subscriptions, "{\"status\":" + retained + "}");
    ROW(subscriptions_server,
        "{\"performance\":" + plain("$SYS/#") + ",\"request\":" + plain(base + "/request/#") + "}");
    ROW(subscriptions_client, "{\"notification\":" + plain(base + "/notification/#") + "}");
    ROW(pkgClientReady, "{\"payload\":true," + plain(base + "/command/client/ready").mid(1));
}

void unit_vocabulary::templates()
{
    QFETCH(QJsonObject, packet);
    QTEST(QJsonDocument(packet).toJson(QJsonDocument::Compact), "json");
}

template <typename Word>
static QStringList listed(std::initializer_list<const Word*> words)
{
    QStringList list;
    for (const Word* const word : words) {
        list << QString::number(word->index) + u' ' + word->ToString();
    }
    return list;
}

// Texts and numbers in the order of creation; the server's words go on with the client's numbers.
void unit_vocabulary::wordsAndNumbers()
{
    using client_word = destination_publish_client_t;
    using server_word = destination_publish_server_t;
    using heard_word = destination_subscription_t;
    QCOMPARE(listed<service_t>({&service_t::server, &service_t::client}), (QStringList{"0 server"_s, "1 client"_s}));
    QCOMPARE(listed<client_word>({&client_word::idserver, &client_word::own_server}),
             (QStringList{"0 @idserver"_s, "1 own_server"_s}));
    QCOMPARE(listed<server_word>({&server_word::all, &server_word::all_servers, &server_word::all_clients}),
             (QStringList{"2 all"_s, "3 all_servers"_s, "4 all_clients"_s}));
    QCOMPARE(listed<heard_word>({&heard_word::jolly, &heard_word::multilevel, &heard_word::all,
                                 &heard_word::all_clients, &heard_word::idserver, &heard_word::idclient}),
             (QStringList{"0 +"_s, "1 #"_s, "2 all"_s, "3 all_clients"_s, "4 @idserver"_s, "5 @idclient"_s}));
    QCOMPARE(client_word::maxI, 5u);
    QCOMPARE(server_word::maxI, 0u);
    QCOMPARE(heard_word::maxI, 6u);

    // A word counts when it is made, not when it is copied; only its text is compared.
    const quint32 next = service_t::maxI;
    const service_t made("server"_s);
    const service_t copy(made);
    const service_t empty;
    const server_word another("all"_s);
    QCOMPARE(service_t::maxI, next + 2);
    QCOMPARE(copy.index, next);
    QVERIFY(made == service_t::server);
    QVERIFY(!(made == service_t::client));
    QCOMPARE(empty.ToString(), QString());
    QVERIFY(another == server_word::all);
    QCOMPARE(another.index, 5u);
    QCOMPARE(server_word::maxI, 0u);
}

// Hosts connect and write properties by these names, also queued; the numbers go on the wire.
void unit_vocabulary::metaTypes()
{
    QCOMPARE(QMetaType::type("qos_t"), qMetaTypeId<words::qos_t>());
    QCOMPARE(QMetaType::type("subscribe_t"), qMetaTypeId<words::subscribe_t>());
    QCOMPARE(QMetaType::type("state_req_t"), qMetaTypeId<words::state_req_t>());
    QVERIFY(QMetaType::type("system_t*") != QMetaType::UnknownType);
    QCOMPARE(QVariant::fromValue(words::qos_t(2)).toInt(), 2);
    QCOMPARE(int(words::subscribe_topics), 1);
    QCOMPARE(int(words::unsubscribe_topics), 0);
    QCOMPARE(int(words::state_registered), 1);
    QCOMPARE(int(words::state_acknowledged), 2);
    QCOMPARE(int(words::state_unsubscribed), 3);
}

void unit_vocabulary::metaObjects_data()
{
    QTest::addColumn<const QMetaObject*>("meta");
    QTest::addColumn<QByteArray>("expected");
    QTest::newRow("base") << &protobase_t::staticMetaObject << QByteArray(R"(
signal onBrokerConnection(int rc,int flags)
signal onBrokerDisconnection(int rc)
signal onBridgeConnectionEvent(QString _topic,QString bridge,QString payload)
signal onBridgeConnectionCloudEvent(QString _topic,QString bridge,QString payload,bool connected)
signal onMasterIdError(QJsonObject _packet)
signal onMasterBridgeError()
signal on_Presentation(QString sender,QString destination,bool status,QJsonObject payload)
signal onDatabasePersistentStatus(QJsonObject _package)
signal onDatabaseRealtimeStatus(QJsonObject _package)
signal onDatabasePresenceSimulationStatus(QJsonObject _package)
signal on_Unknown(QString topic,QJsonValue payload,int qos,bool retain)
public int connect(QString _clientid,bool async)
public int connect(QString _clientid)
public int connect()
public int disconnection(bool _sendLastWill)
public int disconnection()
protected on_connect(int rc)
protected on_connect_with_flags(int rc,int flags)
protected on_disconnect(int rc)
protected on_publish(int mid)
protected on_message(int mid,QString topic,QString payload,int payloadlen,int qos,bool retain)
protected on_subscribe(int mid,int qos_count,const int* granted_qos)
protected on_unsubscribe(int mid)
protected on_log(int level,QString str)
protected on_error()
)");
    QTest::newRow("client") << &protoclient_t::staticMetaObject << QByteArray(R"(
public publish(QJsonObject _packet)
)");
    QTest::newRow("server") << &protoserver_t::staticMetaObject << QByteArray(R"(
signal onRequestPersistentRequest(QJsonObject _package)
signal onRequestRealtimeRequest(QJsonObject _package)
signal onRequestPresenceSimulationRequest(QJsonObject _package)
signal onRequestCmd(QJsonObject _package)
signal onClientReady(QJsonObject _package)
signal onConnection()
public eventPublish(QJsonObject _packet,qos_t qos,bool retain)
)");
    QTest::newRow("record of a node") << &words::system_t::staticMetaObject << QByteArray(R"(
signal changeMasterIdEvent(QString _masterid)
constructor system_t(QString,service_t,QString,QObject*)
constructor system_t(QString,service_t,QString)
constructor system_t(QObject*)
constructor system_t()
property QString clientid
property QString os
property QString type
property QString versionLib
property QString versionApp
property QString hostname
property QString publishDate
property bool connected
property QString brokerip
property QString masterid
property QJsonObject masterData
)");
    QTest::newRow("subscription") << &message::classsubscribe::staticMetaObject << QByteArray(R"(
property QString topic
property qos_t qos
property int mid
property state_req_t state
)");
    QTest::newRow("publication") << &message::classpublish::staticMetaObject << QByteArray(R"(
property QString topic
property qos_t qos
property int mid
property state_req_t state
property QString payload
property bool retainflag
property bool dubflag
)");
}

static QByteArray described(const QMetaMethod& method)
{
    static const QMap<int, QByteArray> kinds{
        {QMetaMethod::Private, "private "}, {QMetaMethod::Protected, "protected "}, {QMetaMethod::Public, "public "}};
    QByteArrayList arguments;
    for (int i = 0; i < method.parameterCount(); ++i) {
        arguments << method.parameterTypes()[i] + " " + method.parameterNames()[i];
    }
    const bool plain = qstrcmp(method.typeName(), "void") == 0;
    return (method.methodType() == QMetaMethod::Signal ? QByteArray("signal ") : kinds[method.access()]) +
           (plain ? QByteArray() : QByteArray(method.typeName()) + " ") + method.name() + "(" + arguments.join(',') +
           ")\n";
}

void unit_vocabulary::metaObjects()
{
    QFETCH(const QMetaObject*, meta);
    QByteArray found = "\n";
    for (int i = meta->methodOffset(); i < meta->methodCount(); ++i) {
        found += described(meta->method(i));
    }
    for (int i = 0; i < meta->constructorCount(); ++i) {
        found += "constructor " + meta->constructor(i).methodSignature() + "\n";
    }
    for (int i = meta->propertyOffset(); i < meta->propertyCount(); ++i) {
        const QMetaProperty property = meta->property(i);
        QVERIFY(property.isReadable() && property.isWritable() && property.isStored());
        found += QByteArray("property ") + property.typeName() + " " + property.name() + "\n";
    }
    QFETCH(QByteArray, expected);
    QCOMPARE(found.split('\n'), expected.split('\n'));
}

QTEST_GUILESS_MAIN(unit_vocabulary)
#include "unit_vocabulary.moc"
