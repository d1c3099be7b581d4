// SPDX-License-Identifier: MIT
// One complete life on a real broker: a server appears and is adopted, answers a request, is killed, and comes back.
// Everything on the wire and every log line of both engines is compared, whole and in order, with
// data/conversation.txt.
#include "support/broker.h"
#include "support/engine_probe.h"
#include "support/observer.h"

#include <QtCore/QProcess>
#include <QtCore/QRegularExpression>
#include <QtTest/QtTest>

#include <cstdio>

using comunication::protoclient_t;
using comunication::protoserver_t;
using comunication::utility::qos_t;
using comunication::utility::subscribe_t;

namespace {

QJsonObject configuration(int port)
{
    return {{"mqtt"_s, QJsonObject{{"global"_s, QJsonObject{{"installation_id"_s, "1234"_s}, {"port"_s, port}}}}}};
}

QJsonObject packet(const char* topic, const QJsonValue& payload)
{
    return {{"topic"_s, QLatin1String(topic)}, {"payload"_s, payload}};
}

// The server runs in a process of its own, to be killed as a machine that loses its power; its log goes to its output.
int serve(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    auto* const logs = ::utility::logs::classlogs::getInstance();
    logs->setLevel(6);
    logs->setSink([](const ::utility::logs::LogRecord& record) {
        std::puts(qUtf8Printable(log_recorder_t::textOf(record)));
        std::fflush(stdout);
    });
    protoserver_t server("5.0"_s, configuration(atoi(argv[2])), true, "tarnel-server-1"_s, false);
    QObject::connect(&server, &protoserver_t::onConnection, &server,
                     [&server] { server.init_subscription(subscribe_t(1)); });
    QObject::connect(&server, &protoserver_t::onRequestPersistentRequest, &server,
                     [&server](const QJsonObject& request) {
                         QJsonObject answer = packet("status/DB/persistent/lamp", "on"_s);
                         answer["destination"_s] = request["sender"_s];
                         server.eventPublish(answer, qos_t(2), true);
                     });
    server.connect();
    return QCoreApplication::exec();
}

// What differs from run to run and from machine to machine: dates, the port, the broker's own message ids, network
// interfaces, the version of libmosquitto.
void addLine(QStringList& list, QString line, int port)
{
    static const QRegularExpression date("\"publishDate\":\"\\w[^\"]*\""_s);
    static const QRegularExpression incoming("=> mid: \\d+ "_s); // numbered by the broker
    static const QRegularExpression library("libmosquitto [\\d.]+"_s);
    line.replace(date, "\"publishDate\":\"DATE\""_s)
        .replace(incoming, "=> mid: M "_s)
        .replace(library, "libmosquitto VERSION"_s)
        .replace("127.0.0.1:"_l1 + QString::number(port), "127.0.0.1:PORT"_l1);
    if (!line.startsWith("4 checkNetwork "_l1)) {
        list << line;
    }
}

} // namespace

class conversation : public QObject {
    Q_OBJECT

    QMap<QString, QStringList> expected; // "chapter/voice" to its lines

private Q_SLOTS:
    // "## chapter" and "# voice" (wire, panel, server) head the lines that follow them; "subscribed mid publications
    // subscriptions topic" stands for the three lines of an acknowledged subscription.
    void initTestCase()
    {
        QFile file(QFINDTESTDATA("data/conversation.txt"));
        QVERIFY(file.open(QIODevice::ReadOnly));
        QString chapter;
        QString voice;
        const QStringList lines = QString::fromUtf8(file.readAll()).split(u'\n', Qt::SkipEmptyParts);
        for (const QString& line : lines) {
            if (line.startsWith("## "_l1)) {
                chapter = line.mid(3);
            } else if (line.startsWith("# "_l1)) {
                voice = line.mid(2);
            } else if (line.startsWith("subscribed "_l1)) {
                const QStringList words = line.split(u' ');
                expected[chapter + u'/' + voice]
                    << "4 on_subscribe Subscribe topic mid %1 - topic %2 - qos 2"_s.arg(words[1], words[4])
                    << "6 on_subscribe Published: "_l1 + words[2] << "6 on_subscribe Subscribe: "_l1 + words[3];
            } else {
                expected[chapter + u'/' + voice] << line;
            }
        }
    }

    void life()
    {
        broker_t broker;
        QVERIFY(broker.start());
        observer_t observer(broker.port());
        QTRY_VERIFY(observer.isReady());

        QMap<QString, QStringList> heard;
        QProcess server;
        QObject::connect(&server, &QProcess::readyReadStandardOutput, &server, [&] {
            while (server.canReadLine()) {
                addLine(heard["server"_s], QString::fromUtf8(server.readLine()).chopped(1), broker.port());
            }
        });
        const auto startServer = [&] {
            server.start(QCoreApplication::applicationFilePath(), {"serve"_s, QString::number(broker.port())});
        };
        log_recorder_t log;
        const auto listen = [&] {
            const QStringList lines = log.take();
            for (const QString& line : lines) {
                addLine(heard["panel"_s], line, broker.port());
            }
            for (const QString& message : qAsConst(observer.messages)) {
                addLine(heard["wire"_s], message, broker.port());
            }
            observer.messages.clear();
        };
        const auto compare = [&](const char* chapter) {
            const QString prefix = QLatin1String(chapter) + QString(u'/');
            const auto complete = [&] {
                listen();
                for (const char* const voice : {"wire", "panel", "server"}) {
                    const QString name = QLatin1String(voice);
                    if (heard[name].size() < expected[prefix + name].size()) {
                        return false;
                    }
                }
                return true;
            };
            // What is missing is found by the comparison, what is too much by it or in the next chapter.
            [[maybe_unused]] const bool inTime = QTest::qWaitFor(complete);
            for (const char* const voice : {"wire", "panel", "server"}) {
                const QString name = QLatin1String(voice);
                QCOMPARE(heard.take(name), expected[prefix + name]);
            }
        };

        protoclient_t panel("2.0"_s, configuration(broker.port()), "panel-1"_s, false);
        probe::recordSignals(log.lines, &panel);
        QCOMPARE(panel.connect(), 0);
        compare("a panel alone");
        startServer();
        compare("a server appears and is adopted");
        panel.publish(packet("request/DB/persistent/lamp", "?"_s));
        compare("a request and its answer");
        server.kill();
        QVERIFY(server.waitForFinished());
        compare("the server is killed");
        startServer();
        compare("the server comes back");
        QCOMPARE(panel.disconnection(), 0);
        compare("the panel leaves");
        server.kill();
        QVERIFY(server.waitForFinished());
    }
};

int main(int argc, char** argv)
{
    if (argc == 3 && qstrcmp(argv[1], "serve") == 0) {
        return serve(argc, argv);
    }
    QCoreApplication application(argc, argv);
    conversation test;
    return QTest::qExec(&test, argc, argv);
}
#include "conversation.moc"
