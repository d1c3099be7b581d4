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
using comunication::utility::qos_t;
using comunication::utility::subscribe_t;

namespace {

QJsonObject configuration(int port, bool autoconnect = true)
{
    const QJsonObject global{{QStringLiteral("installation_id"), QStringLiteral("1234")},
                             {QStringLiteral("port"), port},
                             {QStringLiteral("autoconnect"), autoconnect}};
    return {{QStringLiteral("mqtt"), QJsonObject{{QStringLiteral("global"), global}}}};
}

std::unique_ptr<bare_t<protoclient_t>> makePanel(int port, const char* id = "panel")
{
    return std::make_unique<bare_t<protoclient_t>>(QStringLiteral("1"), configuration(port), QLatin1String(id), false);
}

std::unique_ptr<bare_t<protoserver_t>> makeServer(int port, const char* id = "srv", bool master = true)
{
    return std::make_unique<bare_t<protoserver_t>>(QStringLiteral("1"), configuration(port), master, QLatin1String(id),
                                                   false);
}

const QString ownWill = QStringLiteral("forward-bridge/local/1234/panel/own_server/connection/presentation");

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
        QCOMPARE(observer->messages.filter(QStringLiteral("\"connected\":false")).size(), lastWill ? 1 : 0);
        QCOMPARE(panel->disconnection(false), 4); // nothing to end
    }

    void connectIds()
    {
        const auto panel = makePanel(port);
        QCOMPARE(panel->connect(QString(), false), 0);
        QVERIFY(panel->getConnected());
        QCOMPARE(panel->system->getClientid(), QStringLiteral("panel"));
        QCOMPARE(panel->connect(), 0); // while connected: the session is left alone
        const auto other = makePanel(port, "given");
        log_recorder_t log;
        QCOMPARE(other->connect(QStringLiteral("wall_7"), false), 0);
        QVERIFY(log.lines.contains(QStringLiteral("4 connect Set mosquitto client id: wall_7")));
        QCOMPARE(other->system->getClientid(), QStringLiteral("client@wall7"));
        QCOMPARE(other->client->getWill().topic, QString(ownWill).replace("panel"_l1, "client@wall7"_l1));
        QTRY_COMPARE(published(QString(ownWill).replace("panel"_l1, "client@wall7"_l1)), 1);
    }

    void refusedPassword()
    {
        broker_t strict(QStringLiteral("listener @port 127.0.0.1\nallow_anonymous false"));
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
        const QStringList wanted{QStringLiteral("4 connected Check connection true"),
                                 QStringLiteral("6 setStatusbroker Set status broker to: true"),
                                 QStringLiteral("6 unsubscribe Try to unsubscribe topic: $SYS/#"),
                                 QStringLiteral("6 setStatusbroker Set status broker to: false")};
        QCOMPARE(log.lines, wanted);
        QCOMPARE(server->messages->getSubscriptions()->firstKey(), 2); // the lowest made room
        server->messages->reset();
        log.take();
        server->setStatusbroker(true);
        QVERIFY(log.lines.contains(QStringLiteral("6 subscribe Try to subscribe topic: $SYS/# qos: 2")));
        QTRY_VERIFY(!log.lines.filter(QStringLiteral("3 on_message Recording status broker is enabled...")).isEmpty());
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
        QCOMPARE(server->system->getMasterId(), QStringLiteral("srv"));
        QVERIFY(server->messages->getSubscriptions()->isEmpty());
        QCOMPARE(clients.first()->getClientid(), QStringLiteral("panel"));
        QVERIFY(broker->start());
        QTRY_COMPARE(ready.count(), 2);
        QCOMPARE(masters.count(), 2);
        QCOMPARE(server->getClients().keys(), QStringList{QStringLiteral("panel")});
    }

    // Panels that come and go follow the one master; it gives the role away and takes it back.
    void houseOfPanels()
    {
        const auto first = makeServer(port);
        std::vector<std::unique_ptr<bare_t<protoclient_t>>> panels;
        for (const char* const id : {"p1", "p2", "p3", "p4"}) {
            panels.push_back(makePanel(port, id));
        }
        first->connect();
        const auto allFollow = [&panels](const char* id) {
            return std::all_of(panels.begin(), panels.end(),
                               [id](const auto& panel) { return panel->getServerId() == QLatin1String(id); });
        };
        for (const auto& panel : panels) {
            panel->connect();
        }
        QTRY_VERIFY(allFollow("srv"));
        QTRY_COMPARE(first->getClients().size(), 4);
        QSignalSpy left(first.get(), &protobase_t::on_Presentation);
        panels.back()->disconnection(true);
        QTRY_COMPARE(first->getClients().keys(),
                     (QStringList{QStringLiteral("p1"), QStringLiteral("p2"), QStringLiteral("p3")}));
        const auto isLeave = [](const QVariantList& told) { return !told[2].toBool(); };
        QCOMPARE(std::count_if(left.begin(), left.end(), isLeave), 1);
        panels.pop_back();

        // The election packet of another node names a server of another broker.
        observer->publish(QStringLiteral("local/1234/admin/all_servers/master"), "{\"d\":{\"masterid\":\"second\"}}");
        QTRY_VERIFY(!first->isMaster());
        QTRY_VERIFY(allFollow(""));
        QTRY_COMPARE(published(QStringLiteral(
                         "forward-bridge/local/1234/srv/all_clients/master {\"d\":{\"masterid\":\"srv\"}} 2 0")),
                     1);
        first->setMaster(); // and takes it back
        QTRY_VERIFY(allFollow("srv"));
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

    // The will has left when the engine goes within the second; the link ends with the engine.
    void deletedBeforeTheLinkIsClosed()
    {
        auto panel = makePanel(port);
        QCOMPARE(panel->connect(QString(), false), 0);
        QTRY_COMPARE(published(ownWill), 1);
        QCOMPARE(panel->disconnection(), 0);
        const int before = broker->output().count("disconnected");
        panel.reset();
        QTRY_COMPARE(published(ownWill), 2);
        QTRY_VERIFY(broker->output().count("disconnected") > before ||
                    broker->output().contains("closed its connection"));
    }
};

QTEST_GUILESS_MAIN(engine_broker)
#include "engine_broker.moc"
