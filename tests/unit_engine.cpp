// SPDX-License-Identifier: MIT
// The engine without a broker: construction, payloads, placeholders, refusals and configuration.
#include <flotrofobul/define/topic_t.h>
#include <flotrofobul/platform/config/mosquittocnf.h>
#include <flotrofobul/platform/mosquittopp/mosquittoqt.h>
#include <flotrofobul/utility/statusbroker.h>

#include "support/engine_hooks.h"

#include <QtCore/QTemporaryDir>
#include <QtTest/QtTest>

#include <csignal>
#include <sys/resource.h>
#include <unistd.h>

using comunication::protoclient_t;
using comunication::protoserver_t;
using comunication::utility::qos_t;
using comunication::utility::topic_t;

namespace {

QByteArray contentOf(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(unreadable)");
}

void write(const QString& path, const QByteArray& content)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write(content) == content.size());
}

} // namespace

class unit_engine : public QObject {
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

    void construction_data()
    {
        QTest::addColumn<QByteArray>("id");
        QTest::addColumn<QString>("client");
        QTest::addColumn<QString>("server");
        const QString warning = "WARNING WARNING WARNING WARNING WARNING WARNING WARNING WARNING"_s;
        QTest::newRow("an id") << QByteArray("12") << "4 %1 Installation id is: 12"_s
                               << "4 %1 Installation id is: 12"_s;
        QTest::newRow("none") << QByteArray("")
                              << QString("3 %1 "_l1 + warning + "\n3 %1 Installation id is empty  ..."_l1)
                              << QString(
                                     "3 %1 "_l1 + warning +
                                     "\n3 %1 Installation id is empty  ... with this configuration it is not possible "
                                     "to communicate with the cloud ....."_l1);
    }
    void construction()
    {
        QFETCH(QByteArray, id);
        QFETCH(QString, client);
        QFETCH(QString, server);
        const auto expected = [](const QString& role, const QString& installationLine, const QString& ends) {
            int major = 0;
            int minor = 0;
            int patch = 0;
            comunication::mosquittopp::lib_version(&major, &minor, &patch);
            return QStringList{"4 protobase_t Starting comunication engine as "_l1 + role + " version: 7.1"_l1,
                               "4 protobase_t Running on libmosquitto %1.%2.%3"_s.arg(major).arg(minor).arg(patch),
                               "4 readConfigFromJson Read comunication configuration from json"_s,
                               "4 proto"_l1 + role + "_t Init protocol for "_l1 + role + u' '} +
                   installationLine.arg("proto"_l1 + role + "_t"_l1).split(u'\n') +
                   QStringList{"4 ~proto"_l1 + role + "_t Destroy comunication "_l1 + ends + " ..."_l1,
                               "4 ~protobase_t Destroy comunication base ..."_s};
        };
        {
            bare_t<protoclient_t> engine("7.1"_s, installation(id), "panel"_s, true);
            QVERIFY(engine.isEncoding() && !engine.isStatusbroker() && !engine.getConnected());
            QCOMPARE(engine.getVersion(), "1.1.2"_s);
            QVERIFY(engine.getStatusBroken() != nullptr);
            QCOMPARE(topic_t::installation_id, QString::fromUtf8(id));
            QVERIFY((engine.placeholders == QMap<QString, QList<QString>>{{"@destination"_s, {"all"_s, "@idclient"_s}},
                                                                          {"@idclient"_s, {"panel"_s}},
                                                                          {"@sender"_s, {"@idserver"_s}},
                                                                          {"@idserver"_s, {QString()}}}));
        }
        QCOMPARE(take(), expected("client"_s, client, "client"_s));
        {
            bare_t<protoserver_t> engine("7.1"_s, installation(id), false, "srv"_s, false);
        }
        QCOMPARE(take(), expected("server"_s, server, "base"_s));
    }

    void encode_data()
    {
        QTest::addColumn<QJsonValue>("value");
        QTest::addColumn<QString>("plain");
        QTest::addColumn<QString>("encoded");
        QTest::addColumn<QString>("encodedText"); // of the plain text
        const QJsonObject object{{"a"_s, 1}};
        QTest::newRow("object") << QJsonValue(object) << "{\"a\":1}"_s
                                << "eyJhIjoxfQ"_s
                                << "eyJhIjoxfQ=="_s;
        QTest::newRow("text") << QJsonValue("\u00e9"_s) << "\u00e9"_s
                              << "w6k"_s
                              << "w6k="_s;
        QTest::newRow("number") << QJsonValue(5) << QString() << QString() << QString();
        QTest::newRow("boolean") << QJsonValue(true) << QString() << QString() << QString();
        QTest::newRow("array") << QJsonValue(QJsonArray{1}) << QString() << QString() << QString();
    }
    void encode()
    {
        QFETCH(QJsonValue, value);
        QFETCH(QString, plain);
        QFETCH(QString, encoded);
        QFETCH(QString, encodedText);
        bare_t<protoclient_t> engine("1"_s, installation(), "panel"_s, true);
        QCOMPARE(engine.Encode(value), encoded);
        QCOMPARE(engine.Encode(plain), encodedText);
        if (value.isObject()) {
            QCOMPARE(engine.Encode(value.toObject()), encoded);
            QCOMPARE(engine.JsonObjectToString(value.toObject(), QJsonDocument::Compact), plain);
            QCOMPARE(engine.StringToJsonObject(plain), value.toObject());
        }
        engine.setEncoding(false);
        QCOMPARE(engine.Encode(value), plain);
        QCOMPARE(engine.Encode(plain), plain);
        QCOMPARE(engine.StringToJsonObject("[1]"_s), QJsonObject());
    }

    void resolution_data()
    {
        QTest::addColumn<QString>("map"); // key=word,word blank ...
        QTest::addColumn<QString>("topics");
        QTest::addColumn<QString>("resolved");
        const auto row = [](const char* rule, const char* map, const char* topics, const char* resolved) {
            QTest::newRow(rule) << QString::fromUtf8(map) << QString::fromUtf8(topics) << QString::fromUtf8(resolved);
        };
        row("no placeholder", "@a=x", "t/u", "t/u");
        row("every occurrence", "@a=x,y", "@a/@a", "x/x y/y");
        row("unknown placeholder stays", "@a=x", "@b", "@b");
        row("empty list stays", "@a= @b=x", "@a/@b", "@a/x");
        row("lowest key first, one a pass", "@a=1,2 @b=3,4", "@b/@a", "3/1 4/1 3/2 4/2");
        row("through another placeholder", "@a=@c @b=x @c=y", "@a/@b", "y/x");
        row("what is expanded moves to the end", "@a=x", "@a t", "t x");
        row("repeated topics", "@a=x", "@a @a", "x x");
        row("an empty word", "@a=!", "t/@a", "t/");
    }
    void resolution()
    {
        QFETCH(QString, map);
        QFETCH(QString, topics);
        hooks_t engine(events);
        engine.placeholders.clear();
        const QStringList entries = map.split(u' ');
        for (const QString& entry : entries) {
            QStringList words = entry.section(u'=', 1).split(u',', Qt::SkipEmptyParts);
            engine.placeholders[entry.section(u'=', 0, 0)] = words.replaceInStrings("!"_s, QString());
        }
        QList<QString> list = topics.split(u' ');
        engine.topic_subscribe_resolution(list);
        QTEST(QStringList(list).join(u' '), "resolved");
    }

    // A client id that holds a placeholder word: resolving ends, says so once, and goes on.
    void endlessResolution()
    {
        bare_t<protoclient_t> engine("1"_s, installation(), "client@idclient"_s, false);
        take();
        QList<QString> list{"@destination/x"_s, "plain"_s};
        engine.topic_subscribe_resolution(list);
        QCOMPARE(events.size(), 1);
        QVERIFY2(events[0].startsWith("2 topic_subscribe_resolution "_l1), qPrintable(events[0]));
        QVERIFY(list.contains("all/x"_s) && list.contains("plain"_s));
        QVERIFY(list.size() <= 3);
    }

    void packetRefusals_data()
    {
        QTest::addColumn<QByteArray>("packet");
        QTest::addColumn<bool>("isShort");
        QTest::addColumn<QByteArray>("expected");
        const QByteArray compliant = "2 publish Payload or topic not compliant!\n"
                                     "2 publish Topic: forward-bridge/local/@installation_id/@sender/@destination/t\n";
        QTest::newRow("no topic") << QByteArray("{'payload':1}") << false
                                  << QByteArray("2 publish Packet not compliant!");
        QTest::newRow("no payload") << QByteArray("{'topic':'t'}") << false
                                    << QByteArray("2 publish Packet not compliant!");
        QTest::newRow("topic as long as the minimum, object")
            << QByteArray("{'topic':'t','payload':{'a':1}}") << true << compliant + "2 publish Payload: {\"a\":1}";
        QTest::newRow("topic as long as the minimum, text")
            << QByteArray("{'topic':'t','payload':'x'}") << true << compliant + "2 publish Payload: x";
    }
    void packetRefusals()
    {
        QFETCH(QByteArray, packet);
        QFETCH(bool, isShort);
        QFETCH(QByteArray, expected);
        hooks_t engine(events);
        take();
        const int usual = topic_t::topic_min_len;
        if (isShort) {
            topic_t::topic_min_len = "forward-bridge/local/@installation_id/@sender/@destination/t"_s.size();
        }
        engine.protobase_t::publish(parse(packet), qos_t(2), false);
        topic_t::topic_min_len = usual;
        QCOMPARE(take(), lines(expected));
    }

    // Nothing of this may crash, and each says so once; the base's own traces (level 6) aside.
    void beforeTheFirstConnection()
    {
        using engine_t = bare_t<protoserver_t>;
        engine_t engine("1"_s, installation(), false, "srv"_s, false);
        const QString topic = "local/@installation_id/@sender/x/y"_s;
        const auto failed = [this](const char* start, auto operation) {
            take();
            operation();
            const QStringList all = take();
            const QStringList grave = all.filter(QRegularExpression("^[012] "_s));
            const bool once =
                grave.size() == 1 && grave[0].startsWith(QLatin1String(start)) && grave[0].size() > int(strlen(start));
            if (!once) {
                qWarning() << start << "became" << all;
            }
            return once;
        };
        QVERIFY(failed("1 subscribe Handling exception ", [&] { engine.subscribe(topic, qos_t(2)); }));
        QVERIFY(
            failed("1 publish Handling exception.", [&] { engine.publish(topic, QJsonObject(), qos_t(2), false); }));
        QVERIFY(
            failed("1 publish Handling exception.", [&] { engine.publish(topic, QJsonValue(1), qos_t(2), false); }));
        QVERIFY(failed("1 publish Handling exception.", [&] {
            engine.eventPublish(parse("{'topic':'t','payload':1,'destination':'d'}"), qos_t(2), false);
        }));
        QVERIFY(failed("1 publish Handling exception.", [&] { engine.publish_presentation("all"_s); }));
        QVERIFY(failed("2 unsubscribe No mid for local/@installation_id/srv/x/",
                       [&] { engine.unsubscribe("local/@installation_id/srv/x/y"_s); }));
        engine.messages->addSubscription(4, topic, qos_t(2));
        QVERIFY(failed("1 unsubscribe Handling generic exception.", [&] { engine.unsubscribe("t"_s); }));
        QCOMPARE(engine.messages->getSubscriptions()->keys(), QList<int>{4});
        engine.messages->reset();
        QVERIFY(failed("1 disconnection Handling exception: ", [&] { QCOMPARE(engine.disconnection(true), -1); }));
        QVERIFY(failed("1 disconnection Handling exception: ", [&] { QCOMPARE(engine.disconnection(false), -1); }));
        QVERIFY(failed("1 init_lastWillMessage Handling exception: ",
                       [&] { QCOMPARE(engine.init_lastWillMessage(), -1); }));
        QCOMPARE(engine.init_security(), 0);
        take();
        engine.setStatusbroker(true);
        engine.setStatusbroker(false);
        engine.setMosquittoLog(true);
        QVERIFY(engine.configuration->getMqtt()->getGlobal()->getLogging());
        QVERIFY(!engine.connected());
        engine.setMaster();
        QCOMPARE(take(), lines("4 connected Check connection false\n6 setStatusbroker Set status broker to: true\n"
                               "6 setStatusbroker Set status broker to: false\n4 connected Check connection false\n"
                               "4 setMaster I'm default master\n4 connected Check connection false"));
        engine.on_connect_with_flags(0, 0);
        QCOMPARE(engine.system->getMasterId(), "srv"_s); // the role waited for the link
    }

    void lastWillAndSecurity()
    {
        bare_t<protoclient_t> engine(
            "1"_s,
            parse("{'mqtt':{'global':{'installation_id':'1234'},'security':{'tls_enable':true,'ca_file':'/nowhere'}}}"),
            "panel"_s, true);
        take();
        QCOMPARE(engine.init_comunication(), 1);
        const auto will = engine.client->getWill();
        QCOMPARE(will.topic, "forward-bridge/local/1234/panel/own_server/connection/presentation"_s);
        QCOMPARE(will.qos, 2);
        QVERIFY(!will.retain);
        const QByteArray payload = QByteArray::fromBase64(will.payload.toLatin1());
        QCOMPARE(QString::fromLatin1(payload.toBase64()), will.payload); // padded
        QCOMPARE(payload,
                 QByteArray("{\"d\":{\"brokerip\":\"\",\"clientid\":\"panel\",\"connected\":false,\"hostname\":\"\","
                            "\"masterData\":{},\"masterid\":\"\",\"os\":\"\",\"publishDate\":\"\",\"type\":"
                            "\"client\",\"versionApp\":\"1\",\"versionLib\":\"\"}}"));
        QCOMPARE(
            take(),
            lines(QByteArray("4 init_comunication Init mosquitto clientid: panel\n4 init_security Init security ...\n"
                             "4 init_security Tls secure is enabled, try to set it .... \n"
                             "2 tls_set TLS: the file /nowhere does not exist\n"
                             "2 init_security (3 TLS-SET) Probably file not exist\n"
                             "4 init_lastWillMessage Set last will message\n"
                             "6 init_lastWillMessage Create presentation object\n"
                             "4 init_lastWillMessage Params last will message topic: forward-bridge/local/1234/panel/"
                             "own_server/connection/presentation qos: 2 retain: 0\n") +
                  "6 init_lastWillMessage payload: " + payload + "\n4 init_lastWillMessage Set last will: 0"));
        bare_t<protoserver_t> server("1"_s, installation(), false, "srv"_s, false);
        QCOMPARE(server.topic_lastwillmessage("a/@destination/b"_s), "forward-bridge/a/all/b"_s);
        QCOMPARE(server.getCommandTopic("local/@installation_id/@sender/@destination/request/DB"_s), "request/DB"_s);
    }

    void readConfiguration_data()
    {
        QTest::addColumn<QByteArray>("content"); // "-" for a missing file, "/" for a folder
        QTest::addColumn<bool>("read");
        QTest::addColumn<QByteArray>("expected");
        QTest::newRow("JSON") << QByteArray("{'mqtt':{'global':{'port':7}}}") << true << QByteArray();
        QTest::newRow("JSON of no object") << QByteArray("[1]") << true << QByteArray();
        QTest::newRow("a refused value") << QByteArray("{'mqtt':{'global':{'port':70000,'interval':5}}}") << true
                                         << QByteArray(
                                                "2 deserialize Refused configuration value mqtt.global.port: 70000, "
                                                "allowed: a whole number from 1 to 65535");
        QTest::newRow("no JSON") << QByteArray("{") << false
                                 << QByteArray("2 readConfigFromFile Error parsing file: %1");
        QTest::newRow("empty") << QByteArray("") << false << QByteArray("2 readConfigFromFile Error parsing file: %1");
        QTest::newRow("a folder") << QByteArray("/") << false
                                  << QByteArray("2 readConfigFromFile Error parsing file: %1");
        QTest::newRow("missing")
            << QByteArray("-") << false
            << QByteArray("2 readConfigFromFile Unable to open file: %1 Error: No such file or directory");
    }
    void readConfiguration()
    {
        QFETCH(QByteArray, content);
        QFETCH(bool, read);
        QFETCH(QByteArray, expected);
        const QTemporaryDir folder;
        QString path = folder.filePath("file"_s);
        if (content == "/") {
            path = folder.path();
        } else if (content != "-") {
            write(path, content.replace('\'', '"'));
        }
        bare_t<protoclient_t> engine("1"_s, path, "panel"_s, false);
        const QStringList began = take();
        const QStringList logged =
            QStringList("4 readConfigFromFile Read comunication configuration from file: "_l1 + path) +
            lines(QByteArray(expected).replace("%1", path.toUtf8()));
        QCOMPARE(began.mid(2, logged.size()), logged);
        QCOMPARE(engine.configuration->getMqtt()->getGlobal()->getPort(), content.contains(":7}") ? 7 : 1883);
        QCOMPARE(engine.readConfigFromFile(path), read);
        QCOMPARE(take(), logged);
        QVERIFY(!engine.readConfigFromJson({}));
        QCOMPARE(take(), lines("4 readConfigFromJson Read comunication configuration from json\n"
                               "2 readConfigFromJson Error: no valid json object"));
    }

    void saveConfiguration()
    {
        const QTemporaryDir folder;
        const QString path = folder.filePath("file"_s);
        const auto saved = [&path](const char* existing, const char* end) {
            return QStringList{"6 saveConfigToFile Try to write config comunication: "_l1 + path,
                               QLatin1String(existing) + path, QLatin1String(end) + path};
        };
        const char* const anew = "3 saveConfigToFile File not foud write ";
        const char* const over = "6 saveConfigToFile Override file ";
        const char* const done = "4 saveConfigToFile Writed";
        bare_t<protoclient_t> engine("1"_s, installation(), "panel"_s, false);
        take();
        QVERIFY(engine.saveConfigToFile(path));
        QCOMPARE(take(), saved(anew, done));
        const QByteArray first = contentOf(path);
        QCOMPARE(first, QJsonDocument(engine.configuration->serialize()).toJson(QJsonDocument::Indented));

        engine.readConfigFromJson(parse("{'mqtt':{'connect':{'password':'secret'}}}"));
        take();
        // An interrupted save: the medium takes no byte. The old file stays whole.
        rlimit usual{};
        getrlimit(RLIMIT_FSIZE, &usual);
        const rlimit full{0, usual.rlim_max};
        const auto previous = std::signal(SIGXFSZ, SIG_IGN);
        setrlimit(RLIMIT_FSIZE, &full);
        const bool written = engine.saveConfigToFile(path);
        setrlimit(RLIMIT_FSIZE, &usual);
        std::signal(SIGXFSZ, previous);
        QVERIFY(!written);
        QCOMPARE(take(), saved(over, "2 saveConfigToFile Unable to write file: "));
        QCOMPARE(contentOf(path), first);
        QCOMPARE(QDir(folder.path()).entryList(QDir::Files), QStringList{"file"_s});

        QVERIFY(engine.saveConfigToFile(path));
        QCOMPARE(take(), saved(over, done));
        QVERIFY(contentOf(path).contains("secret"));
        const auto others = QFile::ReadGroup | QFile::WriteGroup | QFile::ReadOther | QFile::WriteOther;
        QVERIFY(!(QFile::permissions(path) & others));

        // Where the folder cannot be written, the file itself is.
        write(path, "old");
        QVERIFY(QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | others));
        QVERIFY(QFile::setPermissions(folder.path(), QFile::Permissions(0x5555)));
        const bool root = geteuid() == 0;
        QVERIFY(!root || seteuid(65534) == 0);
        const bool direct = engine.saveConfigToFile(path);
        QVERIFY(!root || seteuid(0) == 0);
        QVERIFY(QFile::setPermissions(folder.path(), QFile::Permissions(0x7700)));
        QVERIFY2(direct, qPrintable(events.join(u'|')));
        QCOMPARE(take(), saved(over, done));
        QVERIFY(contentOf(path).contains("secret"));

        const QString nowhere = folder.filePath("no/file"_s);
        QVERIFY(!engine.saveConfigToFile(nowhere));
        QCOMPARE(take().last(), "2 saveConfigToFile Unable to open file: "_l1 + nowhere);
    }
};

QTEST_GUILESS_MAIN(unit_engine)
#include "unit_engine.moc"
