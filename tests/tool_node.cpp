// SPDX-License-Identifier: MIT
// The nodes on the command line: a server that answers from a file, panels, and who asks; on a real broker.
#include "support/client.h"
#include "support/command.h"

#include <flotrofobul/testkit/broker.h>

using comunication::testkit::broker_t;

class tool_node : public QObject {
    Q_OBJECT

    broker_t broker;
    broker_t closed{"listener @port 127.0.0.1\nallow_anonymous false"_s};
    QTemporaryDir directory;
    std::map<QString, std::unique_ptr<run_t>> runs;

    run_t& run(const QString& line)
    {
        const auto options = "--installation house1 --host 127.0.0.1:%1"_s;
        QString call = line;
        call.replace("@broker"_l1, options.arg(broker.port())).replace("@closed"_l1, options.arg(closed.port()));
        runs[line] = std::make_unique<run_t>(call.replace("@"_l1, directory.path()).split(u' '));
        return *runs[line];
    }

private Q_SLOTS:
    // The server goes before the end, so that there is no master.
    void talk_data()
    {
        writeFile(directory.filePath("file"_s),
                  R"({"persistent": {"payload": {"kitchen": 21.5}, "to": "all", "retain": true}, "realtime/attic":
            {"payload": {"degrees": 19}}, "command": null, "request/own": {"topic": "status/mine", "payload": {}}})");
        writeFile(directory.filePath("bad"_s),
                  R"({"persistent": {"payload": 5}, "command": {"payload": {}}, "talk": {}})");
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
            QVERIFY(run(cells[2]).says(cells[3]));
        }
        run_t& asker = run(cells[0].mid(2));
        const QString text = asker.text();
        for (const QString& words : parts(cells[1])) {
            QVERIFY2(text.contains(words), qPrintable(text));
        }
        QCOMPARE(asker.code(), cells[0].left(1).toInt());
    }
    // Ctrl-C: everybody takes leave, and the panels notice that the server does.
    void end()
    {
        run_t& server = *runs.at("serve --id srv --answers @/file @broker"_s);
        run_t& panels = *runs.at("panel --count 2 --id wall @broker"_s);
        QVERIFY(server.says(R"x(persistent {"a":1,"password":"(not shown)"}: answered to all on status/DB)x"_s));
        QVERIFY(server.says("asks request/DB/command {}: not answered"_s));
        QVERIFY(server.says("says command/light {\"on\":true}"_s));
        run_t& follower = *runs.at("serve --no-master --id follower --answers @/file @broker"_s);
        server.signal(SIGINT);
        QVERIFY(panels.says("wall-1: srv is lost"_s));
        panels.signal(SIGINT);
        follower.signal(SIGTERM);
        for (run_t* const process : {&server, &panels, &follower}) {
            QCOMPARE(process->code(), 0);
            QCOMPARE(process->exitStatus(), QProcess::NormalExit);
        }
        QVERIFY(!broker.output().contains("Client srv closed") && !broker.output().contains("Client wall-1 closed"));
    }
};

QTEST_GUILESS_MAIN(tool_node)
#include "tool_node.moc"
