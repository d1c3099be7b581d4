// SPDX-License-Identifier: MIT
// The engine without a broker: payloads, placeholders, refusals and configuration.
#include <flotrofobul/advice.h>
#include <flotrofobul/define/topic_t.h>
#include <flotrofobul/platform/config/mosquittocnf.h>
#include <flotrofobul/platform/mosquittopp/link.h>

#include "support/certificates.h"
#include "support/engine_probe.h"

#include <QtCore/QRegularExpression>
#include <QtTest/QtTest>

#include <csignal>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>

using comunication::advice_t;
using comunication::protoclient_t;
using comunication::protoserver_t;
using comunication::mosquittopp::authorities_t;
using comunication::mosquittopp::tls_context_t;
using comunication::utility::qos_t;
using comunication::utility::topic_t;
using panel_t = bare_t<protoclient_t>;

namespace {

struct open_client_t : comunication::mosquittopp::mosquittoqt {
    using mosquittoqt::link;
};

QByteArray contentOf(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(unreadable)");
}

QString written(const QString& path, const QByteArray& content)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) >= 0 ? path : "(unwritable)"_s;
}

} // namespace

class unit_engine : public QObject {
    Q_OBJECT

    log_recorder_t log;
    QStringList& events = log.lines;
    const QTemporaryDir folder;

    QStringList filtered(const char* pattern) const
    {
        return events.filter(QRegularExpression(QLatin1String(pattern)));
    }

private Q_SLOTS:
    void init() { log.take(); }

    void withoutInstallationId()
    {
        const panel_t panel("1"_s, QJsonObject(), "panel"_s, false);
        const protoserver_t server("1"_s, QJsonObject(), false, "srv"_s, false);
        const QString warning = "3 proto%1_t WARNING WARNING WARNING WARNING WARNING WARNING WARNING WARNING"_s;
        QCOMPARE(filtered("^3"),
                 (QStringList{warning.arg("client"_l1), "3 protoclient_t Installation id is empty  ..."_s,
                              warning.arg("server"_l1),
                              "3 protoserver_t Installation id is empty  ... with this configuration "
                              "it is not possible to communicate with the cloud ....."_s}));
    }

    // Engines of several threads and installations share the grammar, and nothing else: for the preset tsan.
    void threads()
    {
        ::utility::logs::classlogs::getInstance()->setLevel(-1);
        std::vector<std::thread> threads;
        for (const char id : {'1', '2', '3', '4'}) {
            threads.emplace_back(
                [configuration = parse(R"({"mqtt":{"global":{"installation_id":")" + QByteArray(1, id) + R"("}}})")] {
                    for (int n = 0; n < 300; ++n) {
                        panel_t engine("1"_s, configuration, {}, true);
                        engine.init_comunication();
                        engine.on_message(1, "local/1/srv/all/status/DB/realtime"_s, "{}"_s, 2, 0, false);
                    }
                });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        log.take();
        ::utility::logs::classlogs::getInstance()->setLevel(::utility::logs::detail);
        bool ok = false;
        const QString& id = topic_t::installation_id; // of whoever was last
        QCOMPARE(topic_t("local/"_l1 + id + "/a/b/c"_l1, &ok).getPlain(), id);
    }

    void encode()
    {
        panel_t engine("1"_s, installation(), "panel"_s, true);
        const QString text = "\u00e9"_s;
        const auto encoded = [&] {
            return QStringList{engine.Encode(parse("{'a':1}")), engine.Encode(QJsonValue(text)), engine.Encode(text)};
        };
        QCOMPARE(encoded(), (QStringList{"eyJhIjoxfQ"_s, "w6k"_s, "w6k="_s}));
        engine.setEncoding(false);
        QCOMPARE(encoded(), (QStringList{"{\"a\":1}"_s, text, text}));
        const QString strange = u'\ufeff' + QString(u'\0') + text;
        QCOMPARE(engine.Encode(QJsonValue(strange)), strange);
        QCOMPARE(engine.getCommandTopic("local/@installation_id/@sender/@destination/a/b"_s), "a/b"_s);
        QCOMPARE(engine.getVersion(), "1.1.2"_s);
    }

    void resolution()
    {
        panel_t engine("1"_s, installation(), "panel"_s, false);
        const auto resolved = [&engine](const QMap<QString, QList<QString>>& placeholders, QList<QString> topics) {
            engine.placeholders = placeholders;
            engine.topic_subscribe_resolution(topics);
            return QStringList(topics).join(u' ');
        };
        log.take();
        QCOMPARE(resolved({{"@a"_s, {"x"_s, "y"_s}}}, {"@a/@a"_s, "t"_s}), "t x/x y/y"_s); // moves to the end
        QCOMPARE(resolved({{"@a"_s, {}}, {"@b"_s, {"x"_s}}}, {"@a/@b/@c"_s}), "@a/x/@c"_s);
        QCOMPARE(resolved({{"@a"_s, {"1"_s, "2"_s}}, {"@b"_s, {"3"_s}}}, {"@b/@a"_s, "@a"_s}), "1 2 3/1 3/2"_s);
        QCOMPARE(resolved({{"@a"_s, {"@c"_s}}, {"@c"_s, {"y"_s}}}, {"@a"_s}), "y"_s); // through another placeholder
        QCOMPARE(events, QStringList());
        // What leads back to its own placeholder does so once; everything else goes on to its end.
        QCOMPARE(resolved({{"@a"_s, {"x"_s, "y@a"_s}}}, {"@a"_s, "t"_s}), "t x yx"_s);
        QCOMPARE(resolved({{"@a"_s, {"@b"_s}}, {"@b"_s, {"c@a"_s}}}, {"@a"_s}), "c@a"_s);
        QCOMPARE(resolved({{"@a"_s, {"s"_s}}, {"@b"_s, {"@a"_s, "t"_s}}}, {"@a/@b"_s}), "s/t s/s"_s);
    }

    // Nothing of this may crash, and each says so once; the base's own traces (level 6) aside.
    void beforeTheFirstConnection()
    {
        bare_t<protoserver_t> engine("1"_s, installation(), false, "srv"_s, false);
        log.take();
        engine.subscribe("t"_s, qos_t(2));
        engine.publish("t"_s, QJsonObject(), qos_t(2), false);
        engine.publish("t"_s, QJsonValue(1), qos_t(2), false);
        engine.unsubscribe("@sender/t"_s);
        engine.messages->addSubscription(4, "t"_s, qos_t(2));
        engine.unsubscribe("t"_s);
        QCOMPARE(engine.messages->getSubscriptions()->keys(), QList<int>{4});
        QCOMPARE(engine.disconnection(true) + engine.disconnection(false) + engine.init_lastWillMessage(), -3);
        engine.messages->reset();
        const int usual = std::exchange(topic_t::topic_min_len, 60); // no topic of today falls short of the usual one
        engine.eventPublish(parse("{'topic':'t','payload':{'a':1}}"), qos_t(2), false);
        engine.eventPublish(parse("{'topic':'t','payload':'x'}"), qos_t(2), false);
        topic_t::topic_min_len = usual;
        engine.setStatusbroker(true);
        engine.setMosquittoLog(true);
        engine.setMaster();
        QCOMPARE(filtered("^[0-5] ").join(u'\n'),
                 R"(1 subscribe Handling exception WHY
1 publish Handling exception.WHY
1 publish Handling exception.WHY
2 unsubscribe No mid for +/t in messages
1 unsubscribe Handling generic exception.WHY
1 disconnection Handling exception: WHY
1 disconnection Handling exception: WHY
4 init_lastWillMessage Set last will message
1 init_lastWillMessage Handling exception: WHY
2 publish Payload or topic not compliant!
2 publish Topic: forward-bridge/local/@installation_id/@sender/@destination/t
2 publish Payload: {"a":1}
2 publish Payload or topic not compliant!
2 publish Topic: forward-bridge/local/@installation_id/@sender/@destination/t
2 publish Payload: x
4 connected Check connection false
4 setMaster I'm default master
4 connected Check connection false)"_s.replace("WHY"_l1, "no broker client before the first connect"_l1));
        QVERIFY(engine.isStatusbroker() && engine.configuration->getMqtt()->getGlobal()->getLogging());
    }

    // Everything of the configuration that concerns the broker client reaches it.
    void settings()
    {
        const certificates_t certificates;
        const auto configured = [](const QString& authority) {
            return parse("{'mqtt':{'global':{'interval':2000},'connect':{'timeout':3,'outbox_messages':1,"
                         "'outbox_bytes':2048,'max_packet_bytes':4096,'username':'u','password':'p'},'security':"
                         "{'tls_enable':true,'tls_insecure':true,'ca_file':'" +
                         authority.toUtf8() + "'}}}");
        };
        panel_t engine("1"_s, configured(certificates.file("ca"_s)), "panel"_s, true);
        QCOMPARE(engine.init_comunication(), 0);
        auto& link = *(engine.client->*&open_client_t::link);
        QCOMPARE((QList<int>{link.interval.count(), link.connectTimeout.count(), link.outbox.bytesLimit(),
                             link.maxPacketBytes}),
                 (QList<int>{2000, 3000, 2048, 4096}));
        QCOMPARE(link.outbox.add({}, false) + link.outbox.add({}, false), 1); // the second takes the first one's place
        QCOMPARE(link.identity.username + link.identity.password, QByteArray("up"));
        QVERIFY(link.identity.tls.insecure);
        authorities_t authorities;
        tls_context_t context;
        QCOMPARE(context.load(link.identity.tls, "broker.lan."_s, authorities), 0);
        QCOMPARE(context.serverName(), QByteArray("broker.lan"));
        QVERIFY(engine.client->getWill().payload.endsWith(u'=')); // encoded, with padding
        for (const char* const file : {"/nowhere", "/etc/passwd"}) {
            QCOMPARE(panel_t("1"_s, configured(QLatin1String(file)), "panel"_s, true).init_comunication(), 1);
        }
        QCOMPARE(filtered("TLS-SET|insecure"),
                 (QStringList{"4 init_security (0 TLS-SET) Tls set on success"_s, "4 init_security Tls set insecure"_s,
                              "2 init_security (3 TLS-SET) Probably file not exist"_s,
                              "2 init_security (1 TLS-SET) Probably file format not correct"_s}));
    }

    void readConfiguration()
    {
        const auto reads = [this](const QString& file, const QString& failure = QString()) {
            panel_t engine("1"_s, file, "panel"_s, false);
            log.take();
            QCOMPARE(engine.readConfigFromFile(file), failure.isEmpty());
            const QString said = "4 readConfigFromFile Read comunication configuration from file: "_l1 + file;
            QCOMPARE(events.join(QString()), said + QString(failure).replace("FILE"_l1, file));
            QCOMPARE(engine.configuration->getMqtt()->getGlobal()->getPort(), failure.isEmpty() ? 7 : 1883);
        };
        reads(written(folder.filePath("a"_s), "{\"mqtt\":{\"global\":{\"port\":7}}}"));
        reads(written(folder.filePath("d"_s),
                      QByteArray("{\"mqtt\":{\"global\":{\"port\":7,\"host\":\"\xe9\"}}}\0", 42)));
        reads(written(folder.filePath("b"_s), "{"), "2 readConfigFromFile Error parsing file: FILE"_s);
        reads(folder.path(), "2 readConfigFromFile Error parsing file: FILE"_s);
        reads(folder.filePath("c"_s),
              "2 readConfigFromFile Unable to open file: FILE Error: No such file or directory"_s);
        QVERIFY(!panel_t("1"_s, installation(), "panel"_s, false).readConfigFromJson({}));
        QVERIFY(events.contains("2 readConfigFromJson Error: no valid json object"_s));
    }

    // What is probably wrong, each thing once, after the lines that it is about.
    void advice()
    {
        auto* const logs = ::utility::logs::classlogs::getInstance();
        const auto advised = [&](const auto& does) {
            log.take();
            logs->setAdvice(true);
            does();
            logs->setAdvice(false);
            QStringList said = filtered("^\\d advice ");
            return said.replaceInStrings(QRegularExpression("^(\\d) advice | ?[;:,] .*$"_s), "\\1"_s).join(u'|');
        };
        const auto configured = [&](const auto& source) {
            return advised([&] { const panel_t engine("1"_s, source, "panel"_s, false); });
        };
        const QString broken = written(folder.filePath("broken"_s), "{\n \"mqtt\" 1}");
        QCOMPARE(configured(broken), "2The configuration %1 was not taken"_s.arg(broken));
        QCOMPARE(configured("/nowhere"_s), "2The configuration /nowhere was not taken"_s);
        // The role's own lines come first.
        QVERIFY(events.indexOf(filtered("advice").value(0)) >
                events.indexOf("4 protoclient_t Init protocol for client "_s));
        QVERIFY(!panel_t("1"_s, broken, "panel"_s, false).isConfigured());
        QCOMPARE(configured(parse("{'global':{}}")),
                 "2The configuration object was not taken|3Unknown key \"global\" in the configuration"_s);
        configured(parse("{'mqtt':{'globl':{},'global':{'installation_id':'my-house','prot':1,'keepalive':2,'?':3}}}"));
        QCOMPARE(
            filtered(", is \"|it is kept|No packet").replaceInStrings(QRegularExpression("^.*is \""_s), {}),
            (QStringList{"3 advice Unknown key \"mqtt.global.?\" in the configuration, it is kept and has no effect"_s,
                         "mqtt.connect.keepalive\" meant?"_s, "mqtt.global.port\" meant?"_s, "mqtt.global\" meant?"_s,
                         filtered("No packet").value(0)}));

        panel_t engine("1"_s, installation(), "panel"_s, false);
        bare_t<protoserver_t> server("1"_s, installation(), false, "srv"_s, false);
        QVERIFY(engine.isConfigured());
        const QString topic = "forward-bridge/local/1234/%1/all/connection/presentation"_s;
        const auto named = [&](const QString& id, const QString& name) {
            return advised([&] { advice_t(&engine).clientId("client@"_l1 + id, name); });
        };
        const QString everywhere =
            "2The client id client@localhost%1 is that of every machine with the name localhost"_s;
        QCOMPARE(named("localhost"_s, "localhost"_s), everywhere.arg(QString()));
        QCOMPARE(named("localhostlocaldomain"_s, "localhost.localdomain"_s), everywhere.arg("localdomain"_l1));
        QCOMPARE(named("localhost1"_s, "localhost1"_s) + named("x"_s, "localhost"_s) + named({}, {}), QString());
        // With the connection, which may give an id.
        panel_t android("1"_s, installation(",'port':1"), {}, false);
        android.system->setProperty("hostname", "localhost"_s);
        android.system->setClientId("localhost"_s);
        QCOMPARE(advised([&] { android.connect("wall-7"_s); }), QString());
        android.system->setClientId("localhost"_s);
        QCOMPARE(advised([&] { android.connect(); }), everywhere.arg(QString()));
        const auto twice = [&](const auto& does) { return advised([&] { does(), does(); }); };
        const auto receives = [&](const char* payload) {
            return twice([&] { engine.on_message(1, topic.arg("srv"_l1), QLatin1String(payload), 0, 2, false); });
        };
        QCOMPARE(receives("{\"d\":"), "2The payload from srv on %1 is no JSON"_s.arg(topic.arg("srv"_l1)));
        QCOMPARE(receives("eyJkIjoxfQ"), "3encoding is on at srv"_s);
        QCOMPARE(receives("{\"d\":1}") + receives(""), QString());
        for (const int code : {128, 143}) {
            const int refused[] = {2, code};
            engine.messages->addSubscription(code, QString::number(code), qos_t(2));
            QCOMPARE(twice([&] { engine.on_subscribe(code, 2, refused); }),
                     "3The broker refuses the subscription of %1"_s.arg(code));
        }
        QCOMPARE(twice([&] { engine.protobase_t::publish(parse("{'topic':'t'}"), qos_t(2), false); }),
                 "2A packet was not published"_s);
        QVERIFY(events[1].contains("\"payload\" is missing beside topic t"_l1));
        const QString panel = textOf(parse("{'d':{'clientid':'p','type':'client','connected':true}}"));
        QCOMPARE(twice([&] { server.on_message(1, topic.arg("p"_l1), panel, 0, 2, false); }), "3p is there"_s);
        logs->setLevel(::utility::logs::trace);
        engine.on_message(1, topic.arg("srv"_l1), "{\"d\":{\"Password\":\"a\"}}"_s, 0, 2, false);
        logs->setLevel(::utility::logs::detail);
        QVERIFY(events.last().endsWith(" {\"d\":{\"Password\":\"(not shown)\"}}"_l1));
    }

    void saveConfiguration()
    {
        const QString path = folder.filePath("saved"_s);
        panel_t engine("1"_s, parse("{'mqtt':{'connect':{'password':'secret'}}}"), "panel"_s, false);
        const auto saves = [&](const char* existing, const char* end) {
            log.take();
            const bool done = engine.saveConfigToFile(path);
            const QStringList said{"6 saveConfigToFile Try to write config comunication: "_l1 + path,
                                   QLatin1String(existing) + path, QLatin1String(end) + path};
            return events == said && done == said[2].startsWith(u'4');
        };
        const char* const over = "6 saveConfigToFile Override file ";
        const char* const done = "4 saveConfigToFile Writed";
        QVERIFY(saves("3 saveConfigToFile File not foud write ", done));
        const QByteArray first = contentOf(path);
        QCOMPARE(first, QJsonDocument(engine.configuration->serialize()).toJson(QJsonDocument::Indented));
        const auto others = QFile::ReadGroup | QFile::WriteGroup | QFile::ReadOther | QFile::WriteOther;
        QVERIFY(!(QFile::permissions(path) & others)); // it holds a password

        // An interrupted save: the medium takes no byte. The old file stays whole.
        rlimit usual{};
        getrlimit(RLIMIT_FSIZE, &usual);
        const rlimit full{0, usual.rlim_max};
        const auto previous = std::signal(SIGXFSZ, SIG_IGN);
        setrlimit(RLIMIT_FSIZE, &full);
        const bool failed = saves(over, "2 saveConfigToFile Unable to write file: ");
        setrlimit(RLIMIT_FSIZE, &usual);
        std::signal(SIGXFSZ, previous);
        QVERIFY(failed && contentOf(path) == first);
        QCOMPARE(QDir(folder.path()).entryList({"saved*"_s}), QStringList{"saved"_s});

        // Where the folder cannot be written, the file itself is.
        QVERIFY(QFile::setPermissions(written(path, "old"), QFile::ReadOwner | QFile::WriteOwner | others));
        QVERIFY(QFile::setPermissions(folder.path(), QFile::Permissions(0x5555)));
        const bool root = geteuid() == 0;
        QVERIFY(!root || seteuid(65534) == 0);
        const bool direct = saves(over, done);
        QVERIFY(!root || seteuid(0) == 0);
        QVERIFY(QFile::setPermissions(folder.path(), QFile::Permissions(0x7700)));
        QVERIFY2(direct && contentOf(path) == first, qPrintable(events.join(u'|')));

        QVERIFY(!engine.saveConfigToFile("/nowhere/file"_s));
        QCOMPARE(events.last(), "2 saveConfigToFile Unable to open file: /nowhere/file"_s);
    }
};

QTEST_GUILESS_MAIN(unit_engine)
#include "unit_engine.moc"
