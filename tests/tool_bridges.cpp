// SPDX-License-Identifier: MIT
// The bridges of a house as the command writes and tries them, between real brokers; and what it refuses.
#include "support/certificates.h"
#include "support/client.h"
#include "support/command.h"

#include <flotrofobul/testkit/broker.h>

#include <house_plan/bridge_lines.h>

#include <QtTest/QtTest>

using comunication::testkit::broker_t;

using namespace comunication::tools;

namespace {

QString readFile(const QString& path)
{
    QFile file(path);
    file.open(QIODevice::ReadOnly);
    return QString::fromUtf8(file.readAll());
}

/// Boxes "1", "2" ... and a cloud broker "0", joined by the lines that the command has written. What stands for what in
/// its texts is in named(); @1 is the port of box 1.
class house_t {
public:
    /// rest: what the description has beside installation and boxes. changes: what is other than written, "1 x" a
    /// broker that does not run, "1 -text" the lines with a text taken out, "1 +line" a line more, "1 =" other
    /// settings.
    house_t(int boxes, const QString& rest, const QStringList& changes, const QString& settings)
    {
        QStringList list;
        for (int i = 0; i <= boxes; ++i) {
            const QString own =
                changes.filter(QRegularExpression("^%1 ="_s.arg(i))).value(0, "1 ="_s + settings).mid(3);
            brokers.push_back(std::make_unique<broker_t>(named(own) + "\ninclude_dir "_s + folder(i)));
            QDir().mkdir(folder(i));
            list << R"({"server": %1, "host": "127.0.0.1", "port": @%1})"_s.arg(i);
        }
        list.removeFirst();
        const QString text = R"({"installation_id": "house1", "boxes": [%1]%2})"_s;
        writeFile(description(), named(text.arg(list.join(u','), rest.isEmpty() ? rest : u',' + rest)).toUtf8());
        written = run_t({"bridges"_s, description(), "--out"_s, folder(0)}).text();
        for (int i = boxes; i > 0; --i) { // who is dialled comes up first
            QFile::rename(folder(0) + "/box-%1.conf"_s.arg(i), file(i));
            for (const QString& change : changes.filter(QRegularExpression("^%1 [-+]"_s.arg(i)))) {
                const QRegularExpression lines("^.*%1.*\n"_s.arg(QRegularExpression::escape(change.mid(3))),
                                               QRegularExpression::MultilineOption);
                const QString before = readFile(file(i));
                const QString after =
                    change[2] == u'-' ? QString(before).remove(lines) : before + named(change.mid(3)) + u'\n';
                writeFile(file(i), after.toUtf8());
            }
        }
        for (int i = boxes; i >= 0; --i) {
            if (!changes.contains("%1 x"_s.arg(i))) {
                brokers[std::size_t(i)]->start();
            }
        }
    }

    QString named(QString text) const
    {
        const QPair<QString, QString> names[] = {
            {"@one"_s, R"("lanes": 1)"_s},
            {"@cloud"_s, R"("cloud": {"host": "127.0.0.1", "port": @0, "bridge_key": "KEY")"_s}, // to be closed
            {"@old"_s, "connection old\nremote_clientid old\naddress 127.0.0.1:@2"_s},
            {"@acl"_s, "\nacl_file /dev/null"_s},
            {"@open"_s, "listener @port 127.0.0.1\nallow_anonymous true"_s},
            {"@closed"_s, "listener @port 127.0.0.1\nallow_anonymous false"_s}};
        for (const auto& [name, meaning] : names) {
            text.replace(name, meaning);
        }
        for (std::size_t i = 0; i < brokers.size(); ++i) {
            text.replace(u'@' + QString::number(i), QString::number(brokers[i]->port()));
        }
        return text;
    }
    QString folder(int i) const { return directory.filePath(QString::number(i)); }
    QString file(int i) const { return "%1/box-%2.conf"_s.arg(folder(i)).arg(i); }
    QString description() const { return directory.filePath("house.json"_s); }

    QString written;
    std::unique_ptr<run_t> check;

private:
    QTemporaryDir directory;
    std::vector<std::unique_ptr<broker_t>> brokers;
};

} // namespace

class tool_bridges : public QObject {
    Q_OBJECT

    const certificates_t certificates;
    std::map<QString, std::unique_ptr<house_t>> houses; ///< all live at once, to save time

    // name | boxes | rest of the description | changes; ... | what the check says; ... (nothing: all is fine)
    static constexpr char rows[] = R"(
mesh       | 3 | @cloud, "box": 3} ||
one lane   | 3 | @one, "bridges": [{"from": 2, "to": 1}] ||
out only   | 3 | @cloud, "box": 3}, "shape": "out only" ||
star       | 3 | @cloud, "box": 3}, "shape": "star", "hub": 1 ||
cloud at the hub | 3 | @cloud, "notifications": false}, @one, "shape": "star", "hub": 2 ||
tls        | 2 | "tls_enable": true, "ca_file": "@ca", "username": "bridge", "password": "wordofpass" ||
a line     | 2 | | 1 -status/# in | box 2 to box 1: status does not arrive; house-bridge-1-2 at box 1 is up
no file    | 2 | | 1 -              | box 1 to box 2: nothing arrives; housedata-1-2 at box 1 is not known there
both       | 2 | @one | 1 -topic; 1 +topic # both 2 | box 1 to box 2: nothing arrives; box 2 to box 1: nothing; it arrives under forward-bridge/, as it was said
an address | 2 | @one, "bridges": [{"from": 1, "to": 2, "host": "localhost", "port": 1}] || house-bridge-1-2 at box 1 is down: can that box reach localhost:1,
both ends  | 2 | "bridges": [{"from": 2, "to": 1}] | 1 +@old; 1 +topic local/+/+/+/command/# out 2 forward-bridge/ remote-bridge/ | box 1 to box 2: command arrives twice; box 2 reports the bridge old, which the description does not have
loop       | 2 | | 1 +@old; 1 +topic # in 2 remote-bridge/ remote-bridge/ | box 1: what it says comes back to it, once, under remote-bridge/
nobody     | 2 | | 2 x | box 2: Connection to 127.0.0.1:@2 failed: nobody listens there
password   | 2 | "username": "bridge", "password": "wordofpass" | 2 =@closed | box 2: ; the broker does not authorise this client
access     | 2 | | 1 =@open@acl | box 1: what is published on forward-bridge/ does not come back from its own broker
)";

private Q_SLOTS:
    void initTestCase()
    {
        const QString users = certificates.file("users"_s);
        QProcess::execute("mosquitto_passwd"_s, {"-b"_s, "-c"_s, users, "bridge"_s, "wordofpass"_s});
        const QString closed =
            certificates.listener("good"_s).remove("allow_anonymous true"_l1) + "password_file "_s + users;
        const QStringList lines = QString::fromLatin1(rows).split(u'\n', Qt::SkipEmptyParts);
        for (const QString& line : lines) {
            const QStringList cells = line.split(u'|');
            const QString rest = cells[2].trimmed().replace("@ca"_l1, certificates.file("ca"_s));
            const QString settings = line.startsWith("tls"_l1) ? closed : "@open"_s;
            auto house = std::make_unique<house_t>(cells[1].toInt(), rest, parts(cells[3]), settings);
            house->check = std::make_unique<run_t>(QStringList{"bridges"_s, "--check"_s, house->description(),
                                                               "--timeout"_s, cells[4].isEmpty() ? "20"_s : "5"_s});
            houses[cells[0].trimmed()] = std::move(house);
        }
    }

    void check_data() { addRows(rows); }
    void check()
    {
        QFETCH(QStringList, cells);
        house_t& house = *houses.at(cells[0]);
        const QString text = house.check->text();
        const QString fine = "each of 5 kinds of packets arrived once"_s;
        for (const QString& words : parts(cells[4].isEmpty() ? fine : cells[4])) {
            QVERIFY2(text.contains(house.named(words)), qPrintable(text));
        }
        QCOMPARE(house.check->code(), cells[4].isEmpty() ? 0 : 1);
        QVERIFY(!QString(text + house.written).contains("wordofpass"_l1));
    }

    // Some brokers throw out who says something under $SYS.
    void silence()
    {
        const QRegularExpression keyAndSilence("remote_clientid KEY\n[^\n]*(\n.+)*\nnotifications_local_only true\n"_s);
        QVERIFY(readFile(houses.at("cloud at the hub"_s)->file(2)).contains(keyAndSilence));
        QCOMPARE(readFile(houses.at("cloud at the hub"_s)->file(2)).count("local_only"_l1), 1);
        QVERIFY(!readFile(houses.at("star"_s)->file(1)).contains("local_only"_l1));
    }

    // Each description lacks one thing; all that is said about it.
    void refusals_data()
    {
        addRows(R"(
no JSON                 | {]                                    | line 1, column 3 is no JSON
no object               | []                                    | line 1, column 1 has to be an object
installation            | "installation_id": ""                 | installation_id is missing
installation's letters  | "installation_id": "my-house"         | installation_id may have letters and digits only
a key                   | "lane": 1                             | lane is no key that is known here; is "lanes" meant?
a far key               | "zzzz": 1                             | zzzz is no key that is known here; there are: installation_id, shape
a key of a box          | "boxes": [{"server": 1, "host": "a", "prot": 1}] | boxes[0].prot is no key that is known here; is "port" meant?
type                    | "lanes": "2"                          | lanes has to be a whole number
lanes                   | "lanes": 3                            | lanes has to be 1 or 2
shape                   | "shape": "ring"                       | shape has to be "mesh", "out only" or "star"
both                    | "shape": "both"                       | shape is "both", with which the far side is never heard
both for a pair         | "bridges": [{"from": 1, "to": 2, "direction": "both"}] | bridges[0].direction is "both", with which
hub                     | "shape": "star"                       | hub is missing
strange hub             | "shape": "star", "hub": 4             | hub names "4", and no box has that server
hub of a mesh           | "hub": 1                              | hub is of use in a star only
list                    | "boxes": {}                           | boxes has to be a list
no box                  | "boxes": []                           | boxes has no box
a box                   | "boxes": [7]                          | boxes[0] has to be an object
server                  | "boxes": [{"host": "a"}]              | boxes[0].server is missing
hyphen                  | "boxes": [{"server": "a-b", "host": "a"}] | boxes[0].server has a hyphen, which would shift the pieces
blank                   | "boxes": [{"server": "a b", "host": "a"}] | boxes[0].server may have letters, digits and underscores only
host                    | "boxes": [{"server": 1}]              | boxes[0].host is missing
colon                   | "boxes": [{"server": 1, "host": "a:1883"}] | boxes[0].host has a colon
brackets                | "boxes": [{"server": 1, "host": "[::1]"}] | boxes[0].host has a colon
IPv6 and port           | "boxes": [{"server": 1, "host": "::1", "port": 0}] | boxes[0].port has to be from 1 to 65535
line                    | "boxes": [{"server": 1, "host": "a\nb"}] | boxes[0].host has a blank or a control character
port                    | "boxes": [{"server": 1, "host": "a", "port": 0}] | boxes[0].port has to be from 1 to 65535
same server             | "boxes": [{"server": 1, "host": "a"}, {"server": "1", "host": "b"}] | boxes[1].server is "1" like that of boxes[0]
same address            | "boxes": [{"server": 1, "host": "a"}, {"server": 2, "host": "A"}] | boxes[1].host is, with its port, the broker of boxes[0]
masters                 | "boxes": [{"server": 1, "host": "a", "master": true}, {"server": 2, "host": "b", "master": true}] | boxes[1].master makes a second default master beside boxes[0]
user                    | "boxes": [{"server": 1, "host": "a", "password": "p"}] | boxes[0].username is missing
password                | "boxes": [{"server": 1, "host": "a", "username": "u", "password": "p\nx"}] | boxes[0].password has a line break
trust                   | "boxes": [{"server": 1, "host": "a", "tls_enable": true}] | boxes[0].ca_file is missing
clear text              | "boxes": [{"server": 1, "host": "a", "ca_file": "c"}] | boxes[0].tls_enable is not true
key                     | "cloud": {"host": "c", "box": 1}      | cloud.bridge_key is missing
shifting key            | "cloud": {"host": "c", "box": 1, "bridge_key": "a-b-c-2"} | cloud.bridge_key has pieces that read like a bridge between servers "c" and "2"
gate                    | "cloud": {"host": "c", "bridge_key": "K"} | cloud.box is missing
cloud at home           | "cloud": {"host": "a", "box": 1, "bridge_key": "K"} | cloud.host is, with its port, the broker of boxes[0]
two bridges             | "bridges": [{"from": 1, "to": 2}, {"from": 2, "to": 1}] | bridges[1] is a second bridge for boxes 2 and 1 beside bridges[0]
itself                  | "bridges": [{"from": 1, "to": 1}]     | bridges[0] joins box 1 with itself
nowhere                 | "bridges": [{"from": 1}]              | bridges[0].to is missing
not the hub             | "shape": "star", "hub": 1, "bridges": [{"from": 2, "to": 1}] | bridges[0].from is not the hub
one name                | "bridges": [{"from": 1, "to": 2, "local_clientid": "a-b-1-2"}] | bridges[0].remote_clientid is missing
shifted name            | "bridges": [{"from": 1, "to": 2, "remote_clientid": "a-b-1-2", "local_clientid": "local-a-b-1-2"}] | bridges[0].local_clientid is "local-a-b-1-2", but
)");
    }
    void refusals()
    {
        QFETCH(QStringList, cells);
        QJsonObject house{{"installation_id"_s, "house1"_s}};
        house["boxes"_s] =
            QJsonDocument::fromJson(R"([{"server": 1, "host": "a"}, {"server": 2, "host": "b"}])").array();
        const QJsonObject other = QJsonDocument::fromJson("{%1}"_s.arg(cells[1]).toUtf8()).object();
        for (auto it = other.begin(); it != other.end(); ++it) {
            house[it.key()] = it.value();
        }
        const reading_t reading = readHousePlan(other.isEmpty() ? cells[1].toUtf8() : QJsonDocument(house).toJson());
        QCOMPARE(reading.faults.size(), 1);
        const QString said = reading.faults[0].place + u' ' + reading.faults[0].reason;
        QVERIFY2(said.startsWith(cells[2]), qPrintable(said));
    }

    // Passwords are for their owner only, and nothing of somebody else's is lost.
    void files()
    {
        const house_t house(2, R"("username": "bridge", "password": "wordofpass")"_s, {"0 x"_s, "1 x"_s, "2 x"_s}, {});
        const QString ours = house.file(1);
        const QString text = readFile(ours);
        const auto mine = QFile::ReadOwner | QFile::WriteOwner | QFile::ReadUser | QFile::WriteUser;
        QStringList lines = text.split(u'\n', Qt::SkipEmptyParts);
        lines = lines.filter(QRegularExpression("^[^#]"_s)); // and topics, which the checks try, but for "master"
        QCOMPARE(lines.filter("topic local/+/+/+/master "_s).size(), 2);
        lines = lines.filter(QRegularExpression("^(?!topic)"_s));
        const QString block = "connection %1 address 127.0.0.1:@2 remote_clientid %1 local_clientid local_%1 "
                              "remote_username bridge remote_password wordofpass cleansession %2 "
                              "notifications true keepalive_interval 5 restart_timeout 1 3"_s;
        QCOMPARE(lines.join(u' '), house.named(block.arg("house-bridge-1-2"_s, "false"_s) + u' ' +
                                               block.arg("housedata-1-2"_s, "true"_s)));
        QCOMPARE(QFile(ours).permissions(), mine);

        for (const char* words : {"(owner root or mosquitto, mode 0600: it holds passwords), take older bridges away",
                                  "Is dialled by 1: its mosquitto needs a listener that they reach on port @2"}) {
            QVERIFY2(house.written.contains(house.named(QString::fromLatin1(words))), qPrintable(house.written));
        }

        writeFile(ours, "by hand\n");
        QFile(ours).setPermissions(mine | QFile::ReadOther);
        const QStringList arguments{"bridges"_s, house.description(), "--out"_s, house.folder(1)};
        run_t refused(arguments);
        QCOMPARE(refused.code(), 1);
        QVERIFY(refused.text().contains(ours + " is there and was not written by this command; nothing is written"_l1));
        QVERIFY(!QFile::exists(house.folder(1) + "/box-2.conf"_l1));
        QCOMPARE(text.count("# What the nodes of this box say, for that box."_l1), 1);
        for (const QString& more : {"--force"_s, "--json"_s}) { // the second time it is our own
            run_t again(arguments + QStringList(more));
            QCOMPARE(again.code(), 0);
            QCOMPARE(again.text().contains("\"ok\": true"_l1), more == "--json"_l1);
            QCOMPARE(readFile(ours), text);
            QCOMPARE(QFile(ours).permissions(), mine);
        }
    }

    // Exit codes, and the results for programs; @ is a sound description of a house that does not run.
    void calls()
    {
        house_t house(2, {}, {"0 x"_s, "1 x"_s, "2 x"_s}, {});
        const QString bad = house.folder(1) + "/bad"_s;
        writeFile(bad, "{}");
        for (const char* line : {"2 ", "2 bridge", "2 bridges", "2 bridges /none", "2 bridges @ @",
                                 "2 bridges @ --unknown", "2 bridges @ --timeout x", "2 bridges @ --check --out b",
                                 "0 --help", "0 --version", "0 bridges --help", "0 bridges @", "1 bridges BAD"}) {
            const QString call = QString::fromLatin1(line).replace(u'@', house.description()).replace("BAD"_l1, bad);
            QVERIFY2(run_t(call.mid(2).split(u' ', Qt::SkipEmptyParts)).code() == call.left(1).toInt(), line);
        }
        const auto json = [](const QStringList& arguments) {
            return QJsonDocument::fromJson(run_t(arguments + QStringList("--json"_s)).text().toUtf8()).object();
        };
        QCOMPARE(json({"bridges"_s, bad})["faults"_s].toArray().size(), 2); // neither installation nor boxes
        const QJsonObject found = json({"bridges"_s, "--check"_s, house.description()});
        QCOMPARE(found["ok"_s], QJsonValue(false));
        QCOMPARE(found["findings"_s].toArray()[1].toObject()["from"_s], QJsonValue("2"_s));
        QCOMPARE(found["brokers"_s].toArray()[0].toObject()["ready"_s], QJsonValue(false));
    }
};

QTEST_GUILESS_MAIN(tool_bridges)
#include "tool_bridges.moc"
