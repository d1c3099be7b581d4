// SPDX-License-Identifier: MIT
// What a house says, recorded by the command at one broker and said again at another, and what watch makes of it.
#include "support/certificates.h"
#include "support/client.h"
#include "support/command.h"

#include <flotrofobul/testkit/broker.h>

using comunication::testkit::broker_t;
using comunication::testkit::freePort;

namespace {

struct said_t {
    QString topic;
    QByteArray payload;
    int qos;
    bool retain;
};

} // namespace

class tool_recording : public QObject {
    Q_OBJECT

    QTemporaryDir directory;
    broker_t house;
    broker_t other;
    std::unique_ptr<client_t> speaker;
    std::unique_ptr<run_t> recorder;
    std::unique_ptr<client_t> replayed;
    const certificates_t certificates;
    broker_t closed{certificates.listener("good"_s).replace("anonymous true"_l1, "anonymous false"_l1) +
                    "password_file "_l1 + certificates.file("users"_s)};

    broker_t both{"listener @port 127.0.0.1\nlistener @port ::1\nallow_anonymous true"_s};

    static QString at(const broker_t& broker) { return "127.0.0.1:%1"_s.arg(broker.port()); }
    QString path(const QString& name) const { return directory.filePath(name); }
    static QStringList linesOf(const QString& path)
    {
        QFile file(path);
        file.open(QIODevice::ReadOnly);
        QStringList lines = QString::fromUtf8(file.readAll()).split(u'\n', Qt::SkipEmptyParts);
        return lines.mid(1).filter(QRegularExpression("\"topic\":\"(?!\\$SYS)"_s));
    }

private Q_SLOTS:
    void initTestCase() { QVERIFY(house.start() && other.start()); }

    // The same packets in the same order, but for passwords, and not to the broker that they come from.
    void again()
    {
        const QString status = "forward-bridge/local/house1/tarnel-server-1/all/status/DB/x"_s;
        const QByteArray secret = R"({"d":{"user":"u","password":"wordofpass"}})";
        const QByteArray hidden = R"x({"d":{"password":"(not shown)","user":"u"}})x";
        // What has a lower quality of service stands first: later it could overtake on its way to the recorder.
        QVector<said_t> said{{"plain"_s, QByteArray(), 0, false},
                             {"bytes"_s, QByteArray("\xff\0\x01", 3), 1, false},
                             {status, "{\"d\":\"\\\" \\\\ \\u00e9 \xc3\xa9\"}", 2, true},
                             {status, secret, 2, false},
                             {status, secret.toBase64(), 2, false},
                             {status, QByteArray("{\n" + secret.mid(1)).toBase64() + '\n', 2, false}};
        for (int i = 0; i < 300; ++i) {
            said << said_t{status, QByteArray::number(i), 2, false};
        }
        client_t publisher;
        QVERIFY(publisher.joins(house.port()));
        run_t record({"record"_s, "--host"_s, at(house), "--installation"_s, "house1"_s, path("one"_s)});
        QVERIFY(record.says("Recording"_s));
        for (const said_t& one : said) {
            QCOMPARE(publisher.publishRaw(nullptr, one.topic, one.payload, one.qos, one.retain), 0);
        }
        QTRY_COMPARE(linesOf(path("one"_s)).size(), said.size());
        record.kill(); // nothing that was heard is lost
        record.waitForFinished();

        const QStringList recorded = linesOf(path("one"_s));
        QCOMPARE(recorded.size(), said.size());
        QVERIFY(!recorded.join(QString()).contains("wordofpass"_l1));
        QVERIFY(!recorded.join(QString()).contains(QString::fromLatin1(secret.toBase64())));
        QCOMPARE(QFile(path("one"_s)).permissions() & (QFile::ReadGroup | QFile::ReadOther), QFile::Permissions());

        run_t refused({"replay"_s, "--host"_s, "localhost:%1"_s.arg(house.port()), path("one"_s)});
        QCOMPARE(refused.code(), 1);
        QVERIFY(refused.says("is the broker that was recorded"_s));
        QCOMPARE(publisher.messages, QStringList());

        QVector<said_t> heard;
        client_t listener;
        listener.setRawPayloads(true);
        connect(&listener, &client_t::onRawMessage, this,
                [&](int, const QString& topic, const QByteArray& payload, int qos, bool retain) {
                    heard << said_t{topic, payload, qos, retain};
                });
        QVERIFY(listener.joins(other.port()));
        listener.subscribe(nullptr, "#"_s, 2);
        QTRY_COMPARE(listener.subscribed.size(), 2);
        run_t replay({"replay"_s, "--host"_s, at(other), "--speed"_s, "100"_s, path("one"_s)});
        QCOMPARE(replay.code(), 0);
        QTRY_COMPARE(heard.size(), said.size());
        for (int i = 0; i < said.size(); ++i) {
            const QByteArray expected = i == 3 ? hidden : i == 4 || i == 5 ? hidden.toBase64() : said[i].payload;
            QCOMPARE(heard[i].topic, said[i].topic);
            QCOMPARE(heard[i].payload, expected);
            QCOMPARE(heard[i].qos, said[i].qos);
        }
    }

    // topic | payload (b64: what is said in Base64) | what is recorded; nothing: the same
    void secrets_data()
    {
        speaker = std::make_unique<client_t>();
        QVERIFY(speaker->joins(house.port()));
        const QString file = writeFile(path("limit"_s), R"({"mqtt":{"connect":{"max_packet_bytes":1024}}})");
        recorder.reset(new run_t({"record"_s, "--config"_s, file, "--host"_s, at(house), path("secret"_s)}));
        QVERIFY(recorder->says("Recording"_s));
        addRows(R"x(
a/b        | {"d":{"user":"u","Pwd":"x"}}             | {"d":{"Pwd":"(not shown)","user":"u"}}
a/b        | {"d":{"clientSecret":5}}                 | {"d":{"clientSecret":"(not shown)"}}
a/b        | [{"a":1,"id":"pwd"},{"a":1,"field":"pwd"},{"a":1,"label":"pwd"},{"a":1,"property":"pwd"},{"a":1,"option":"pwd"},{"a":1,"parameter":"pwd"},{"a":1,"setting":"pwd"},{"a":1,"other":"x"}] | [{"a":"~","id":"~"},{"a":"~","field":"~"},{"a":"~","label":"~"},{"a":"~","property":"~"},{"a":"~","option":"~"},{"a":"~","parameter":"~"},{"a":"~","setting":"~"},{"a":1,"other":"x"}]
a/b/       | {"d":{"apiToken":5,"on":true}}           | {"d":{"apiToken":"(not shown)","on":true}}
a/b        | [{"name":"password","value":"x"},{"name":"lamp","value":"x"}] | [{"name":"(not shown)","value":"(not shown)"},{"name":"lamp","value":"x"}]
a/b        | {"key":"wifi_token","new":["x",{"y":1}]} | {"key":"(not shown)","new":["(not shown)",{"y":"(not shown)"}]}
a/b        | {"room":"passage","compass":true}        |
a/b        | {"d":{"userPw":"x","API_KEY":"y","key":"z"}} | {"d":{"API_KEY":"(not shown)","key":"z","userPw":"(not shown)"}}
a/Passwd   | x                                        | (not shown)
token      | {"d":"x"}                                | {"d":"(not shown)"}
a/password | b64{"d":{"x":1}}                         | b64{"d":{"x":"(not shown)"}}
a/pwd      |                                          |
a/pass/b   | x                                        |
a/b        | b64[{"password":"x"}]                    | b64[{"password":"(not shown)"}]
a/b        | b64[{"degrees": 5}]                      |
a/b        | Word                                     |
a/b        | {"d":{"\u0070assword":"x"}}              | {"d":{"password":"(not shown)"}}
)x");
    }
    void secrets()
    {
        QFETCH(QStringList, cells);
        const auto bytes = [](const QString& cell) {
            return cell.startsWith("b64"_l1) ? cell.mid(3).toUtf8().toBase64() : cell.toUtf8();
        };
        const int before = linesOf(path("secret"_s)).size();
        QCOMPARE(speaker->publishRaw(nullptr, cells[0], bytes(cells[1]), 2, false), 0);
        QTRY_COMPARE(linesOf(path("secret"_s)).size(), before + 1);
        const QJsonObject line = QJsonDocument::fromJson(linesOf(path("secret"_s)).last().toUtf8()).object();
        const QString recorded = cells[cells[2].isEmpty() ? 1 : 2].replace(u'~', "(not shown)"_l1);
        QCOMPARE(line["payload"_s].toString().toUtf8(), bytes(recorded));
    }
    // What is too long is told at once, in the file, in the end and by the exit code.
    void tooLong()
    {
        speaker->publishRaw(nullptr, "long/"_s + QChar(0x202e) + u'b', QByteArray(1025, 'x'), 2, false);
        speaker->publishRaw(nullptr, "long/a"_s, QByteArray(1024, 'x'), 2, false);
        QTRY_VERIFY(linesOf(path("secret"_s)).last().contains("\"long/a\""_l1));
        QFile file(path("secret"_s));
        QVERIFY(file.open(QIODevice::ReadOnly) && file.readAll().contains("\"bytes\":1025,\"left_out\":\"long/"));
        recorder->signal(SIGINT);
        QCOMPARE(recorder->code(), 1);
        QVERIFY(recorder->says("A packet of 1025 bytes is left out, since \"max_packet_bytes\" is 1024: long/ b"_s));
        QVERIFY(recorder->says("1 packets are not in the file"_s));
        speaker.reset();
    }

    // At the times of the recording, and to where it ends; a flag of retained packets is kept, $SYS is left out.
    void timing()
    {
        QFile file(path("two"_s));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("{\"flotrofobul_recording\":1,\"broker\":\"box1:1883\"}\n"
                   "{\"at\":5,\"topic\":\"$SYS/broker/version\",\"payload\":\"x\"}\n"
                   "{\"at\":5,\"topic\":\"old\",\"qos\":1,\"retain\":true,\"payload\":\"first\"}\n"
                   "{\"at\":6,\"lost\":\"the link\"}\n"
                   "{\"at\":25,\"topic\":\"new\",\"qos\":1,\"retain\":false,\"payload\":\"second\"}\n"
                   "{\"at\":25,\"topic\":\"new\",\"qos\":1,\"retain\":fa");
        file.close();
        QElapsedTimer clock;
        client_t listener;
        QVERIFY(listener.joins(other.port()));
        listener.subscribe(nullptr, "new"_s, 1);
        listener.subscribe(nullptr, "old"_s, 1);
        run_t replay({"replay"_s, "--host"_s, at(other), "--speed"_s, "10"_s, file.fileName()});
        QTRY_VERIFY(listener.messages.contains("old 5 1 0 first"_s));
        clock.start();
        QTRY_VERIFY(listener.messages.contains("new 6 1 0 second"_s));
        QVERIFY2(qAbs(clock.elapsed() - 2000) < 300, qPrintable(QString::number(clock.elapsed())));
        QCOMPARE(replay.code(), 0);
        QVERIFY(replay.says("2 packets in 2.0"_s));
        QVERIFY(replay.says("line 6, the last one, is not whole"_s));
        QTRY_COMPARE(listener.messages.size(), 2);
        listener.disconnect_sync(); // they have one client id
        client_t later;
        QVERIFY(later.joins(other.port()));
        later.subscribe(nullptr, "old"_s, 1);
        QTRY_COMPARE(later.messages, QStringList("old 5 1 1 first"_s));
    }

    // name | lines, the heading first, with @ for "topic":"t","qos":1,"payload" | exit code | what is said | words
    void broken_data()
    {
        replayed = std::make_unique<client_t>();
        QVERIFY(replayed->joins(other.port()));
        replayed->subscribe(nullptr, "t"_s, 1);
        QTRY_COMPARE(replayed->subscribed.size(), 2);
        addRows(R"x(
middle      | {"at":0,@:"a"}; {"at":0,@; {"at":0,@:"b"}         | 1 | a   | is broken at line 3: it is read up to there
no object   | {"at":0,@:"a"}; 5; {"at":0,@:"b"}                 | 1 | a   | is broken at line 3: it is read up to there
empty line  | {"at":0,@:"a"}; ; {"at":0,@:"b"}                  | 1 | a   | is broken at line 3: it is read up to there
cut off     | {"at":0,@:"a"}; {"at":0,@:"b"}~                   | 0 | a   | is cut off: line 3, the last one, is not whole and is left out
wildcard    | {"at":0,"topic":"t/+","payload":"x"}; {"at":0,@:"b"} | 1 | b | 1 packets have a topic that cannot be published and are left out
other lines | {"at":0,@:"a"}; {"at":1,"left_out":"t"}; {"at":1,"back":""}; {"new":[]}; {"at":0,@:"b"} | 0 | a b | 2 packets in
backwards   | {"at":9000,@:"a"}; {"at":5,@:"b"}; {"at":9000,@:"c"} | 0 | a b c | 3 packets in 0.
wrong types | {"at":"0",@:"a"}; {"at":0,"topic":"t","qos":9,"payload":5}; {"at":0,@:"b"} | 0 | - b | 2 packets in
bytes       | {"at":0,"topic":"t","qos":1,"base64":"w6k="}      | 0 | é   | 1 packets in
nothing     |                                                   | 0 |     | 0 packets in
)x");
    }
    void broken()
    {
        QFETCH(QStringList, cells);
        QString text = "{\"flotrofobul_recording\":1}\n"_s;
        for (const QString& line : cells[1].isEmpty() ? QStringList() : cells[1].split("; "_l1)) {
            text += QString(line).replace(u'@', "\"topic\":\"t\",\"qos\":1,\"payload\""_s) + u'\n';
        }
        const QString file = writeFile(path("broken"_s), text.remove("~\n"_l1).toUtf8());
        replayed->messages.clear();
        run_t replay({"replay"_s, "--host"_s, at(other), "--speed"_s, "100"_s, file});
        QCOMPARE(replay.code(), cells[2].toInt());
        QVERIFY(replay.says(cells[4]));
        const QStringList expected = cells[3].split(u' ', Qt::SkipEmptyParts);
        QTRY_COMPARE(replayed->messages.size(), expected.size());
        replayed->messages.replaceInStrings(QRegularExpression("^t \\d \\d \\d "_s), QString());
        QCOMPARE(replayed->messages.replaceInStrings(QRegularExpression("^$"_s), "-"_s), expected);
    }

    // How each of them gets to a broker that wants TLS, a name and a password; the words where it does not.
    void doors_data()
    {
        replayed.reset();
        QProcess passwd;
        passwd.start("mosquitto_passwd"_s, {"-b"_s, "-c"_s, certificates.file("users"_s), "bridge"_s, "wordofpass"_s});
        QVERIFY(passwd.waitForFinished() && closed.start());
        writeFile(path("good"_s), "wordofpass\nmore\n");
        writeFile(path("bad"_s), "passofword\n");
        writeFile(path("empty"_s), "{\"flotrofobul_recording\":1}\n{\"at\":0,\"topic\":\"t\",\"payload\":\"x\"}\n");
        addRows(R"(
watch     | 0 | watch --time 0.5 --ca-file @ca --username bridge --password-file good   | Listening at
record    | 0 | record --time 0.5 --ca-file @ca --username bridge --password-file good new | Recording what is said
replay    | 0 | replay --ca-file @ca --username bridge --password-file good empty       | 1 packets in
password  | 1 | watch --time 9 --ca-file @ca --username bridge --password-file bad      | does not authorise
nobody    | 1 | replay --ca-file @ca empty                                              | does not authorise
authority | 1 | watch --time 9 --ca-file @stranger --username bridge --password-file good | was not signed by an authority
authority, replay | 1 | replay --ca-file @stranger --username bridge --password-file good empty | was not signed by an authority
half      | 1 | record --time 9 --ca-file @half --username bridge --password-file good new2 | the certificates in "@half" cannot be used
half, replay | 1 | replay --ca-file @half --username bridge --password-file good empty  | @half
plain     | 1 | watch --time 9 --username bridge --password-file good                   | TLS
)");
    }
    void doors()
    {
        QFETCH(QStringList, cells);
        QStringList arguments = cells[2].split(u' ', Qt::SkipEmptyParts);
        for (QString& argument : arguments) {
            argument = argument.startsWith(u'@') ? certificates.file(argument.mid(1))
                       : QFile::exists(path(argument)) || argument.startsWith("new"_l1) ? path(argument)
                                                                                        : argument;
        }
        if (!arguments.contains("--host"_l1)) {
            arguments << "--host"_s << at(closed);
        }
        run_t run(arguments);
        QVERIFY(run.says(cells[3].replace("@half"_l1, certificates.file("half"_s))));
        QCOMPARE(run.code(), cells[1].toInt());
    }

    // Addresses of IPv6, @ for the port: exit code and words; those of a name are written back as --host takes them.
    void addresses_data()
    {
        addRows(R"(
brackets and port | 0 | --host [::1]:@                | Listening at [::1]:@.
brackets          | 0 | --host [::1] --port @         | Listening at [::1]:@.
address           | 0 | --host ::1 --port @           | Listening at [::1]:@.
other spelling    | 0 | --host [0:0:0:0:0:0:0:1]:@    | Listening at [0:0:0:0:0:0:0:1]:@.
no port           | 2 | --host [::1]:                 | what follows the colon is no port
no number         | 2 | --host [::1]:x                | what follows the colon is no port
two ports         | 2 | --host [::1]:@ --port @       | A port both in --host [::1]:@ and in --port
not closed        | 1 | --host [::1:@                 | does not resolve
more than a port  | 1 | --host [::1]1:@               | does not resolve
)");
    }
    void addresses()
    {
        QFETCH(QStringList, cells);
        QTcpServer probe;
        if (!probe.listen(QHostAddress::LocalHostIPv6)) {
            QSKIP("there is no IPv6 here");
        }
        QVERIFY(both.isRunning() || both.start());
        const QString port = QString::number(both.port());
        run_t watch("watch --json --time 0.1 %1"_s.arg(cells[2].replace(u'@', port)).split(u' '));
        QVERIFY(watch.says(cells[3].replace(u'@', port)));
        QCOMPARE(watch.code(), cells[1].toInt());
    }

    // A broker passes on at once what has a lower quality of service.
    void overtaking()
    {
        QFile file(path("mixed"_s));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("{\"flotrofobul_recording\":1,\"broker\":\"box1:1883\"}\n");
        QStringList expected;
        for (int i = 0; i < 200; ++i) {
            file.write(R"({"at":0,"topic":"mix","qos":%1,"payload":"%2"})"_s.arg(i % 3).arg(i).toUtf8() + '\n');
            expected << "mix %1 0 0 %2"_s.arg(QString::number(i).size()).arg(i);
        }
        file.close();
        client_t listener;
        QVERIFY(listener.joins(other.port()));
        listener.subscribe(nullptr, "mix"_s, 0); // what waits for no answer comes as the broker passes it on
        QTRY_COMPARE(listener.subscribed.size(), 2);
        QCOMPARE(run_t({"replay"_s, "--host"_s, at(other), file.fileName()}).code(), 0);
        QTRY_COMPARE(listener.messages.size(), expected.size());
        QCOMPARE(listener.messages, expected);
    }

    // Lines for programs; how it ends where there is nothing to hear.
    void watching()
    {
        run_t watch({"watch"_s, "--host"_s, at(house), "--json"_s});
        QVERIFY(watch.says("Listening"_s));
        client_t publisher;
        QVERIFY(publisher.joins(house.port()));
        publisher.say(R"({"d":"1"})"_s, 2,
                      "forward-bridge/local/house1/panel-1/tarnel-server-1/command/client/ready"_s);
        QVERIFY(watch.says("\"event\":\"ready\""_s));
        watch.signal(SIGINT);
        QCOMPARE(watch.code(), 0);
        const QStringList lines = watch.text().split(u'\n', Qt::SkipEmptyParts);
        const QJsonObject state = QJsonDocument::fromJson(lines.last().toUtf8()).object();
        const QJsonArray nodes = state["nodes"_s].toArray();
        QCOMPARE(nodes[nodes.size() - 1].toObject()["master"_s], QJsonValue("tarnel-server-1"_s));
        const QString heard = nodes[nodes.size() - 1].toObject()["heard"_s].toString();
        for (const QString& time : {heard, state["time"_s].toString()}) {
            const QDateTime moment = QDateTime::fromString(time, Qt::ISODate);
            QVERIFY2(qAbs(moment.secsTo(QDateTime::currentDateTime())) < 60, qPrintable(time));
        }

        const QString nobody = QString::number(freePort());
        for (const char* line : {"1 watch --port @", "1 record --port @ FILE", "1 replay --port @ ONE", "2 watch x",
                                 "2 watch --config /none", "2 watch --port 0", "2 watch --installation a-b",
                                 "2 watch --insecure", "2 watch --time x", "2 record", "2 record --port @ ONE",
                                 "1 record --force --port @ ONE", "2 replay --speed 0 ONE", "2 replay /none",
                                 "2 replay /dev/null", "2 replay /dev/zero", "2 watch --host u/x", "0 watch --help"}) {
            const QString call = QString::fromLatin1(line)
                                     .replace(u'@', nobody)
                                     .replace("FILE"_l1, path("three"_s))
                                     .replace("ONE"_l1, path("one"_s));
            run_t run(call.mid(2).split(u' '));
            QVERIFY2(run.code() == call.left(1).toInt() && !run.text().isEmpty(), line);
        }
        QVERIFY(!QFile::exists(path("three"_s)));
        QVERIFY(!linesOf(path("one"_s)).isEmpty());
    }
};

QTEST_GUILESS_MAIN(tool_recording)
#include "tool_recording.moc"
