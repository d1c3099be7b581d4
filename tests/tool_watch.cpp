// SPDX-License-Identifier: MIT
// What the command writes to a terminal, to who reads no further, and where nothing can be written; and the picture of
// a house, whole.
#include "support/client.h"
#include "support/command.h"

#include <flotrofobul/testkit/broker.h>
#include <watch/house_picture.h>

#include <cstdlib>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

using comunication::testkit::broker_t;
using comunication::testkit::child_t;

namespace {

/// A terminal; the command writes to it under its name.
class terminal_t {
public:
    terminal_t(ushort columns, ushort rows) : master(::posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC))
    {
        ::grantpt(master);
        ::unlockpt(master);
        slave = ::open(::ptsname(master), O_RDWR | O_NOCTTY | O_CLOEXEC);
        const winsize size{rows, columns, 0, 0};
        ::ioctl(slave, TIOCSWINSZ, &size);
    }
    ~terminal_t()
    {
        ::close(slave);
        ::close(master);
    }
    QString name() const { return QString::fromLocal8Bit(::ptsname(master)); }
    /// All that was written to it.
    const QByteArray& text()
    {
        char bytes[4096];
        for (ssize_t count = 0; (count = ::read(master, bytes, sizeof bytes)) > 0;) {
            said.append(bytes, int(count));
        }
        return said;
    }

private:
    const int master;
    int slave = -1;
    QByteArray said;
};

/// A run of the command that writes to a file, with further environment.
std::unique_ptr<QProcess> runTo(const QString& file, const QStringList& arguments, const QString& environment)
{
    auto run = std::make_unique<child_t>();
    QProcessEnvironment all = QProcessEnvironment::systemEnvironment();
    all.insert("TERM"_s, "xterm"_s);
    all.remove("NO_COLOR"_s);
    for (const QString& one : environment.split(u' ', Qt::SkipEmptyParts)) {
        all.insert(one.section(u'=', 0, 0), one.section(u'=', 1));
    }
    run->setProcessEnvironment(all);
    run->setStandardOutputFile(file);
    run->start(QStringLiteral(FLOTROFOBUL_COMMAND), arguments);
    return run;
}

/// What a terminal would obey and the command has not meant, in hex.
QString obeyed(const QByteArray& bytes, bool isJson)
{
    static const QRegularExpression own(R"(\x1b\[(\?1049[hl]|\?25[hl]|H|J|K|1m|1;31m|0m)|\r|\n)"_s);
    QString found;
    const QString rest = QString::fromUtf8(bytes).remove(own);
    for (const QChar c : rest) {
        if (c.category() == QChar::Other_Control || (!isJson && c.category() == QChar::Other_Format)) {
            found += QString::number(c.unicode(), 16) + u' ';
        }
    }
    return found;
}

} // namespace

class tool_watch : public QObject {
    Q_OBJECT

    broker_t broker;
    client_t speaker;
    QTemporaryDir directory;

    QStringList calling(const QString& line) const
    {
        return "%1 --host 127.0.0.1:%2"_s.arg(line).arg(broker.port()).split(u' ', Qt::SkipEmptyParts);
    }
    void says(const QString& sender, const QString& command, const QByteArray& payload)
    {
        const QString topic = "forward-bridge/local/house1/%1/all/%2"_s;
        QCOMPARE(speaker.publishRaw(nullptr, topic.arg(sender, command), payload, 2, false), 0);
    }
    void presents(const QString& sender, const QString& master)
    {
        says(sender, "connection/presentation"_s,
             R"({"d":{"clientid":"%1","type":"server","connected":true,"masterid":"%2"}})"_s.arg(sender, master)
                 .toUtf8());
    }

private Q_SLOTS:
    void initTestCase() { QVERIFY(broker.start() && speaker.joins(broker.port())); }

    void strangers_data()
    {
        QTest::addColumn<QString>("form");
        for (const char* const form : {"", " --lines", " --json", " --packets", " --packets --json"}) {
            QTest::newRow(form) << form;
        }
    }
    // Nothing that a node says moves the cursor, renames the window or turns the text round.
    void strangers()
    {
        QFETCH(const QString, form);
        terminal_t terminal(200, 50);
        const auto watch = runTo(terminal.name(), calling("watch --installation house1"_s + form), {});
        QVERIFY(QTest::qWaitFor([&] {
            watch->waitForReadyRead(1);
            says("first"_s, "status/x"_s, "{}");
            return terminal.text().contains("first");
        }));
        presents("tarnel-server-1"_s, "\\u001b[2J\u009b31m\u202ex"_s);
        presents("tarnel-server-2"_s, "tarnel-server-2\",\"hostname\":\"\u009b5m\u202e"_s);
        says("odd"_s, "connection/presentation"_s, "{\"d\":{\"clientid\":\"\\u001b]0;name\\u0007\"}}");
        says("odder"_s, "connection/presentation"_s, "{\"d\":{\"clientid\":\"odder\",\"type\":\"\xc2\x9b\x7f\"}}");
        says("\u202eodd"_s, "status/\u202ex"_s, "\x1b[31m\r\b\x7f \xc2\x9b");
        says("coded"_s, "status/x"_s, QByteArray("{\"d\":\"\x1b[31m\xc2\x9b\"}").toBase64());
        says("bytes"_s, "status/x"_s, "\x9b\x1b[31m");
        speaker.publishRaw(nullptr, "local/\u202ehouse/x/all/y"_s, "{}", 2, false);
        says("last"_s, "status/x"_s, "{}");
        QTRY_VERIFY(terminal.text().contains("last"));
        ::kill(pid_t(watch->processId()), SIGINT);
        QVERIFY(watch->waitForFinished() && watch->exitCode() == 0);
        QVERIFY(terminal.text().contains("odder"));
        QCOMPARE(obeyed(terminal.text(), form.contains("json"_l1)), QString());
    }

    // A house as it is shown at a moment, at full width and where much has to give way: times, states, whom they
    // follow, what is wrong.
    void picture()
    {
        using namespace comunication::tools;
        qputenv("TZ", "UTC");
        comunication::house::house_model_t house("house1"_s);
        qint64 seconds = 1000000000; // 01:46:40
        const auto take = [&](const QString& topic, const QByteArray& payload) {
            house.take(std::chrono::milliseconds(seconds * 1000), topic, payload, 2, false);
        };
        const auto node = [&](const char* way, const char* id, const char* more) {
            const QByteArray record = QByteArray(R"({"d":{"clientid":"@",%}})").replace('@', id).replace('%', more);
            take("%1-bridge/local/house1/%2/all/connection/presentation"_s.arg(QLatin1String(way), QLatin1String(id)),
                 record);
        };
        node("forward", "tarnel-server-1", R"("type":"server","connected":true,"masterid":"tarnel-server-1")");
        seconds += 12000;
        node("remote", "tarnel-server-2", R"("type":"server","connected":true,"masterid":"tarnel-server-1")");
        take("$SYS/broker/connection/a-b-1-2/state"_s, "1");
        take("$SYS/broker/connection/K/state"_s, "0");
        seconds += 60;
        node("forward", "panel-1", R"("type":"client","connected":true,"masterid":"tarnel-server-1")");
        take("forward-bridge/local/house1/panel-1/tarnel-server-1/command/client/ready"_s, R"({"d":"1"})");
        node("cloud", "phone", R"("type":"client","connected":true,"masterid":"tarnel-server-2")");
        node("forward", "panel-0", R"("type":"client","connected":true,"masterid":"tarnel-server-3")");
        node("forward", "panel-0", R"("type":"client","connected":false,"masterid":"tarnel-server-3")");
        seconds += 200;
        take("forward-bridge/local/house9/x/all/status/a"_s, "{}");
        take("$SYS/broker/clients/connected"_s, "7");
        take("forward-bridge/local/house1/panel-1/own_server/request/DB/x"_s, QByteArray(R"({"d":{}})").toBase64());
        seconds += 5;
        const auto now = [&] { return comunication::house::moment_t(seconds * 1000); };
        frame_t frame{"title"_s, {}, 200, 0};
        const auto shown = [&] { return pictureOf(house, now(), frame).join(u'\n'); };
        QCOMPARE(shown(), R"(title  05:11:05
Master   tarnel-server-1, for 3:24 h
!Bridges  K DOWN 4:25 min, a-b-1-2 up 4:25 min
Packets  0.4 a second, 8 in all; 1 that are not of this house; other installations: house9; 7 clients at the broker

NODE             ROLE    STATE        FOR  MASTER                           HEARD  PACKETS   /S  HEARD ON
tarnel-server-1  server  MASTER    3:24 h  itself                          3:24 h        1  0.0  forward-bridge
tarnel-server-2  server  there   4:25 min  tarnel-server-1               4:25 min        1  0.0  remote-bridge
panel-1          client  ready   3:25 min  tarnel-server-1                    5 s        3  0.2  forward-bridge encoded
phone            client  there   3:25 min  tarnel-server-2 (not master)  3:25 min        1  0.0  cloud-bridge
panel-0          client  gone    3:25 min  -                             3:25 min        2  0.0  forward-bridge)"_s);
        const QJsonObject state = jsonOf(house, now());
        QCOMPARE(state["nodes"_s].toArray()[2].toObject(), QJsonDocument::fromJson(R"({"id": "panel-1",
            "installation": "house1", "role": "client", "presence": "here", "is_master": false,
            "master": "tarnel-server-1", "master_since": null, "ready": true, "encoded": true,
            "since": "2001-09-09T05:07:40.000Z", "heard": "2001-09-09T05:11:00.000Z", "packets": 3, "rate": 0.2,
            "prefixes": ["forward-bridge"], "record": {"clientid": "panel-1", "type": "client", "connected": true,
            "masterid": "tarnel-server-1"}})")
                                                               .object());
        QCOMPARE(state["bridges"_s].toArray()[0].toObject(), QJsonDocument::fromJson(R"({"name": "a-b-1-2", "up": true,
            "since": "2001-09-09T05:06:40.000Z", "servers": ["tarnel-server-1", "tarnel-server-2"]})")
                                                                 .object());

        frame = {"title"_s, "the link is down"_s, 50, 12};
        QCOMPARE(shown(), R"(title  05:11:05
!Link     the link is down
Master   tarnel-server-1, for 3:24 h
!Bridges  K DOWN 4:25 min, a-b-1-2 up 4:25 min
Packets  0.4 a second, 8 in all; 1 that are not of this house; other installations: house9; 7 clients at the broker

NODE             STATE      FOR  MASTER   HEARD
tarnel-server-1  MASTER  3:24 h  itself  3:24 h
... and 4 more

05:07:40 panel-0 has left, or its last will says so
05:11:00 panel-1 has encoding on: its payloads are Base64, which engines do not decode)"_s);

        seconds += 90000;
        node("remote", "tarnel-server-1", R"("type":"server","connected":false,"masterid":"tarnel-server-1")");
        frame = {"title"_s, {}, 200, 0};
        QCOMPARE(shown(), R"(title  06:11:05
!Master   NONE, for 0 s
!Bridges  K DOWN 1 d, a-b-1-2 up 1 d
Packets  1.0 a second, 9 in all; 1 that are not of this house; other installations: house9; 7 clients at the broker

NODE             ROLE    STATE  FOR  MASTER                        HEARD  PACKETS   /S  HEARD ON
tarnel-server-1  server  gone   0 s  -                               1 d        2  1.0  forward-bridge remote-bridge
tarnel-server-2  server  there  1 d  tarnel-server-1 (gone)          1 d        1  0.0  remote-bridge
panel-1          client  there  1 d  tarnel-server-1 (gone)          1 d        3  0.0  forward-bridge encoded
phone            client  there  1 d  tarnel-server-2 (not master)    1 d        1  0.0  cloud-bridge
panel-0          client  gone   1 d  -                               1 d        2  0.0  forward-bridge)"_s);
        seconds += 65;
        take("forward-bridge/local/house1/tarnel-server-1/all/status/x"_s, "{}");
        seconds += 5;
        const QString back = "tarnel-server-1 server there 5 s - 5 s 3 0.2 forward-bridge remote-bridge"_s;
        QVERIFY2(shown().simplified().contains(back), qPrintable(shown()));
    }

    // On a small terminal nothing scrolls, and in the end it looks as before, with the table below. Colour for alarms
    // only.
    void screen_data()
    {
        addRows(R"(
colour    |            | 1 | 12
no colour | NO_COLOR=1 | 0 | 5
)");
    }
    void screen()
    {
        QFETCH(QStringList, cells);
        const int rows = cells[3].toInt();
        terminal_t terminal(44, ushort(rows));
        const auto watch = runTo(terminal.name(), calling("watch --installation house1"_s), cells[1]);
        QTRY_VERIFY(terminal.text().contains("none heard yet"));
        QVERIFY(!terminal.text().contains("\x1b[1;31m"));
        for (int i = 1; i <= 20; ++i) {
            const QString id = "tarnel-server-%1-with-a-long-name"_s.arg(i);
            presents(id, i <= 2 ? id : QString());
        }
        QTRY_VERIFY(terminal.text().contains("2 SERVERS ARE MASTER"));
        QTRY_VERIFY(rows < 12 || terminal.text().contains("... and "));
        QCOMPARE(terminal.text().contains("\x1b[1;31m"), cells[2] == "1"_l1);
        ::kill(pid_t(watch->processId()), SIGINT);
        QVERIFY(watch->waitForFinished() && watch->exitCode() == 0);
        const QByteArray all = terminal.text();
        const QByteArray enter = "\x1b[?1049h\x1b[?25l";
        const QByteArray back = "\x1b[?25h\x1b[?1049l";
        QVERIFY(all.startsWith(enter) && all.count(enter) == 1 && all.count(back) == 1);
        const QByteArray drawn = all.mid(enter.size(), all.indexOf(back) - enter.size());
        for (QString frame : QString::fromUtf8(drawn).split("\x1b[H"_s, Qt::SkipEmptyParts)) {
            const QStringList lines = frame.remove(QRegularExpression("\x1b\\[[0-9;]*[A-Za-z]|\r"_s)).split(u'\n');
            QVERIFY2(lines.size() <= rows, qPrintable(frame));
            for (const QString& line : lines) {
                QVERIFY2(line.size() <= 44, qPrintable(line));
            }
        }
        QVERIFY(rows < 12 || drawn.contains("~  MASTER")); // the name gives way
        const QByteArray rest = all.mid(all.indexOf(back) + back.size());
        QCOMPARE(rest.count("server-"), 20 + 2);
        QVERIFY(!rest.contains('\x1b'));
    }

    // name | command | its client id, if it has to take leave
    void enough_data()
    {
        writeFile(directory.filePath("answers"_s), "{}");
        addRows(R"(
panel   | panel --id wall --installation house1           | wall
serve   | serve --id srv --answers @ --installation house1 | srv
lines   | watch --lines                                   |
json    | watch --json                                    |
packets | watch --packets                                 |
)");
    }
    // Who reads has had enough, as "head -1" has: it ends in order, and nothing is wrong.
    void enough()
    {
        QFETCH(QStringList, cells);
        const QByteArray fifo = directory.filePath(cells[0]).toLocal8Bit();
        QCOMPARE(::mkfifo(fifo.constData(), 0600), 0);
        const int reader = ::open(fifo.constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        const QString call = cells[1].replace(u'@', directory.filePath("answers"_s));
        const auto run = runTo(QString::fromLocal8Bit(fifo), calling(call), {});
        bool isReady = false;
        const auto happens = [&] { // something that each of them tells
            isReady = !isReady;
            presents("tarnel-server-9"_s, "tarnel-server-9"_s);
            says("tarnel-server-9"_s, "status/DB/persistent"_s, R"({"d":{}})");
            says("panel-9"_s, "command/client/ready"_s, isReady ? R"({"d":"1"})" : R"({"d":"0"})");
            const QString request = "forward-bridge/local/house1/panel-9/srv/request/DB/x"_s;
            QCOMPARE(speaker.publishRaw(nullptr, request, "{}", 2, false), 0);
        };
        char byte = 0;
        QTRY_VERIFY((happens(), ::read(reader, &byte, 1) == 1));
        ::close(reader);
        QTRY_VERIFY((happens(), run->state() == QProcess::NotRunning));
        QCOMPARE(run->exitStatus(), QProcess::NormalExit);
        QCOMPARE(run->exitCode(), 0);
        QTRY_VERIFY(cells[2].isEmpty() ||
                    broker.output().contains(QByteArray("Client " + cells[2].toUtf8() + " disconnected")));
    }

    // name | command | what it says when the disk is full
    void full_data()
    {
        addRows(R"(
help    | watch --help                        | Standard output cannot be written.
all     | --help                              | Standard output cannot be written.
packets | watch --packets                     | Standard output cannot be written.
lines   | watch --lines                       | Standard output cannot be written.
serve   | serve --id srv2 --answers @ --installation house1 | Standard output cannot be written.
record  | record --force /dev/full            | /dev/full cannot be written any more: No space left on device
)");
    }
    void full()
    {
        QFETCH(QStringList, cells);
        const QString call = cells[1].replace(u'@', directory.filePath("answers"_s));
        const auto run = runTo("/dev/full"_s, call == "--help"_l1 ? QStringList(call) : calling(call), {});
        QTRY_VERIFY((presents("tarnel-server-7"_s, QString()), run->state() == QProcess::NotRunning));
        QCOMPARE(run->exitCode(), 1);
        QVERIFY2(run->readAllStandardError().contains(cells[2].toUtf8()), "no words");
    }
};

QTEST_GUILESS_MAIN(tool_watch)
#include "tool_watch.moc"
