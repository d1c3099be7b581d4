// SPDX-License-Identifier: MIT
// The nodes on the command line: a server that answers from a file, panels, and who asks; on a real broker.
#include "laboratory/broker.h"
#include "support/client.h"

#include <QtTest/QtTest>

class tool_node : public QObject {
    Q_OBJECT

    broker_t broker;
    broker_t closed{"listener @port 127.0.0.1\nallow_anonymous false"_s};
    QTemporaryDir directory;
    std::map<QString, std::unique_ptr<child_t>> processes;
    QString said; ///< by server and panels

    QString path(const QString& name, const QByteArray& text)
    {
        QFile file(directory.filePath(name));
        file.open(QIODevice::WriteOnly);
        file.write(text);
        return file.fileName();
    }
    child_t& run(QString line)
    {
        auto& process = processes[line];
        process = std::make_unique<child_t>();
        process->setProcessChannelMode(QProcess::MergedChannels);
        const auto options = "--installation house1 --host 127.0.0.1:%1"_s;
        line.replace("@broker"_l1, options.arg(broker.port())).replace("@closed"_l1, options.arg(closed.port()));
        process->start(QStringLiteral(FLOTROFOBUL_COMMAND), line.replace("@"_l1, directory.path()).split(u' '));
        return *process;
    }
    bool says(child_t& process, const QString& words)
    {
        return QTest::qWaitFor([&] { return (said += QString::fromUtf8(process.readAll())).contains(words); }, 5000) ||
               (qWarning() << said, false);
    }

private Q_SLOTS:
    // The server goes before the end, so that there is no master.
    void talk_data()
    {
        path("file"_s, R"({"persistent": {"payload": {"kitchen": 21.5}, "to": "all", "retain": true}, "realtime/attic":
            {"payload": {"degrees": 19}}, "command": null, "request/own": {"topic": "status/mine", "payload": {}}})");
        path("bad"_s, R"({"persistent": {"payload": 5}, "command": {"payload": {}}, "talk": {}})");
        QVERIFY(broker.start() && closed.start());
        addRows(R"(
3 ask persistent --host 127.0.0.1:1 --installation house1 | nobody listens there
4 ask persistent @closed                 | the broker does not authorise this client
5 ask persistent --time 0.5 @broker        | no master: no server has presented itself
5 ask persistent --time 0.5 @broker        | no master: heard of follower, which is not master | serve --no-master --id follower --answers @/file @broker | follower: connected
1 serve --answers @/bad @broker          | command.topic is missing; persistent.payload is refused; talk is no request
2 serve --answers @/none @broker         | cannot be read
2 ask talk @broker                       | There is no kind "talk"; there are persistent, realtime, presence, command
2 send talk 5 @broker                    | has to be a JSON object
0 ask persistent @broker                 | status/DB/persistent from srv to all: {"kitchen":21.5} | serve --id srv --answers @/file @broker | srv: connected
0 ask persistent {"a":1,"password":"wordofpass"} --json @broker | "payload":{"kitchen":21.5}; "sender":"srv" | panel --count 2 --id wall @broker | wall-2: status/DB/persistent from srv to all: {"kitchen":21.5}
0 ask realtime/attic/bed @broker         | status/DB/realtime/attic/bed from srv to flotrofobul-
6 ask realtime --time 0.5 @broker          | srv has not answered request/DB/realtime within the time
0 ask command --no-answer @broker        |
0 send command/light {"on":true} --no-answer @broker |
0 send request/own/x {} --to srv @broker | status/mine from srv to flotrofobul-
)");
    }
    void talk()
    {
        QFETCH(QStringList, cells);
        if (cells.size() > 2) {
            QVERIFY(says(run(cells[2]), cells[3]));
        }
        child_t& asker = run(cells[0].mid(2));
        QTRY_VERIFY(asker.state() == QProcess::NotRunning);
        const QString text = QString::fromUtf8(asker.readAll());
        for (const QString& words : cells[1].split("; "_l1)) {
            QVERIFY2(text.contains(words), qPrintable(text));
        }
        QCOMPARE(asker.exitCode(), cells[0].leftRef(1).toInt());
    }
    // Ctrl-C: everybody takes leave, and the panels notice that the server does.
    void end()
    {
        child_t& server = *processes.at("serve --id srv --answers @/file @broker"_s);
        child_t& panels = *processes.at("panel --count 2 --id wall @broker"_s);
        QVERIFY(says(server, R"x(persistent {"a":1,"password":"(not shown)"}: answered to all on status/DB)x"_s));
        QVERIFY(says(server, "asks request/DB/command {}: not answered"_s));
        QVERIFY(says(server, "says command/light {\"on\":true}"_s));
        child_t& follower = *processes.at("serve --no-master --id follower --answers @/file @broker"_s);
        server.signal(SIGINT);
        QVERIFY(says(panels, "wall-1: srv is lost"_s));
        panels.signal(SIGINT);
        follower.signal(SIGTERM);
        for (child_t* const process : {&server, &panels, &follower}) {
            QTRY_VERIFY(process->state() == QProcess::NotRunning);
            QCOMPARE(process->exitStatus(), QProcess::NormalExit);
            QCOMPARE(process->exitCode(), 0);
        }
        QVERIFY(!broker.output().contains("Client srv closed") && !broker.output().contains("Client wall-1 closed"));
    }
};

QTEST_GUILESS_MAIN(tool_node)
#include "tool_node.moc"
