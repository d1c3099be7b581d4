// SPDX-License-Identifier: MIT
// Tries a broker on this machine with real engines: everything that a house needs of it, one line for each.
#include "house_plan/bridge_lines.h"
#include "laboratory/trial_nodes.h"

#include <flotrofobul/platform/logs/classlogs.h>
#include <flotrofobul/testkit/proxy.h>
#include <flotrofobul/testkit/waiting.h>

#include <QtCore/QCommandLineParser>
#include <QtCore/QCoreApplication>
#include <QtCore/QElapsedTimer>
#include <QtCore/QJsonDocument>

#include <cstdio>

namespace {

using namespace std::chrono_literals;
using namespace comunication::testkit;
using namespace comunication::tools;

/// What was found: in words what was seen, or what was not.
struct finding_t {
    bool good;
    QString words;
};

finding_t seen(const QString& words = QString())
{
    return {true, words};
}
finding_t missing(const QString& words)
{
    return {false, words};
}

void pass(std::chrono::milliseconds time)
{
    until([] { return false; }, time);
}

QString secondsOf(const QElapsedTimer& clock)
{
    return QStringLiteral("%1 s").arg(clock.elapsed() / 1000.0, 0, 'f', 1);
}

class trials_t {
public:
    trials_t(const QJsonObject& givenPlain, const QJsonObject& givenSecure, int givenPanels,
             const QStringList& givenOnly)
        : plain(givenPlain), secure(givenSecure), panels(givenPanels), only(givenOnly)
    {}

    int run()
    {
        const struct {
            const char* name;
            finding_t (trials_t::*run)();
        } trials[] = {
            {"connect", &trials_t::connects},
            {"presentation", &trials_t::presents},
            {"master", &trials_t::hasMaster},
            {"request", &trials_t::asks},
            {"status", &trials_t::answers},
            {"retained status", &trials_t::keeps},
            {"last will", &trials_t::publishesWill},
            {"QoS 2 sender cut", &trials_t::takesOnce},
            {"QoS 2 receiver cut", &trials_t::deliversOnce},
            {"kept session", &trials_t::keepsSession},
            {"TLS", &trials_t::encrypts},
            {"big payload", &trials_t::takesBig},
            {"bridge", &trials_t::isBridged},
            {"many panels", &trials_t::carriesMany},
        };
        int failed = 0;
        for (const auto& trial : trials) {
            if (!only.isEmpty() && !only.contains(QLatin1String(trial.name))) {
                continue;
            }
            const finding_t finding = (this->*trial.run)();
            failed += finding.good ? 0 : 1;
            std::printf("%-4s %-20s %s\n", finding.good ? "ok" : "not", trial.name, qPrintable(finding.words));
            std::fflush(stdout);
        }
        return failed == 0 ? 0 : 1;
    }

private:
    QJsonObject part(const QString& name) const { return plain[u"mqtt"].toObject()[name].toObject(); }
    quint16 port() const { return static_cast<quint16>(part(QStringLiteral("global"))[u"port"].toInt()); }
    QJsonObject access() const { return part(QStringLiteral("connect")); }
    QString installation() const { return part(QStringLiteral("global"))[u"installation_id"].toString(); }
    /// The configuration with another port.
    QJsonObject over(quint16 other) const
    {
        QJsonObject mqtt = plain[u"mqtt"].toObject();
        QJsonObject global = mqtt[u"global"].toObject();
        global[u"port"] = other;
        mqtt[u"global"] = global;
        return {{QStringLiteral("mqtt"), mqtt}};
    }

    finding_t connects()
    {
        server = std::make_unique<trial_server_t>(plain);
        server->connect();
        if (!until([this] { return server->getConnected(); })) {
            return missing(server->linkProblem());
        }
        pass(500ms); // until the server has said who it is
        return server->getConnected() ? seen() : missing(server->linkProblem());
    }

    finding_t presents()
    {
        panel = std::make_unique<trial_panel_t>(plain);
        panel->connect();
        return until([this] { return server->nodes.value(panelId); })
                   ? seen()
                   : missing(QStringLiteral("the server does not hear of the panel"));
    }

    finding_t hasMaster()
    {
        return until([this] { return panel->follows(serverId); }) ? seen()
                                                                  : missing(QStringLiteral("the panel has no master"));
    }

    finding_t asks()
    {
        pass(200ms); // until the panel listens to its master
        panel->ask(number);
        return until([this] { return server->requests > 0; }) ? seen() : missing(QStringLiteral("it does not come"));
    }

    finding_t answers()
    {
        if (!until([this] { return panel->copies(number) > 0; })) {
            return missing(QStringLiteral("it does not come"));
        }
        pass(300ms);
        return panel->copies(number) == 1 && server->requests == 1
                   ? seen()
                   : missing(
                         QStringLiteral("%1 requests, %2 answers").arg(server->requests).arg(panel->copies(number)));
    }

    finding_t keeps()
    {
        trial_panel_t late(plain, QStringLiteral("panel-late"));
        late.connect();
        const bool came = until([&] { return late.copies(number) > 0; });
        late.disconnection(true);
        pass(200ms);
        return came ? seen() : missing(QStringLiteral("a panel that comes later does not get it"));
    }

    // The link ends as that of a process that is killed: without a word.
    finding_t publishesWill()
    {
        proxy_t network(port());
        auto short_ = std::make_unique<trial_panel_t>(over(network.port()), QStringLiteral("panel-short"));
        short_->connect();
        const QString id = QStringLiteral("panel-short");
        if (!until([&] { return server->nodes.value(id); })) {
            return missing(QStringLiteral("the panel was not there"));
        }
        QElapsedTimer clock;
        clock.start();
        network.refuse(true);
        network.cut(cut_t::orderly);
        const bool told = until([&] { return !server->nodes.value(id); });
        return told ? seen(secondsOf(clock)) : missing(QStringLiteral("nobody hears of it"));
    }

    finding_t takesOnce() { return comesOnce(true); }
    finding_t deliversOnce() { return comesOnce(false); }
    // Sender and receiver keep their sessions; the network of one is cut again and again.
    finding_t comesOnce(bool cutsSender)
    {
        constexpr int messages = 300;
        proxy_t up(port(), 1);
        proxy_t down(port(), 2);
        counting_client_t sender(QStringLiteral("trial-sender"), access());
        counting_client_t receiver(QStringLiteral("trial-receiver"), access());
        const auto hurry = [](counting_client_t& client, const proxy_t& network) {
            QObject::connect(&client, &counting_client_t::onDisconnect, &client,
                             [&] { QTimer::singleShot(50, &client, [&] { client.dial(network.port()); }); });
            client.dial(network.port());
        };
        hurry(sender, up);
        hurry(receiver, down);
        if (!until([&] { return sender.getConnected() && receiver.getConnected(); })) {
            return missing(QStringLiteral("no link"));
        }
        receiver.subscribe(nullptr, topic(), 2);
        if (!until([&] { return receiver.listens; })) {
            return missing(QStringLiteral("no subscription"));
        }
        QRandomGenerator random(3);
        QTimer cuts;
        QObject::connect(&cuts, &QTimer::timeout, &cuts, [&] {
            way_t way;
            way.longestDelay = 5;
            way.cut = static_cast<cut_t>(random.bounded(2)); // the third kind needs the keep-alive to be noticed
            way.bytesUntilCut = random.bounded(1 << random.bounded(5, 13));
            proxy_t& network = cutsSender ? up : down;
            random.bounded(2) == 0 ? network.set(way, {}) : network.set({}, way);
        });
        cuts.start(100);
        for (int i = 0; i < messages; ++i) {
            sender.publish(nullptr, topic(), QString::number(i), 2, false);
            pass(15ms);
        }
        cuts.stop();
        up.heal();
        down.heal();
        const auto isAll = [&] { return receiver.heard.size() == messages && sender.acknowledged == messages; };
        until(isAll, 40s);
        pass(500ms);
        int again = 0;
        for (const int copies : receiver.heard) {
            again += copies > 1 ? 1 : 0;
        }
        const QString words = QStringLiteral("%1 of %2 came, %3 more than once; %4 cuts")
                                  .arg(receiver.heard.size())
                                  .arg(messages)
                                  .arg(again)
                                  .arg(sender.losses + receiver.losses);
        sender.disconnect_sync();
        receiver.disconnect_sync();
        return {isAll() && again == 0, words};
    }

    finding_t keepsSession()
    {
        constexpr int messages = 50;
        proxy_t network(port());
        counting_client_t away(QStringLiteral("trial-away"), access());
        counting_client_t speaker(QStringLiteral("trial-speaker"), access());
        away.dial(network.port());
        speaker.dial(port());
        const auto isLinked = [&] { return away.getConnected() && speaker.getConnected(); };
        if (!until(isLinked)) {
            return missing(QStringLiteral("no link"));
        }
        away.subscribe(nullptr, topic(), 2);
        until([&] { return away.listens; });
        network.refuse(true);
        network.cut(cut_t::orderly);
        until([&] { return !away.getConnected(); });
        pass(200ms);
        for (int i = 0; i < messages; ++i) {
            speaker.publish(nullptr, topic(), QString::number(i), 1 + i % 2, false);
        }
        until([&] { return speaker.acknowledged == messages; });
        network.refuse(false);
        away.dial(network.port());
        const auto isAll = [&] { return away.heard.size() == messages; };
        until(isAll, 10s);
        pass(200ms);
        const bool once = std::all_of(away.heard.begin(), away.heard.end(), [](int copies) { return copies == 1; });
        const QString words = QStringLiteral("%1 of %2 came%3")
                                  .arg(away.heard.size())
                                  .arg(messages)
                                  .arg(once ? QString() : QStringLiteral(", some again"));
        away.disconnect_sync();
        speaker.disconnect_sync();
        return {isAll() && once, words};
    }

    finding_t encrypts()
    {
        if (secure.isEmpty()) {
            return missing(QStringLiteral("not tried: no configuration with TLS was given"));
        }
        trial_panel_t phone(secure, QStringLiteral("panel-secure"));
        phone.connect();
        if (!until([&] { return phone.follows(serverId); })) {
            return missing(phone.getConnected() ? QStringLiteral("the panel has no master") : phone.linkProblem());
        }
        pass(200ms);
        ++number;
        phone.ask(number);
        const bool answered = until([&] { return phone.copies(number) == 1; });
        phone.disconnection(true);
        pass(200ms);
        return answered ? seen() : missing(QStringLiteral("no answer"));
    }

    finding_t takesBig()
    {
        counting_client_t client(QStringLiteral("trial-big"), access());
        client.dial(port());
        until([&] { return client.getConnected(); });
        client.subscribe(nullptr, topic(), 2);
        until([&] { return client.listens; });
        QString largest = QStringLiteral("none");
        for (const int kib : {64, 256, 1024, 4096, 16384}) {
            const QString payload(kib * 1024, u'x');
            client.publish(nullptr, topic(), payload, 2, false);
            if (!until([&] { return client.heard.value(payload) == 1; }, 10s)) {
                client.disconnect_sync();
                return {kib > 1024, QStringLiteral("up to %1, not %2 KiB").arg(largest).arg(kib)};
            }
            client.heard.clear();
            largest = QStringLiteral("%1 KiB").arg(kib);
        }
        client.disconnect_sync();
        return seen(QStringLiteral("up to ") + largest);
    }

    // A house with a mosquitto of its own, whose bridge dials this broker; a phone here follows the master there.
    finding_t isBridged()
    {
        house_plan_t plan;
        box_t box;
        broker_t near;
        box.server = QStringLiteral("1");
        box.master = true;
        box.broker.host = near.host();
        box.broker.port = near.port();
        plan.installationId = installation();
        plan.boxes << box;
        plan.cloud.emplace();
        plan.cloud->bridgeKey = QStringLiteral("trialkey");
        plan.cloud->broker.host = near.host();
        plan.cloud->broker.port = port();
        plan.cloud->broker.username = access()[u"username"].toString();
        plan.cloud->broker.password = access()[u"password"].toString();
        QString problem;
        for (const bool notify : {true, false}) {
            plan.cloud->notifications = notify;
            near.kill(SIGKILL);
            near.configure(bridgeLines(plan, 0, {}));
            if (!near.start()) {
                return missing(QStringLiteral("no mosquitto"));
            }
            panel.reset();
            server = std::make_unique<trial_server_t>(over(near.port()));
            server->connect();
            trial_panel_t phone(plain, QStringLiteral("phone"));
            phone.connect();
            const bool follows = until([&] { return phone.follows(serverId); }, 15s);
            pass(500ms);
            ++number; // the answer to the one before is retained
            phone.ask(number);
            const bool answered = follows && until([&] { return phone.copies(number) > 0; }, 10s);
            phone.disconnection(true);
            server->disconnection(true);
            pass(300ms);
            if (answered) {
                return seen(notify ? QString() : QStringLiteral("only with \"notifications\": false; else ") + problem);
            }
            problem = QStringLiteral("%1; the bridge lost its link %2 times")
                          .arg(follows ? QStringLiteral("no answer") : QStringLiteral("the phone has no master"))
                          .arg(near.output().count("disconnected") + near.output().count("closed its connection"));
        }
        return missing(problem);
    }

    finding_t carriesMany()
    {
        QElapsedTimer clock;
        clock.start();
        server = std::make_unique<trial_server_t>(plain);
        server->connect();
        until([this] { return server->getConnected(); });
        std::vector<std::unique_ptr<trial_panel_t>> all;
        for (int i = 0; i < panels; ++i) {
            all.push_back(std::make_unique<trial_panel_t>(plain, QStringLiteral("many-%1").arg(i)));
            all.back()->connect();
        }
        const auto count = [&](auto condition) {
            return static_cast<int>(std::count_if(all.begin(), all.end(), condition));
        };
        const auto follow = [&] { return count([this](const auto& one) { return one->follows(serverId); }); };
        until([&] { return follow() == panels; }, 60s);
        const QString first = secondsOf(clock);
        pass(1s);
        clock.start();
        server->say(QStringLiteral("all"), {{QStringLiteral("number"), -1}}, false);
        const auto informed = [&] { return count([](const auto& one) { return one->copies(-1) == 1; }); };
        until([&] { return informed() == panels; }, 20s);
        const QString words = QStringLiteral("of %1, %2 follow after %3, %4 have a status after %5")
                                  .arg(panels)
                                  .arg(follow())
                                  .arg(first)
                                  .arg(informed())
                                  .arg(secondsOf(clock));
        return {follow() == panels && informed() == panels, words};
    }

    QString topic() const
    {
        return QStringLiteral("forward-bridge/local/%1/trial/nobody/status/trial").arg(installation());
    }

    const QString serverId = QStringLiteral("tarnel-server-1");
    const QString panelId = QStringLiteral("panel-1");
    const QJsonObject plain;
    const QJsonObject secure;
    const int panels;
    const QStringList only;
    int number = QRandomGenerator::global()->bounded(1 << 30); // a broker may keep answers of an earlier run
    std::unique_ptr<trial_server_t> server;
    std::unique_ptr<trial_panel_t> panel;
};

QJsonObject readFile(const QString& path)
{
    QFile file(path);
    return !path.isEmpty() && file.open(QIODevice::ReadOnly) ? QJsonDocument::fromJson(file.readAll()).object()
                                                             : QJsonObject();
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    QCommandLineParser options;
    options.setApplicationDescription(QStringLiteral("Tries a broker on 127.0.0.1 with servers and panels: is it one "
                                                     "for a house? Exit codes: 0 all was seen, 1 not."));
    options.addHelpOption();
    options.addPositionalArgument(QStringLiteral("configuration"),
                                  QStringLiteral("Of a host, as its engine reads it."));
    const QCommandLineOption tls(QStringLiteral("tls"), QStringLiteral("The same with TLS."), QStringLiteral("file"));
    const QCommandLineOption panels(QStringLiteral("panels"), QStringLiteral("How many at once; default 200."),
                                    QStringLiteral("N"), QStringLiteral("200"));
    const QCommandLineOption only(QStringLiteral("only"), QStringLiteral("Only these trials."),
                                  QStringLiteral("names"));
    options.addOptions({tls, panels, only});
    options.process(application);
    const QJsonObject configuration = readFile(options.positionalArguments().value(0));
    if (configuration.isEmpty()) {
        options.showHelp(2);
    }
    auto* const logs = ::utility::logs::classlogs::getInstance();
    logs->setLevel(qEnvironmentVariableIsSet("FLOTROFOBUL_LOG_LEVEL") ? ::utility::logs::info : ::utility::logs::fatal);
    return trials_t(configuration, readFile(options.value(tls)), options.value(panels).toInt(),
                    options.value(only).split(u',', Qt::SkipEmptyParts))
        .run();
}
