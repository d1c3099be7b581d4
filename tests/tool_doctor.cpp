// SPDX-License-Identifier: MIT
// The doctor finds each planted fault, with the right words and nothing else, and nothing in a healthy house. Real
// brokers, real engines; all houses live at once.
#include "support/certificates.h"
#include "support/client.h"
#include "support/command.h"
#include "support/engine_probe.h"
#include "support/peer.h"

#include <flotrofobul/testkit/broker.h>

#include <QtTest/QtTest>

using comunication::protobase_t;
using comunication::protoclient_t;
using comunication::protoserver_t;
using comunication::testkit::broker_t;

namespace {

QJsonObject reachable(int port)
{
    return parse(R"({"mqtt": {"global": {"installation_id": "house1", "host": "127.0.0.1", "port": )" +
                 QByteArray::number(port) + R"(}, "connect": {"timeout": 2}}})");
}

/// A broker with who lives there, another one behind a bridge, and a doctor's visit.
class house_t {
public:
    /// changes: keys of the doctor's configuration, "id=" (its own), "TZ=", "file=" (the text itself, or "none").
    house_t(const certificates_t& certificates, const QString& broker, const QString& plants,
            const QString& givenChanges)
        : file(certificates), changes(parts(named(givenChanges)))
    {
        if (broker.startsWith("peer "_l1)) {
            peer.rules = broker.mid(5).split(", "_l1);
            return;
        }
        far.start();
        near.configure(named(broker).replace("; "_l1, "\n"_l1));
        near.start();
        for (const QString& plant : parts(plants)) {
            live(plant.split(u' '));
        }
    }

    void call()
    {
        QStringList arguments{"doctor"_s, "--time"_s, "3"_s, "--config"_s, path()};
        if (!change("id").isEmpty()) {
            arguments << "--id"_s << change("id");
        }
        if (!change("TZ").isEmpty()) {
            QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
            environment.insert("TZ"_s, change("TZ"));
            doctor.setProcessEnvironment(environment);
        }
        const QByteArray text = change("file").toUtf8();
        if (text != "none") {
            writeFile(path(), text.isEmpty() ? QJsonDocument(configuration()).toJson() : text);
        }
        doctor.setProcessChannelMode(QProcess::MergedChannels);
        doctor.start(QStringLiteral(FLOTROFOBUL_COMMAND), arguments);
        if (passing != nullptr) {
            QTimer::singleShot(500, passing, [=] { passing->disconnection(); });
        }
    }

    bool isReady() const
    {
        return std::all_of(nodes.begin(), nodes.end(), [](const auto& node) { return node->getConnected(); });
    }
    quint16 port() const { return near.port(); }
    /// That the first node, a server, knows.
    QStringList clients() const { return static_cast<protoserver_t*>(nodes[0].get())->getClients().keys(); }
    QString path() const { return directory.filePath("house.json"_s); }

    QProcess doctor;

private:
    QString change(const char* key) const
    {
        return changes.filter(QRegularExpression("^%1="_s.arg(QLatin1String(key)))).value(0).section(u'=', 1);
    }
    QJsonObject configuration() const
    {
        QJsonObject result = reachable(peer.rules.isEmpty() ? near.port() : peer.port());
        for (const QString& one : changes) {
            const QString section = one.section(u'=', 0, 0).section(u'.', 0, 0);
            const QString key = one.section(u'=', 0, 0).section(u'.', 1);
            const QJsonValue value = QJsonDocument::fromJson('[' + one.section(u'=', 1).toUtf8() + ']').array().at(0);
            QJsonObject mqtt = result["mqtt"_s].toObject();
            QJsonObject keys = mqtt[section].toObject();
            keys[key] = value;
            mqtt[section] = keys;
            result[key.isEmpty() ? section : "mqtt"_s] = key.isEmpty() ? value : mqtt;
        }
        return result;
    }
    QString named(QString text) const
    {
        const QPair<QString, QString> names[] = {
            {"@open"_s, "listener @port 127.0.0.1; allow_anonymous true"_s},
            {"@users"_s, "allow_anonymous false; password_file "_s + file.file("users"_s)},
            {"@good"_s, file.listener("good"_s)},
            {"@stranger"_s, file.listener("stranger"_s)},
            {"@expired"_s, file.listener("expired"_s)},
            {"@certificates/"_s, file.file("x"_s).chopped(1)},
            {"@bridge"_s, "connection house-bridge-1-2; address 127.0.0.1:@far; remote_clientid house-bridge-1-2; "
                          "local_clientid local_house-bridge-1-2; cleansession false; restart_timeout 1"_s},
            {"@old"_s, "connection old; address 127.0.0.1:@far; remote_clientid old; local_clientid local_old"_s},
            {"@out"_s, "topic # out 2 forward-bridge/ remote-bridge/"_s},
            {"@in"_s, "topic # in 2 remote-bridge/ forward-bridge/"_s},
            {"@dynamic"_s, "plugin /usr/lib/%1/mosquitto_dynamic_security.so"_s.arg(
                               QDir("/usr/lib"_s).entryList({"*-linux-gnu*"_s}).value(0))},
            {"@far"_s, QString::number(far.port())}};
        for (const auto& [name, meaning] : names) {
            text.replace(name, meaning);
        }
        if (text.contains("acl "_l1)) { // the last of its settings
            writeFile(directory.filePath("acl"_s), text.section("acl "_l1, 1).replace("; "_l1, "\n"_l1).toUtf8());
            text = text.section("acl "_l1, 0, 0) + "acl_file "_s + directory.filePath("acl"_s);
        }
        return text;
    }

    // "server ID" (a default master), "follower ID [its master]", "encoded ID" (a default master), "panel ID", "says
    // TOPIC" (again and again), "claims ID" (presents itself as master again and again, and hears nothing), "kept ID"
    // (whose status is retained), "passing ID" (a panel that leaves while the doctor listens); before it "far" (at the
    // other broker) or "same" (with the doctor's configuration)
    void live(QStringList words)
    {
        const QString where = QStringList{"far"_s, "same"_s}.contains(words[0]) ? words.takeFirst() : QString();
        const int port = where == "far"_l1 ? far.port() : near.port();
        const QJsonObject own = where == "same"_l1 ? configuration() : reachable(port);
        const QString what = words[0];
        if (what == "panel"_l1 || what == "passing"_l1) {
            add(std::make_unique<bare_t<protoclient_t>>("1"_s, own, words[1], false));
            passing = what == "passing"_l1 ? nodes.back().get() : passing;
        } else if (what == "says"_l1) {
            speak(port, words[1], "{}", false);
        } else if (what == "kept"_l1) {
            speak(port, "house1/%1/all/status/DB/persistent"_s.arg(words[1]), "{}", true);
        } else if (what == "claims"_l1) {
            speak(port, "house1/%1/all/connection/presentation"_s.arg(words[1]),
                  QByteArray(R"({"clientid":"@","type":"server","connected":true,"masterid":"@"})")
                      .replace('@', words[1].toLatin1()),
                  false);
        } else {
            auto server = std::make_unique<bare_t<protoserver_t>>("1"_s, own, what != "follower"_l1, words[1],
                                                                  what == "encoded"_l1);
            server->system->setMasterId(words.value(2));
            add(std::move(server));
        }
    }
    // Retained, or again and again.
    void speak(int port, const QString& topic, const QByteArray& payload, bool retain)
    {
        auto voice =
            std::make_unique<comunication::mosquittopp::mosquittoqt>("voice%1"_s.arg(voices.size()), true, true);
        voice->connect_async("127.0.0.1"_s, port, 60);
        const auto say = [=, client = voice.get()] {
            client->publish(nullptr, "forward-bridge/local/"_l1 + topic, "{\"d\":%1}"_s.arg(QLatin1String(payload)), 2,
                            retain);
        };
        say();
        auto* const timer = new QTimer(voice.get());
        QObject::connect(timer, &QTimer::timeout, voice.get(), say);
        timer->start(retain ? 1000000 : 300);
        voices.push_back(std::move(voice));
    }
    template <class Engine>
    void add(std::unique_ptr<Engine> engine)
    {
        engine->connect();
        nodes.push_back(std::move(engine));
    }

    const certificates_t& file;
    QTemporaryDir directory;
    peer_t peer;
    broker_t near;
    broker_t far;
    const QStringList changes;
    std::vector<std::unique_ptr<protobase_t>> nodes;
    protobase_t* passing = nullptr;
    std::vector<std::unique_ptr<comunication::mosquittopp::mosquittoqt>> voices;
};

} // namespace

class tool_doctor : public QObject {
    Q_OBJECT

    const certificates_t certificates;
    std::map<QString, std::unique_ptr<house_t>> houses;

    // name | broker | who lives there | configuration and call | what is said; ... (nothing: all is fine)
    static constexpr char rows[] = R"(
twins        | @open                     | server tarnel-server-1; panel panel-1; panel panel-1 | | client ids: panel-1 comes and goes: two nodes have this client id
healthy      | @open; @bridge; @out; @in | server tarnel-server-1; far follower tarnel-server-2; panel panel-1; passing panel-2 | house={"rank": 1} |
status of another | @open; @bridge; @out; @in | server tarnel-server-1; far follower tarnel-server-2; kept tarnel-server-2 | | Nothing is wrong; note   retained status: the broker keeps status of tarnel-server-2, which is not master
healthy, closed | @good; @users; acl user bridge; topic read $SYS/#; topic readwrite +/local/house1/# | same server tarnel-server-1 | security.tls_enable=true; security.ca_file="@certificates/ca"; connect.username="bridge"; connect.password="wordofpass" |
any name     | @stranger                 | same server tarnel-server-1 | security.tls_enable=true; security.tls_insecure=true; security.ca_file="@certificates/ca" | Nothing is wrong; note   TLS: the certificate of the broker may be for any name
a panel's lists | @open; acl topic read #; topic write +/local/+/+/+/connection/#; topic write +/local/+/+/+/command/#; topic write +/local/+/+/+/request/# | server tarnel-server-1 | | Nothing is wrong; note   own echo: status and notification do not come back; that of a panel only
no file      |                           |                  | file=none                  | configuration: ; cannot be read; there is no such file
no JSON      |                           |                  | file={"mqtt": {},}         | is no JSON; line 1, column 14
no object    |                           |                  | file={"mqtq": {}}          | there is no object "mqtt"
a key        |                           |                  | global.prot=1884           | Unknown key "mqtt.global.prot"; is "mqtt.global.port" meant?
a type       |                           |                  | global.port="1883"         | mqtt.global.port: "1883", allowed: a whole number from 1 to 65535; the default counts
no id        |                           |                  | global.installation_id=""  | the installation id is empty; of letters and digits
an odd id    |                           |                  | global.installation_id="my-house" | the installation id "my-house" has other characters; no packet of the house is recognised
no host      |                           |                  | global.host=""             | configuration: no broker is named
a URL        |                           |                  | global.host="user@box1"    | configuration: the name of the broker is a URL; mqtt.global.host has a / or an @
no user name |                           |                  | connect.password="wordofpass" | configuration: there is a password without a user name
not encrypted |                          |                  | security.tls_insecure=true | configuration: the link is not encrypted, though tls_insecure is set
rank         |                           |                  | house={"rank": "1"}        | house.rank: "1", allowed
name         |                           |                  | global.host="broker.invalid" | name: the name broker.invalid leads nowhere; is mqtt.global.host spelled right
nobody       |                           |                  | global.port=1              | TCP: nothing answers at 127.0.0.1:1; nobody listens there; does mosquitto run there
no broker    | peer ACCEPT               |                  |                            | broker: what answers at; does not behave like a broker; does not answer, is it a broker?
untrusted    | @good                     |                  | security.tls_enable=true; security.ca_file="@certificates/stranger" | TLS: ; was not signed by an authority in; has to hold the certificate of the authority
wrong name   | @stranger                 |                  | security.tls_enable=true; security.ca_file="@certificates/ca" | TLS: certificate of host 127.0.0.1 is for panel.example; set mqtt.global.host to one of these names
expired      | @expired                  |                  | security.tls_enable=true; security.ca_file="@certificates/ca" | TLS: certificate of host 127.0.0.1 has expired; put a new certificate at the broker
no ca        |                           |                  | security.tls_enable=true   | configuration: TLS is on, and no certificates to trust are named; mqtt.security.ca_file
half a ca    | @good                     |                  | security.tls_enable=true; security.ca_file="@certificates/half" | holds no whole certificate
TLS to plain | @open                     |                  | security.tls_enable=true; security.ca_file="@certificates/ca" | TLS: the other side; is this a port without TLS?; take the port of the broker that has TLS
plain to TLS | @good                     |                  |                            | TLS: the broker at 127.0.0.1:; does not understand an open link; set mqtt.security.tls_enable
no user      | @open; @users             |                  |                            | credentials: the broker wants a user name and a password
bad password | @open; @users             |                  | connect.username="bridge"; connect.password="passofword" | credentials: the broker does not let in the user bridge; mosquitto_passwd
no QoS 2     | peer CONNECT 20020000, SUBSCRIBE 9003000102, SUBSCRIBE 9003000202, SUBSCRIBE 9003000302, SUBSCRIBE 9003000402, PUBLISH 40020005 | | | broker: the broker does not speak QoS 2, which all nodes use
refused id   | peer CONNECT 20020002     |                  | id=odd                     | client id: the broker refuses the client id odd
stolen id    | @open                     | panel twin       | id=twin                    | client id: somebody else has the client id twin; give every node an id of its own
no listening | @open; @dynamic; plugin_opt_config_file @certificates/rules | | | own echo: the broker refuses the subscription of +/local/house1/#; allow reading
no publishing | @open; acl topic read #; topic readwrite forward-bridge/local/house1/tarnel-server-1/# | server tarnel-server-1; says house1/tarnel-server-1/all/status/a | | own echo: what is published on forward-bridge/ does not come back; others are heard there, so it is publishing; "topic readwrite +/local/house1/#"
two kinds    | @open; acl topic readwrite #; topic deny +/local/+/+/+/request/#; topic deny +/local/+/+/+/status/# | server tarnel-server-1 | | own echo: status and request do not come back
nobody here  | @open                     |                  |                            | installation: nobody is in installation house1; does the server run
elsewhere    | @open                     | says house9/panel/all/status/a | | installation: nobody speaks in installation house1, but in house9; is one of these meant
no master    | @open                     | follower tarnel-server-1 |                    | master: there is no master; tarnel-server-1 answered, and does not call itself master; setMaster()
two masters  | @open                     | server tarnel-server-1; server tarnel-server-2 | | master: 2 masters: tarnel-server-1 and tarnel-server-2; they share this broker
no answer    | @open                     | follower tarnel-server-1 tarnel-server-9 |    | master: the master tarnel-server-9 does not answer; tarnel-server-1 takes it for the master
two halves   | @open; @old; @in          | claims tarnel-server-1; far claims tarnel-server-2 | | master: 2 masters: tarnel-server-1 and tarnel-server-2; their bridges may be down
deaf master  | @open                     | claims tarnel-server-1 |                      | master: the master tarnel-server-1 does not answer; it is heard; may its user read +/local/house1/+/own_server/#
deaf and far | @open; @old; @in          | follower tarnel-server-1; far claims tarnel-server-2 | | master: the master tarnel-server-2 does not answer; it is heard; a bridge may carry one way only
sharing      | @open                     | server tarnel-server-1; follower tarnel-server-2 | | servers: tarnel-server-1 and tarnel-server-2 share this broker; one server for each broker
lost panel   | @open                     | server tarnel-server-1; says house1/panel-1/tarnel-server-9/request/DB/realtime | | followers: panel-1 follows tarnel-server-9, which is not master; tarnel-server-1 is master; publish_presentation("all")
encoding     | @open                     | encoded tarnel-server-1 |                     | encoding: encoding is on at tarnel-server-1; setEncoding(false)
bridge down  | @open; connection house-bridge-1-2; remote_clientid house-bridge-1-2; local_clientid house-bridge-1-2; @out; address 127.0.0.1:1 | server tarnel-server-1 | | bridges: house-bridge-1-2 is down; can this broker reach the other one
out only     | @open; @bridge; @out      | server tarnel-server-1; far follower tarnel-server-2 | | bridges: nothing comes from tarnel-server-2 over the bridge; which is up; "topic ... in 2 remote-bridge/ forward-bridge/"
in only      | @open; @bridge; @in       | server tarnel-server-1; far says house1/tarnel-server-2/all/status/a | | carries one way only: tarnel-server-2 is heard and does not hear us
both         | @open; @bridge; topic # both 2 | server tarnel-server-1; far follower tarnel-server-2 | | leaves forward-bridge/ as it is; two topic lines instead of "both"
loop         | @open; @bridge; @out; @in; @old; topic # in 2 remote-bridge/ remote-bridge/ | server tarnel-server-1; far follower tarnel-server-2 | | bridges: what is said here comes back under remote-bridge/
doubled      | @open; @bridge; @out; @in; @old; @out | server tarnel-server-1; far follower tarnel-server-2 | | bridges: the answer of tarnel-server-2 comes 2 times; a bridge at both ends
clock        | @open                     | server tarnel-server-1 | TZ=XXX-0:10          | clocks: the clock of tarnel-server-1 is 10 min behind this machine's; set the clocks by the network
time zone    | @open                     | server tarnel-server-1 | TZ=XXX3              | clocks: the clock of tarnel-server-1 is 3 h 0 min ahead of; set the same time zone
old status   | @open                     | server tarnel-server-1; kept tarnel-server-9 | | retained status: the broker keeps old status of tarnel-server-9, which does not answer; mosquitto_pub -r -n -t
copies       | @open; allow_duplicate_messages true | server tarnel-server-1 |    | sends a packet once for each subscription; Nothing is wrong
tells nothing | @open; acl topic readwrite #; topic deny $SYS/broker/# | server tarnel-server-1 | | bridges: this broker does not tell of any; Nothing is wrong
no retaining | @open; retain_available false | server tarnel-server-1 |                  | broker: the broker keeps no retained packets; it has ended a connection over one; "retain_available true"
short packets | @open; message_size_limit 20000 | server tarnel-server-1 |               | broker: the broker does not pass on packets of 64 KiB; raise message_size_limit
limited packets | @open; max_packet_size 20000 | server tarnel-server-1 |               | broker: the broker does not pass on packets of 64 KiB; raise max_packet_size
)";

private Q_SLOTS:
    void initTestCase()
    {
        ::utility::logs::classlogs::getInstance()->setLevel(::utility::logs::fatal);
        QProcess::execute("mosquitto_passwd"_s,
                          {"-b"_s, "-c"_s, certificates.file("users"_s), "bridge"_s, "wordofpass"_s});
        writeFile(certificates.file("rules"_s), R"({"defaultACLAccess": {"subscribe": false}})");
        QStringList lines = QString::fromLatin1(rows).split(u'\n', Qt::SkipEmptyParts);
        for (const QString& line : lines) {
            houses[line.section(u'|', 0, 0).trimmed()] =
                std::make_unique<house_t>(certificates, line.section(u'|', 1, 1).trimmed(),
                                          line.section(u'|', 2, 2).trimmed(), line.section(u'|', 3, 3).trimmed());
        }
        for (const QString& line : lines) {
            house_t& house = *houses[line.section(u'|', 0, 0).trimmed()];
            QTRY_VERIFY2(house.isReady() || line.startsWith("twins"_l1), qPrintable(line));
            const auto busy = [this] { // more at once would make each other wait
                return std::count_if(houses.begin(), houses.end(), [](const auto& one) {
                    return one.second->doctor.state() != QProcess::NotRunning;
                });
            };
            QTRY_VERIFY_WITH_TIMEOUT(busy() < 20, 20000);
            house.call();
        }
        for (const auto& [name, house] : houses) {
            QTRY_VERIFY2_WITH_TIMEOUT(house->doctor.state() == QProcess::NotRunning, qPrintable(name), 20000);
        }
    }

    void finds_data() { addRows(rows); }
    void finds()
    {
        QFETCH(QStringList, cells);
        house_t& house = *houses.at(cells[0]);
        const QString text = QString::fromUtf8(house.doctor.readAll());
        const QString fine = "Nothing is wrong"_s;
        for (const QString& words : parts(cells[4].isEmpty() ? fine : cells[4])) {
            QVERIFY2(text.contains(words), qPrintable(text));
        }
        QVERIFY2(text.count("WRONG "_l1) == (text.contains(fine) ? 0 : 1), qPrintable(text));
        QCOMPARE(house.doctor.exitCode(), text.contains(fine) ? 0 : 1);
        QVERIFY(!text.contains("ofpass"_l1) && !text.contains("ofword"_l1));
    }

    // It takes leave as a panel does, and nothing of its probes stays.
    void leavesNothing()
    {
        const house_t& house = *houses.at("healthy"_s);
        QProcess listener;
        listener.start("mosquitto_sub"_s, {"-p"_s, QString::number(house.port()), "-t"_s, "#"_s, "-W"_s, "1"_s});
        QVERIFY(listener.waitForFinished());
        QCOMPARE(listener.readAllStandardOutput(), QByteArray());
        QTRY_COMPARE(house.clients(), QStringList("panel-1"_s));
    }

    void forPrograms()
    {
        QProcess doctor;
        doctor.start(QStringLiteral(FLOTROFOBUL_COMMAND), {"doctor"_s, "--config"_s, "/none"_s, "--json"_s});
        doctor.waitForFinished();
        const QJsonObject result = QJsonDocument::fromJson(doctor.readAllStandardOutput()).object();
        const QJsonObject step = result["steps"_s].toArray().at(0).toObject();
        QCOMPARE(result["ok"_s], QJsonValue(false));
        QCOMPARE(step["step"_s], QJsonValue("configuration"_s));
        QCOMPARE(step["findings"_s].toArray().at(0).toObject(), parse(R"({"weight": "fault",
            "what": "/none cannot be read", "because": "there is no such file",
            "todo": "is the path right, and may this user read the file?"})"));
    }
};

QTEST_GUILESS_MAIN(tool_doctor)
#include "tool_doctor.moc"
