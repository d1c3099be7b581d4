// SPDX-License-Identifier: MIT
// One complete life on a real broker: a server appears and is adopted, answers a request, loses its role and ends.
// Everything on the wire and every log line and signal of both engines is compared, whole and in order, with
// data/conversation.txt.
#include "support/engine_probe.h"
#include "support/story.h"

#include <flotrofobul/testkit/broker.h>
#include <flotrofobul/testkit/observer.h>

#include <QtCore/QMutex>
#include <QtCore/QThread>
#include <QtTest/QtTest>

using comunication::protoclient_t;
using comunication::protoserver_t;
using comunication::testkit::broker_t;
using comunication::testkit::observer_t;
using comunication::utility::qos_t;
using comunication::utility::subscribe_t;

class conversation : public QObject {
    Q_OBJECT

    QMutex mutex;
    QMap<QString, QStringList> heard; // by voice

    // What differs from run to run and from machine to machine: dates, the broker's own message ids and its port, the
    // version of libmosquitto, network interfaces.
    void hear(const QString& voice, QString line)
    {
        line.replace(QRegularExpression("(?<=\"publishDate\":\")\\w[^\"]*"_s), "DATE"_s)
            .replace(QRegularExpression("(?<==> mid: )\\d+"_s), "M"_s)
            .replace(QRegularExpression("(?<=libmosquitto )[\\d.]+"_s), "VERSION"_s)
            .replace(QRegularExpression("(?<=127.0.0.1:)\\d+"_s), "PORT"_s);
        const QMutexLocker lock(&mutex);
        if (!line.startsWith("4 checkNetwork "_l1)) {
            heard[voice] << line;
        }
    }

private Q_SLOTS:
    void life()
    {
        broker_t broker;
        QVERIFY(broker.start());
        observer_t observer(broker.port());
        const story_t script(QFINDTESTDATA("data/conversation.txt"));
        // The server lives on a thread of its own, which tells its lines from those of the panel.
        const auto say = [&](const QString& line) {
            hear(QThread::currentThread() == thread() ? "panel"_s : "server"_s, line);
        };
        const log_recorder_t log; // takes every level, and gives the sink back in the end
        ::utility::logs::classlogs::getInstance()->setSink(
            [&](const ::utility::logs::LogRecord& record) { say(log_recorder_t::textOf(record)); });
        const QJsonObject configuration = installation(",'port':" + QByteArray::number(broker.port()));
        const auto compare = [&](const QString& chapter) {
            for (const QString& voice : {"wire"_s, "panel"_s, "server"_s}) {
                const QStringList expected = script.unfold(script.sections[chapter + ": "_l1 + voice]);
                const auto isComplete = [&] {
                    for (const QString& message : std::exchange(observer.messages, {})) {
                        hear("wire"_s, message);
                    }
                    const QMutexLocker lock(&mutex);
                    return heard[voice].size() >= expected.size();
                };
                // What is missing is found by the comparison, what is too much by it or in the next chapter.
                [[maybe_unused]] const bool inTime = QTest::qWaitFor(isComplete);
                const QMutexLocker lock(&mutex);
                QCOMPARE(heard.take(voice), expected);
            }
        };

        protoclient_t panel("2.0"_s, configuration, "panel"_s, false);
        const signal_recorder_t panelRecorder(say, &panel);
        QCOMPARE(panel.connect(), 0);
        compare("a panel alone"_s);

        const std::unique_ptr<QThread> life(QThread::create([&] {
            protoserver_t server("5.0"_s, configuration, true, "srv"_s, false);
            const signal_recorder_t serverRecorder(say, &server);
            QObject::connect(&server, &protoserver_t::onConnection, &server,
                             [&] { server.init_subscription(subscribe_t(1)); });
            const auto answer = parse("{'topic':'status/DB/persistent/lamp','payload':'on','destination':'panel'}");
            QObject::connect(&server, &protoserver_t::onRequestPersistentRequest, &server,
                             [&] { server.eventPublish(answer, qos_t(2), true); });
            server.connect();
            QEventLoop().exec();
        }));
        life->start();
        compare("a server appears and is adopted"_s);
        panel.publish(parse("{'topic':'request/DB/persistent/lamp','payload':'?'}"));
        compare("a request and its answer"_s);
        observer.publish("local/1234/admin/all_servers/master"_s, R"({"d":{"masterid":"six"}})");
        compare("the server loses its role"_s);
        QCOMPARE(panel.disconnection(), 0);
        compare("the panel leaves"_s);
        life->quit();
        QVERIFY(life->wait());
        compare("the server ends without a word"_s);
        observer.publish("end"_s, "of the story");
        compare("nothing follows"_s);
    }
};

QTEST_GUILESS_MAIN(conversation)
#include "conversation.moc"
