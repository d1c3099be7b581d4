// SPDX-License-Identifier: MIT
// Engines on a real broker: how a link begins and ends, who is master, and engines deleted on the way.
#include <flotrofobul/platform/mosquittopp/mosquittoqt.h>

#include "support/broker.h"
#include "support/engine_probe.h"
#include "support/observer.h"

#include <QtCore/QElapsedTimer>
#include <QtTest/QtTest>

#include <csignal>

using comunication::protobase_t;
using comunication::protoclient_t;
using comunication::protoserver_t;

namespace {

QJsonObject configuration(int port, bool autoconnect = true)
{
    const QJsonObject global{{"installation_id"_s, "1234"_s}, {"port"_s, port}, {"autoconnect"_s, autoconnect}};
    return {{"mqtt"_s, QJsonObject{{"global"_s, global}}}};
}

std::unique_ptr<bare_t<protoclient_t>> makePanel(int port, const char* id = "panel")
{
    return std::make_unique<bare_t<protoclient_t>>("1"_s, configuration(port), QLatin1String(id), false);
}

std::unique_ptr<bare_t<protoserver_t>> makeServer(int port, const char* id = "srv", bool master = true)
{
    return std::make_unique<bare_t<protoserver_t>>("1"_s, configuration(port), master, QLatin1String(id), false);
}

const QString ownWill = "forward-bridge/local/1234/panel/own_server/connection/presentation"_s;

} // namespace

class engine_broker : public QObject {
    Q_OBJECT

    std::unique_ptr<broker_t> broker;
    std::unique_ptr<observer_t> observer;
    int port = 0;

    int published(const QString& start) const
    {
        return observer->messages.filter(QRegularExpression(u'^' + QRegularExpression::escape(start))).size();
    }

    // The last announcement wins, so those that are still on their way have to arrive before the next one.
    void awaitSilence() const
    {
        for (int heard = -1; heard != observer->messages.size();) {
            heard = observer->messages.size();
            QTest::qWait(300);
        }
    }

private Q_SLOTS:
    void init()
    {
        ::utility::logs::classlogs::getInstance()->setSink([](const ::utility::logs::LogRecord&) {});
        broker = std::make_unique<broker_t>();
        QVERIFY(broker->start());
        port = broker->port();
        observer = std::make_unique<observer_t>(port);
        QTRY_VERIFY(observer->isReady());
    }
    void cleanup() { ::utility::logs::classlogs::getInstance()->setSink({}); }

    void disconnection_data()
    {
        QTest::addColumn<bool>("lastWill");
        QTest::newRow("with the last will, after a second") << true;
        QTest::newRow("without, at once") << false;
    }
    void disconnection()
    {
        QFETCH(bool, lastWill);
        const auto panel = makePanel(port);
        QSignalSpy lost(panel.get(), &protobase_t::onBrokerDisconnection);
        QCOMPARE(panel->connect(), 0);
        QVERIFY(!panel->getConnected());
        QTRY_VERIFY(panel->getConnected());
        QTRY_COMPARE(published(ownWill), 1);
        QElapsedTimer clock;
        clock.start();
        QCOMPARE(panel->disconnection(lastWill), 0);
        QCOMPARE(panel->getConnected(), lastWill);
        QTRY_COMPARE(lost, (QList<QVariantList>{{0}}));
        QVERIFY2(lastWill == (clock.elapsed() >= 900), qPrintable(QString::number(clock.elapsed())));
        QVERIFY(!panel->getConnected());
        QTRY_COMPARE(published(ownWill), lastWill ? 2 : 1);
        QCOMPARE(observer->messages.filter("\"connected\":false"_s).size(), lastWill ? 1 : 0);
        QCOMPARE(panel->disconnection(false), 4); // nothing to end
    }

    void connectIds()
    {
        const auto panel = makePanel(port);
        QCOMPARE(panel->connect(QString(), false), 0);
        QVERIFY(panel->getConnected());
        QCOMPARE(panel->system->getClientid(), "panel"_s);
        QCOMPARE(panel->connect(), 0); // while connected: the session is left alone
        const auto other = makePanel(port, "given");
        log_recorder_t log;
        QCOMPARE(other->connect("wall_7"_s, false), 0);
        QVERIFY(log.lines.contains("4 connect Set mosquitto client id: wall_7"_s));
        QCOMPARE(other->system->getClientid(), "client@wall7"_s);
        QCOMPARE(other->client->getWill().topic, QString(ownWill).replace("panel"_l1, "client@wall7"_l1));
        QTRY_COMPARE(published(QString(ownWill).replace("panel"_l1, "client@wall7"_l1)), 1);
    }

    void refusedPassword()
    {
        broker_t strict("listener @port 127.0.0.1\nallow_anonymous false"_s);
        QVERIFY(strict.start());
        const auto panel = makePanel(strict.port());
        QSignalSpy answers(panel.get(), &protobase_t::onBrokerConnection);
        log_recorder_t log;
        QCOMPARE(panel->connect(QString(), false), 5);
        const QString line = "(5) Connection Refused: not authorised 127.0.0.1:"_l1 + QString::number(strict.port());
        QVERIFY(log.lines.contains("2 connect "_l1 + line));
        QTRY_COMPARE(answers, (QList<QVariantList>{{5, 0}}));
        QVERIFY(log.lines.contains("2 on_connect_with_flags "_l1 + line));
        QVERIFY(!panel->getConnected());
    }

    void closedPort()
    {
        const int closed = freePort();
        const auto server = makeServer(closed);
        log_recorder_t log;
        QCOMPARE(server->connect(), 1);
        QVERIFY(log.lines.contains(
            "2 connect (14) Connection internal error (maby broker is down or wrong port) 127.0.0.1:"_l1 +
            QString::number(closed)));
    }

    void statisticsOfTheBroker()
    {
        const auto server = makeServer(port);
        server->connect();
        QTRY_COMPARE(server->messages->getSubscriptions()->size(), 10);
        log_recorder_t log;
        server->setStatusbroker(true); // something is subscribed already
        server->setStatusbroker(false);
        const QStringList wanted{
            "4 connected Check connection true"_s, "6 setStatusbroker Set status broker to: true"_s,
            "6 unsubscribe Try to unsubscribe topic: $SYS/#"_s, "6 setStatusbroker Set status broker to: false"_s};
        QCOMPARE(log.lines, wanted);
        QCOMPARE(server->messages->getSubscriptions()->firstKey(), 2); // the lowest made room
        server->messages->reset();
        log.take();
        server->setStatusbroker(true);
        QVERIFY(log.lines.contains("6 subscribe Try to subscribe topic: $SYS/# qos: 2"_s));
        QTRY_VERIFY(!log.lines.filter("3 on_message Recording status broker is enabled..."_s).isEmpty());
    }

    void lossOfTheBroker()
    {
        const auto server = makeServer(port);
        const auto panel = makePanel(port);
        QSignalSpy masters(panel.get(), &protobase_t::on_Presentation);
        QSignalSpy ready(server.get(), &protoserver_t::onClientReady);
        server->connect();
        panel->connect();
        QTRY_COMPARE(ready.count(), 1);
        QCOMPARE(masters.count(), 1);
        const auto clients = server->getClients();
        QSignalSpy lost(panel.get(), &protobase_t::onBrokerDisconnection);
        broker->kill(SIGKILL);
        QTRY_COMPARE(lost, (QList<QVariantList>{{7}}));
        QTRY_VERIFY(server->getClients().isEmpty());
        QCOMPARE(panel->getServerId(), QString());
        QCOMPARE(server->system->getMasterId(), "srv"_s);
        QVERIFY(server->messages->getSubscriptions()->isEmpty());
        QCOMPARE(clients.first()->getClientid(), "panel"_s);
        QVERIFY(broker->start());
        QTRY_COMPARE(ready.count(), 2);
        QCOMPARE(masters.count(), 2);
        QCOMPARE(server->getClients().keys(), QStringList{"panel"_s});
    }

    // Two brokers joined by a bridge, a server on each: the last who says that it is master is.
    void bridgedHouse()
    {
        broker_t far;
        QVERIFY(far.start());
        broker_t near(
            ("connection x-y-1-2\naddress 127.0.0.1:%1\nremote_clientid x-y-1-2\ncleansession true\nrestart_timeout 1\n"
             "topic local/1234/# out 2 forward-bridge/ remote-bridge/\n"
             "topic local/1234/# in 2 remote-bridge/ forward-bridge/"_s)
                .arg(far.port()));
        QVERIFY(near.start());
        observer = std::make_unique<observer_t>(near.port());
        const auto first = makeServer(near.port(), "tarnel-server-1");
        const auto second = makeServer(far.port(), "tarnel-server-2", false);
        std::vector<std::unique_ptr<bare_t<protoclient_t>>> panels;
        const auto allFollow = [&panels](const char* id) {
            return std::all_of(panels.begin(), panels.end(),
                               [id](const auto& panel) { return panel->getServerId() == QLatin1String(id); });
        };
        QSignalSpy bridge(first.get(), &protobase_t::onBridgeConnectionEvent);
        QSignalSpy bridgeError(first.get(), &protobase_t::onMasterBridgeError);
        QSignalSpy told(first.get(), &protobase_t::on_Presentation);
        second->connect();
        QTRY_VERIFY(second->getConnected() && second->messages->getPublications()->isEmpty());
        first->connect();
        for (const char* const id : {"p1", "p2", "p3", "p4"}) {
            panels.push_back(makePanel(near.port(), id));
            panels.back()->connect();
        }
        QTRY_VERIFY(allFollow("tarnel-server-1"));
        QTRY_COMPARE(first->getClients().keys(), (QStringList{"p1"_s, "p2"_s, "p3"_s, "p4"_s}));
        QTRY_VERIFY(!bridge.isEmpty() && bridge.last()[1] == "x-y-1-2"_s && bridge.last()[2] == "1"_s);
        panels.back()->disconnection(true);
        QTRY_COMPARE(first->getClients().keys(), (QStringList{"p1"_s, "p2"_s, "p3"_s}));
        const auto isLeave = [](const QVariantList& one) { return one[0] == "p4"_s && !one[2].toBool(); };
        QCOMPARE(std::count_if(told.begin(), told.end(), isLeave), 1);
        panels.pop_back();

        awaitSilence();
        // An election packet of another node names somebody else: the panels are told to wait.
        observer->publish("local/1234/admin/all_servers/master"_s, "{\"d\":{\"masterid\":\"six\"}}");
        QTRY_COMPARE(published("forward-bridge/local/1234/tarnel-server-1/all_clients/master "
                               "{\"d\":{\"masterid\":\"tarnel-server-1\"}} 2 0"_s),
                     1);
        QTRY_VERIFY(allFollow(""));
        QCOMPARE(first->system->getMasterId(), "six"_s);

        awaitSilence();
        second->setMaster();
        QTRY_VERIFY(allFollow("tarnel-server-2"));
        QTRY_COMPARE(first->system->getMasterId(), "tarnel-server-2"_s);

        const int errors = bridgeError.count();
        far.kill(SIGKILL);
        QTRY_COMPARE(bridge.last()[2], "0"_s);
        QCOMPARE(bridgeError.count(), errors + 1); // the bridge joins the master
    }

    // The sanitizers watch what is touched afterwards.
    void deletedInItsSignals()
    {
        int deleted = 0;
        const auto deleteIn = [&](auto* engine, auto signal) {
            QObject::connect(engine, signal, this, [engine, &deleted] {
                delete engine;
                ++deleted;
            });
            return engine;
        };
        deleteIn(makePanel(port).release(), &protobase_t::onBrokerConnection)->connect();
        QTRY_COMPARE(deleted, 1);
        deleteIn(makePanel(port).release(), &protobase_t::onBrokerConnection)->connect(QString(), false);
        QTRY_COMPARE(deleted, 2);
        deleteIn(makeServer(port).release(), &protoserver_t::onConnection)->connect();
        QTRY_COMPARE(deleted, 3);
        auto* const panel = deleteIn(makePanel(port).release(), &protobase_t::onBrokerDisconnection);
        panel->connect(QString(), false);
        panel->disconnection(false);
        QTRY_COMPARE(deleted, 4);
        deleteIn(makePanel(port).release(), &protobase_t::on_Presentation)->connect();
        const auto server = makeServer(port);
        server->connect();
        QTRY_COMPARE(deleted, 5);
        deleteIn(makePanel(port).release(), &protobase_t::on_Presentation)->connect();
        QTRY_COMPARE(deleted, 6);
    }

    // The will has left when the engine goes within the second; the link ends with the engine, which the broker may
    // take for a sudden end and tell once more.
    void deletedBeforeTheLinkIsClosed()
    {
        auto panel = makePanel(port);
        QCOMPARE(panel->connect(QString(), false), 0);
        QTRY_COMPARE(published(ownWill), 1);
        QCOMPARE(panel->disconnection(), 0);
        const int before = broker->output().count("disconnected");
        panel.reset();
        QTRY_VERIFY(published(ownWill) >= 2);
        QTRY_VERIFY(broker->output().count("disconnected") > before ||
                    broker->output().contains("closed its connection"));
    }
};

QTEST_GUILESS_MAIN(engine_broker)
#include "engine_broker.moc"
