// SPDX-License-Identifier: MIT
// What the broker client reports to the two roles, and what each does, logs and signals for it, whole and in order.
#include <flotrofobul/utility/statusbroker.h>

#include "support/engine_probe.h"
#include "support/story.h"

#include <QtTest/QtTest>

using comunication::protoclient_t;
using comunication::protoserver_t;
using comunication::utility::qos_t;
using comunication::utility::service_t;
using comunication::utility::subscribe_t;

namespace {

using client_t = probe_t<protoclient_t>;
using server_t = probe_t<protoserver_t>;

// "+id type master" and "-id type master" are presentations of a node that is there and that is gone; everything
// else is JSON with ' for ".
QString payloadOf(QString text)
{
    if (!text.startsWith(u'+') && !text.startsWith(u'-')) {
        return text.replace(u'\'', u'"');
    }
    const QStringList words = text.mid(1).split(u' ');
    return R"({"clientid":"%1","connected":%2,"masterid":"%3","type":"%4"})"_s.arg(
        words[0], text.startsWith(u'+') ? "true"_s : "false"_s, words.value(2), words[1]);
}

} // namespace

class unit_roles : public QObject {
    Q_OBJECT

    log_recorder_t log;
    QStringList& events = log.lines;

    std::unique_ptr<client_t> makeClient(const QString& master = QString())
    {
        auto engine = std::make_unique<client_t>(events, "1"_s, installation(), "panel"_s, false);
        engine->setBridgeKey("key"_s);
        engine->system->setMasterId(master);
        return engine;
    }
    std::unique_ptr<server_t> makeServer(const QString& master = QString())
    {
        auto engine = std::make_unique<server_t>(events, "1"_s, installation(), false, "srv"_s, false);
        engine->system->setMasterId(master);
        return engine;
    }

    // Does what a step says, and returns the base's first lines of it. "message" is a packet, "raw" any message.
    template <class Engine>
    QStringList perform(Engine& engine, const QString& verb, const QString& first, const QString& second)
    {
        if (verb == "connected"_l1) {
            Q_EMIT engine.client->onConnect(first.toInt());
            Q_EMIT engine.client->onConnect_with_flags(first.toInt(), second.toInt());
        } else if (verb == "lost"_l1) {
            Q_EMIT engine.client->onDisconnect(first.toInt());
        } else if (verb == "publish"_l1) {
            QMetaObject::invokeMethod(&engine, "publish", Q_ARG(QJsonObject, parse(first.toUtf8())));
        } else {
            const bool isPacket = verb == "message"_l1;
            const bool isBrokers = first.startsWith(u'$');
            const QString payload = (isPacket ? "{\"d\":%1}"_s : "%1"_s).arg(payloadOf(second));
            Q_EMIT engine.client->onMessage(5, first, payload, 0, 1, true);
            const QString rest = "topic: "_l1 + first + " qos: 1 retain: 1"_l1;
            const QLatin1String blank = std::is_same_v<Engine, server_t> ? " _"_l1 : " "_l1;
            const QStringList lines{
                "6 on_message Recieve message => mid: 5 "_l1 + rest,
                (isBrokers ? "6 on_message $SYS message "_l1 : "4 on_message Recieve message topic: "_l1) + first,
                "6 onMessage Processing message => mid: 5"_l1 + blank + rest};
            return lines.mid(0, isPacket ? 3 : isBrokers ? 2 : 1);
        }
        return {};
    }

    // Plays a story on an engine, which is deleted in the signal with the number of the fuse, if there are so many: it
    // says goodbye and nothing else. Returns the number of signals.
    template <class Engine>
    int play(const QString& name, std::unique_ptr<Engine> owned, int fuse)
    {
        const QPointer<Engine> engine = owned.release();
        engine->recorder.fuse = fuse;
        log.take();
        QStringList expected;
        QString topic;
        QString payload;
        int emitted = 0;
        const QStringList lines = script.unfold(script.sections[name].mid(1));
        for (auto line = lines.begin(); line != lines.end() && (fuse == 0 || emitted < fuse); ++line) {
            expected << QString(*line).replace("$T"_l1, topic).replace("$P"_l1, payloadOf(payload));
            emitted += line->startsWith("emit "_l1);
            if (line->startsWith("> "_l1)) {
                events << *line;
                topic = line->section(u' ', 2, 2);
                payload = line->section(u' ', 3);
                expected << perform(*engine, line->section(u' ', 1, 1), topic, payload);
            }
        }
        if (!engine) {
            const bool isServer = std::is_same_v<Engine, server_t>;
            expected << (isServer ? "4 ~protoserver_t Destroy comunication base ..."_s
                                  : "4 ~protoclient_t Destroy comunication client ..."_s)
                     << "4 ~protobase_t Destroy comunication base ..."_s;
        }
        [&] { QCOMPARE(events, expected); }();
        delete engine;
        return emitted;
    }

    const story_t script{QFINDTESTDATA("data/roles.txt")};

private Q_SLOTS:
    void cleanup() { log.take(); }

    // The first line of a story names its role (or both) and the master that is known.
    void stories_data()
    {
        QTest::addColumn<QString>("name");
        for (const QString& name : script.names.filter(QRegularExpression("^[^$=]"_s))) {
            QTest::newRow(qPrintable(name)) << name;
        }
    }
    void stories()
    {
        QFETCH(QString, name);
        const QString role = script.sections[name][0].section(u' ', 0, 0);
        const QString master = script.sections[name][0].section(u' ', 1);
        const int ofClient = role == "server"_l1 ? 0 : play(name, makeClient(master), 0);
        const int ofServer = role == "client"_l1 ? 0 : play(name, makeServer(master), 0);
        for (int fuse = 1; fuse <= std::max(ofClient, ofServer) && !QTest::currentTestFailed(); ++fuse) {
            ofClient > 0 ? play(name, makeClient(master), fuse) : 0;
            ofServer > 0 ? play(name, makeServer(master), fuse) : 0;
        }
    }

    void linkResults()
    {
        const auto engine = makeClient();
        const QMap<int, QString> texts{{0, "Connected to broker to "_s},
                                       {1, "Connection Refused: unacceptable protocol version to "_s},
                                       {2, "Connection Refused: identifier rejected to "_s},
                                       {3, "Connection Refused: broker unavailable to "_s},
                                       {4, "Connection Refused: bad user name or password to "_s},
                                       {5, "Connection Refused: not authorised "_s},
                                       {7, "Connection lost connection "_s},
                                       {14, "Connection internal error (maby broker is down or wrong port) "_s}};
        for (const int rc : {-1, 0, 1, 2, 3, 4, 5, 6, 7, 8, 14, 15, 128}) {
            log.take();
            Q_EMIT engine->client->onConnect_with_flags(rc, 0);
            Q_EMIT engine->client->onDisconnect(rc);
            const QString text = texts.value(rc, "Connection Refused: unknown reason "_s) + "127.0.0.1:1883"_l1;
            const QString line = (rc == 0 ? "4 %1 ("_l1 : "2 %1 ("_l1) + QString::number(rc) + ") "_l1 + text;
            QCOMPARE(events[0], line.arg("on_connect_with_flags"_l1));
            QVERIFY(events.contains(QString(line).replace("Connect"_l1, "Disconnect"_l1).arg("on_disconnect"_l1)));
        }
    }

    void logLevels()
    {
        const auto engine = makeClient();
        const QMap<int, int> levels{{0, 4}, {1, 4}, {2, 4}, {4, 3}, {8, 2}, {10, 6}, {16, 4}, {3, 4}};
        for (auto level = levels.begin(); level != levels.end(); ++level) {
            log.take();
            for (const bool on : {true, false}) {
                engine->setMosquittoLog(on);
                Q_EMIT engine->client->onLog(level.key(), "text"_s);
            }
            const QString role = "onLog %1 text"_s.arg(level.key());
            QCOMPARE(events, (QStringList{"%1 on_log text"_s.arg(*level), role, role}));
        }
        Q_EMIT engine->client->onError();
        QCOMPARE(events.mid(3), (QStringList{"2 on_error An error occured in mosquitto"_s, "onError"_s}));
        Q_EMIT engine->client->onPublish(7);
        QCOMPARE(events.last(), "onPublish 7"_s);
        ::utility::logs::classlogs::getInstance()->setLevel(3);
        QVERIFY(!::utility::logs::classlogs::getInstance()->isEnabled(4)); // a line that nobody takes is not built
        ::utility::logs::classlogs::getInstance()->setLevel(6);
    }

    // Ready is said once, when the broker has confirmed the status topic of this client or of all, and taken back for
    // a topic of one level, which never comes.
    void ready()
    {
        for (const auto& [topic, isStatus] : {std::pair{"local/1234/srv/all/status/#"_s, true},
                                              {"forward-bridge/local/1234/srv/panel/status/#"_s, true},
                                              {"local/1234/srv/pane/status/#"_s, false},
                                              {"local/1234/srv/all/status/#/x"_s, false},
                                              {"local/1234/srv/all/notification/#"_s, false},
                                              {"/all/status/#"_s, false}}) {
            const auto engine = makeClient("srv"_s);
            const auto said = [&] { return log.count("/panel/srv/command/client/ready"_s); };
            log.take();
            engine->onSubscribe(1, 0, nullptr, topic);
            engine->onSubscribe(1, 0, nullptr, topic);
            engine->onUnsubscribe(1, topic);
            QCOMPARE(said(), isStatus ? 1 : 0);
            engine->messages->addSubscription(2, "srv/panel/status/#"_s, qos_t(2));
            Q_EMIT engine->client->onUnsubscribe(2);
            QCOMPARE(said(), isStatus ? 2 : 0);
        }
        const auto engine = makeClient("srv"_s);
        Q_EMIT engine->client->onSubscribe(1, 0, nullptr);
        Q_EMIT engine->client->onUnsubscribe(1);
        QVERIFY(events.contains("3 on_subscribe Subscribe topic with mid 1 not found!"_s));
        QCOMPARE(events.last(), "3 on_unsubscribe Unubscribe topic with mid 1 not found!"_s);
    }

    void furtherSubscriptions()
    {
        const auto panel = makeClient();
        const auto server = makeServer("  "_s);
        log.take();
        panel->subscription_presentation();
        QCOMPARE(events.takeFirst(), "init_bridge 1"_s);
        log.take();
        panel->setBridgeKey(QString());
        panel->setBridgeKey("k"_s);
        panel->subscribe_bridge();
        panel->setStatusbroker(true);
        panel->subscribe_bridge();
        QVERIFY(!server->isMaster());
        server->subscription_presentation();
        server->subscription_presentation(service_t("other"_s), subscribe_t(1));
        QCOMPARE(events, script.unfold(script.sections["= further"_s]));
    }

    // The record of a default master at its n-th connection; what lies deeper than eight levels is cut.
    void mastersOfAMaster()
    {
        const auto engine = makeServer();
        engine->setMaster(); // at each connection, for want of one
        for (int connection = 1; connection < 20; ++connection) {
            Q_EMIT engine->client->onConnect_with_flags(0, 0);
            QCOMPARE(textOf(engine->system->getMasterData()).count("masterData"_l1), std::min(connection, 8));
        }
    }
};

QTEST_GUILESS_MAIN(unit_roles)
#include "unit_roles.moc"
