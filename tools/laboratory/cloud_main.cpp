// SPDX-License-Identifier: MIT
// A cloud for many houses: ejabberd as a cluster of two nodes on loopback, a bridge's connection and two phones of each
// house as light clients, a node that dies and comes back. Prints what was measured.
#include "house_plan/bridge_lines.h"
#include "laboratory/cloud_node.h"
#include "laboratory/trial_nodes.h"

#include <flotrofobul/platform/logs/classlogs.h>
#include <flotrofobul/platform/mosquittopp/mosquittoqt.h>

#include <QtCore/QCommandLineParser>
#include <QtCore/QCoreApplication>
#include <QtCore/QDir>
#include <QtCore/QElapsedTimer>
#include <QtCore/QTemporaryDir>
#include <QtCore/QTimer>

#include <cstdio>

namespace {

using namespace std::chrono_literals;
using comunication::mosquittopp::mosquittoqt;

/// Where clients find the cloud: as a balancer would, each attempt that fails or link that is lost leads to the other
/// node.
struct balancer_t {
    quint16 ports[2];
};

/// One connection of a house: the bridge with the master behind it, or a phone.
class light_client_t : public mosquittoqt {
public:
    light_client_t(const QString& givenHouse, const QString& givenId, int givenNode, const balancer_t& givenBalancer)
        : mosquittoqt(givenHouse + givenId, true, false), house(givenHouse), id(givenId), node(givenNode),
          balancer(givenBalancer)
    {
        username_pw_set(house, QStringLiteral("word"));
        setConnectTimeout(20);
        QObject::connect(this, &mosquittoqt::onConnect, this, [this](int rc) {
            if (rc == 0) {
                subscribe(nullptr, QStringLiteral("%1/local/%2/#").arg(listensTo(), house), 2);
            } else {
                dialLater();
            }
        });
        QObject::connect(this, &mosquittoqt::onSubscribe, this, [this](int, int, const int* codes) {
            if (codes[0] > 2) {
                ++refusals;
            } else {
                listens = true;
                act();
            }
        });
        QObject::connect(this, &mosquittoqt::onDisconnect, this, [this] {
            listens = answered = false;
            dialLater();
        });
        QObject::connect(this, &mosquittoqt::onMessage, this, [this](int, const QString& topic, const QString& text) {
            const QStringList levels = topic.split(u'/');
            strangers += levels.value(2) != house || text != house ? 1 : 0;
            hear(levels);
        });
    }

    void dial()
    {
        const int rc = connect_async(QStringLiteral("127.0.0.1"), balancer.ports[node], 60);
        if (rc != 0 && !getConnected()) {
            dialLater();
        }
    }

    bool listens = false;
    bool answered = false; ///< a phone has its master
    int strangers = 0;     ///< packets of another house
    int refusals = 0;

protected:
    virtual QString listensTo() const = 0;
    virtual void act() {}
    virtual void hear(const QStringList& levels) = 0;
    void say(const QString& prefix, const QString& to, const QString& what)
    {
        publish(nullptr, QStringLiteral("%1/local/%2/%3/%4/%5").arg(prefix, house, id, to, what), house, 2, false);
    }

    const QString house;
    const QString id;

private:
    // The first pause of an engine, which has lost its link.
    void dialLater()
    {
        node = 1 - node;
        QTimer::singleShot(750 + QRandomGenerator::global()->bounded(250), this, [this] { dial(); });
    }

    int node;
    const balancer_t& balancer;
};

class house_bridge_t : public light_client_t {
public:
    using light_client_t::light_client_t;

protected:
    QString listensTo() const override { return QStringLiteral("forward-bridge"); }
    void hear(const QStringList& levels) override
    {
        say(QStringLiteral("cloud-bridge"), levels.value(3), QStringLiteral("connection/presentation"));
    }
};

/// Asks for its master each second until it is answered.
class phone_t : public light_client_t {
public:
    phone_t(const QString& givenHouse, const QString& givenId, int givenNode, const balancer_t& givenBalancer)
        : light_client_t(givenHouse, givenId, givenNode, givenBalancer)
    {
        QObject::connect(&again, &QTimer::timeout, this, [this] { ask(); });
    }
    void ask()
    {
        if (listens && !answered) {
            say(QStringLiteral("forward-bridge"), QStringLiteral("own_server"),
                QStringLiteral("connection/presentation"));
            again.start(1000);
        }
    }
    /// Tries to hear and to disturb another house.
    void trespass(const QString& other)
    {
        subscribe(nullptr, QStringLiteral("+/local/%1/#").arg(other), 2);
        publish(nullptr, QStringLiteral("cloud-bridge/local/%1/x/phone1/connection/presentation").arg(other), house, 2,
                false);
    }

protected:
    QString listensTo() const override { return QStringLiteral("cloud-bridge"); }
    void act() override { ask(); }
    void hear(const QStringList& levels) override
    {
        if (levels.value(4) == id) {
            answered = true;
            again.stop();
        }
    }

private:
    QTimer again;
};

QJsonObject configurationOf(const QString& house, quint16 port)
{
    return {
        {QStringLiteral("mqtt"),
         QJsonObject{{QStringLiteral("global"),
                      QJsonObject{{QStringLiteral("installation_id"), house}, {QStringLiteral("port"), port}}},
                     {QStringLiteral("connect"), QJsonObject{{QStringLiteral("username"), house},
                                                             {QStringLiteral("password"), QStringLiteral("word")}}}}}};
}

/// A house with engines and a mosquitto of its own, whose bridge knows both nodes; its phone knows the second only.
class real_house_t {
public:
    real_house_t(const QString& name, quint16 first, quint16 second)
        : server(configurationOf(name, near.port())), phone(configurationOf(name, second), QStringLiteral("phone"))
    {
        using namespace comunication::tools;
        house_plan_t plan;
        plan.installationId = name;
        box_t box;
        box.server = QStringLiteral("1");
        box.broker.host = near.host();
        box.broker.port = near.port();
        plan.boxes << box;
        plan.cloud.emplace();
        plan.cloud->bridgeKey = QStringLiteral("key");
        plan.cloud->notifications = false;
        plan.cloud->broker.host = near.host();
        plan.cloud->broker.port = first;
        plan.cloud->broker.username = name;
        plan.cloud->broker.password = QStringLiteral("word");
        const QString both = QStringLiteral("address %1:%2 %1:%3").arg(near.host()).arg(first).arg(second);
        near.configure(bridgeLines(plan, 0, {}).replace(both.section(u' ', 0, 1), both));
        near.start();
        server.connect();
        phone.connect();
    }

    /// Asks each second until it is answered.
    bool isAnswered(std::chrono::milliseconds longest)
    {
        const int before = number;
        QTimer again;
        QObject::connect(&again, &QTimer::timeout, &again, [this] { phone.ask(++number); });
        again.start(1000);
        return waitFor(
            [&] {
                for (int one = before + 1; one <= number; ++one) {
                    if (phone.copies(one) > 0) {
                        return true;
                    }
                }
                return false;
            },
            longest);
    }

private:
    broker_t near;
    trial_server_t server;
    trial_panel_t phone;
    int number = 0;
};

class cloud_t {
public:
    explicit cloud_t(int houses)
        : mapper(freePort()), cookie(QStringLiteral("c%1").arg(QRandomGenerator::system()->generate())),
          first(1, directory.path(), mapper, cookie), second(2, directory.path(), mapper, cookie),
          count(houses), balancer{{first.port, second.port}}
    {}

    ~cloud_t()
    {
        mapperProcess.signal(SIGKILL);
        mapperProcess.waitForFinished();
    }
    cloud_t(const cloud_t&) = delete;
    cloud_t& operator=(const cloud_t&) = delete;

    int run()
    {
        if (!startNodes()) {
            return 1;
        }
        const int memory = residentKib();
        clock.start();
        double cpu = processorSeconds();
        connectAll();
        if (!report("every phone has its master", 180s)) {
            return 1;
        }
        say(QStringLiteral("  memory of both nodes for each house: %1 KiB").arg((residentKib() - memory) / count));
        say(QStringLiteral("  processor time of both for each house: %1 ms")
                .arg((processorSeconds() - cpu) * 1000 / count, 0, 'f', 1));

        real = std::make_unique<real_house_t>(nameOf(count), first.port, second.port);
        clock.start();
        if (!reportReal()) {
            return 1;
        }
        cpu = processorSeconds();
        clock.start();
        waitFor([] { return false; }, 20s);
        say(QStringLiteral("at rest: %1 % of a processor for all houses together")
                .arg((processorSeconds() - cpu) * 100000 / clock.elapsed(), 0, 'f', 1));

        cpu = processorSeconds();
        forget();
        if (!report("each phone has asked and was answered", 60s)) {
            return 1;
        }
        say(QStringLiteral("  processor time of both nodes for each question and answer: %1 ms")
                .arg((processorSeconds() - cpu) * 1000 / static_cast<double>(phones.size()), 0, 'f', 2));

        for (std::size_t i = 0; i < phones.size(); ++i) {
            phones[i]->trespass(nameOf((static_cast<int>(i) / 2 + 1) % count));
        }
        waitFor([] { return false; }, 5s);
        say(QStringLiteral("each phone subscribes the next house and speaks there: %1 of %2 subscriptions refused, %3 "
                           "packets heard of another house")
                .arg(sum([](const light_client_t& one) { return one.refusals; }))
                .arg(phones.size())
                .arg(strangers()));

        return die(second, first, "the second node dies") && die(first, second, "the first node dies") ? verdict() : 1;
    }

private:
    static void say(const QString& line)
    {
        std::printf("%s\n", qPrintable(line));
        std::fflush(stdout);
    }
    static QString nameOf(int house) { return QStringLiteral("house%1").arg(house); }

    bool startNodes()
    {
        mapperProcess.start(QStringLiteral("epmd"), {QStringLiteral("-port"), QString::number(mapper),
                                                     QStringLiteral("-address"), QStringLiteral("127.0.0.1")});
        mapperProcess.waitForStarted();
        QString users =
            QStringLiteral("[ok = ejabberd_auth:try_register(list_to_binary(\"house\" ++ integer_to_list(N)), "
                           "<<\"house\">>, <<\"word\">>) || N <- lists:seq(0, %1)],")
                .arg(count);
        clock.start();
        if (!first.start(users) || !second.start(QStringLiteral("ok = ejabberd_cluster:join('%1'),").arg(first.name))) {
            std::fprintf(stderr, "the cluster does not come up\n");
            return false;
        }
        say(QStringLiteral("two nodes are one cluster after %1 s; %2 MiB together")
                .arg(clock.elapsed() / 1000.0, 0, 'f', 1)
                .arg(residentKib() / 1024));
        return true;
    }

    // The bridge at one node, the first phone at the other, the second beside the bridge.
    void connectAll()
    {
        say(QStringLiteral("%1 houses, each with a bridge and two phones").arg(count));
        for (int i = 0; i < count; ++i) {
            bridges.push_back(std::make_unique<house_bridge_t>(nameOf(i), QStringLiteral("bridge"), i % 2, balancer));
            phones.push_back(std::make_unique<phone_t>(nameOf(i), QStringLiteral("phone1"), 1 - i % 2, balancer));
            phones.push_back(std::make_unique<phone_t>(nameOf(i), QStringLiteral("phone2"), i % 2, balancer));
        }
        for (const auto& bridge : bridges) {
            bridge->dial();
        }
        for (const auto& phone : phones) {
            phone->dial();
        }
    }

    int answered() const
    {
        return static_cast<int>(
            std::count_if(phones.begin(), phones.end(), [](const auto& one) { return one->answered; }));
    }
    bool report(const char* what, std::chrono::milliseconds longest)
    {
        const bool all = waitFor([this] { return answered() == static_cast<int>(phones.size()); }, longest);
        say(QStringLiteral("%1: %2 of %3, after %4 s")
                .arg(QLatin1String(what))
                .arg(answered())
                .arg(phones.size())
                .arg(clock.elapsed() / 1000.0, 0, 'f', 1));
        return all;
    }
    bool reportReal()
    {
        const bool answered = real->isAnswered(120s);
        say(QStringLiteral("  the phone of the house with engines and a mosquitto %1, after %2 s")
                .arg(QLatin1String(answered ? "is answered" : "IS NOT ANSWERED"))
                .arg(clock.elapsed() / 1000.0, 0, 'f', 1));
        return answered;
    }
    // All ask anew.
    void forget()
    {
        clock.start();
        for (const auto& phone : phones) {
            phone->answered = false;
            phone->ask();
        }
    }
    bool die(cloud_node_t& dead, const cloud_node_t& other, const char* what)
    {
        say(QString::fromLatin1(what));
        dead.kill();
        forget();
        if (!report("  every phone has its master again", 180s)) {
            return false;
        }
        clock.start();
        const bool back = dead.start(QString());
        say(QStringLiteral("  it is back %1 s after its start; %2 and %3 MiB")
                .arg(clock.elapsed() / 1000.0, 0, 'f', 1)
                .arg(dead.residentKib() / 1024)
                .arg(other.residentKib() / 1024));
        if (!reportReal()) {
            return false;
        }
        forget();
        return back && report("  each phone has asked and was answered", 60s);
    }
    int verdict() const
    {
        say(QStringLiteral("packets of another house that were heard in all: %1").arg(strangers()));
        return strangers() == 0 ? 0 : 1;
    }

    template <typename Figure>
    int sum(Figure figure) const
    {
        int result = 0;
        for (const auto& bridge : bridges) {
            result += figure(*bridge);
        }
        for (const auto& phone : phones) {
            result += figure(*phone);
        }
        return result;
    }
    int strangers() const
    {
        return sum([](const light_client_t& one) { return one.strangers; });
    }
    int residentKib() const { return first.residentKib() + second.residentKib(); }
    double processorSeconds() const { return first.processorSeconds() + second.processorSeconds(); }

    const QTemporaryDir directory;
    const quint16 mapper;
    const QString cookie;
    child_t mapperProcess;
    cloud_node_t first;
    cloud_node_t second;
    const int count;
    const balancer_t balancer;
    QElapsedTimer clock;
    std::vector<std::unique_ptr<house_bridge_t>> bridges;
    std::vector<std::unique_ptr<phone_t>> phones;
    std::unique_ptr<real_house_t> real;
};

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    QCommandLineParser options;
    options.setApplicationDescription(
        QStringLiteral("Many houses at a cluster of two nodes (see script/cloud). Exit codes: 0 all was seen, 1 not."));
    options.addHelpOption();
    const QCommandLineOption houses(QStringLiteral("houses"), QStringLiteral("How many; default 300."),
                                    QStringLiteral("N"), QStringLiteral("300"));
    options.addOption(houses);
    options.process(application);
    ::utility::logs::classlogs::getInstance()->setLevel(::utility::logs::fatal);
    return cloud_t(std::max(2, options.value(houses).toInt())).run();
}
