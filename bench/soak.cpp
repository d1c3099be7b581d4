// SPDX-License-Identifier: MIT
// Endurance: broker clients with clean and kept sessions, plain and TLS, behind networks that fail all the time, and a
// count of what became of every message. Ends with 1 when a promise was broken.
#include "soak_nodes.h"
#include "soak_verdict.h"
#include "support/certificates.h"
#include "weather.h"
#include "witness.h"

#include <flotrofobul/platform/logs/classlogs.h>

#include <QtCore/QCommandLineParser>
#include <QtCore/QCoreApplication>
#include <QtCore/QDir>
#include <QtCore/QElapsedTimer>
#include <QtCore/QThread>

#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <map>
#include <memory>
#include <numeric>

using comunication::testkit::broker_t;
using comunication::testkit::freePort;

namespace {

using namespace std::chrono_literals;

constexpr int mostPerSecond = 200;
constexpr int mostGrowthKib = 8 * 1024;

volatile std::sig_atomic_t interrupted = 0;

int openDescriptors()
{
    return QDir(QStringLiteral("/proc/self/fd")).entryList(QDir::NoDotAndDotDot | QDir::System | QDir::Files).size();
}

int residentKib()
{
    QFile file(QStringLiteral("/proc/self/statm"));
    return file.open(QIODevice::ReadOnly) ? file.readAll().split(' ').value(1).toInt() * 4 : 0;
}

int median(std::vector<int> values)
{
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

// How long the event loop did not turn.
class gap_watch_t {
public:
    gap_watch_t()
    {
        timer.setTimerType(Qt::PreciseTimer);
        QObject::connect(&timer, &QTimer::timeout, [this] {
            const int gap = static_cast<int>(sinceTurn.restart());
            longest = std::max(longest, gap);
            above50 += gap > 50;
        });
    }

    void begin()
    {
        sinceTurn.start();
        timer.start(5);
    }

    int longest = 0;
    int above50 = 0;

private:
    QTimer timer;
    QElapsedTimer sinceTurn;
};

// The lines of the library that count.
class log_watch_t {
public:
    explicit log_watch_t(bool verbose)
    {
        auto* const logs = ::utility::logs::classlogs::getInstance();
        logs->setLevel(::utility::logs::warning);
        logs->setSink([this, verbose](const ::utility::logs::LogRecord& record) {
            full += record.message.contains(QLatin1String("full outbox"));
            givenUp += record.message.startsWith(QLatin1String("Message dropped"));
            if (verbose) {
                std::fprintf(stderr, "%s\n", qPrintable(record.message));
            }
        });
    }
    ~log_watch_t() { ::utility::logs::classlogs::getInstance()->setSink({}); }
    log_watch_t(const log_watch_t&) = delete;
    log_watch_t& operator=(const log_watch_t&) = delete;

    int full = 0;
    int givenUp = 0;
};

class soak_t {
public:
    soak_t(std::chrono::minutes givenLength, quint32 seed, bool verbose)
        : length(givenLength), random(seed), log(verbose), broker(listeners()),
          witness([this](const QByteArray& topic, const QByteArray& payload) { arrived(topic, payload); })
    {}

    ~soak_t()
    {
        network.quit();
        network.wait();
    }

    int run()
    {
        if (!start()) {
            std::fprintf(stderr, "The nodes do not reach the broker\n");
            return 1;
        }
        storm();
        calmDown();
        if (interrupted != 0) {
            return 130;
        }
        printTable(nodes);
        return judge(nodes, figures()) ? 0 : 1;
    }

private:
    QString listeners() const
    {
        return QStringLiteral("listener %1 127.0.0.1\nallow_anonymous true\n").arg(plainPort) +
               certificates.listener(QStringLiteral("good"));
    }

    bool start()
    {
        network.start();
        for (const bool kept : {false, true}) {
            for (const bool tls : {false, true}) {
                publishers.push_back(std::make_unique<publisher_t>(setup(task_t::publish, kept, tls)));
                subscribers.push_back(std::make_unique<subscriber_t>(setup(task_t::listen, kept, tls)));
                nodes.insert(nodes.end(), {publishers.back().get(), subscribers.back().get()});
            }
        }
        for (node_t* const node : nodes) {
            ledgers[node->name] = &node->ledger;
        }
        if (!broker.start() || !witness.watch(plainPort, "up/#")) {
            return false;
        }
        std::for_each(nodes.begin(), nodes.end(), [](node_t* node) { node->dial(); });
        return waitFor([this] { return nodesReady() && witness.isWatching(); }, 20s);
    }

    setup_t setup(task_t task, bool kept, bool tls)
    {
        const QByteArray name = QByteArray(task == task_t::publish ? "up/" : "down/") + (kept ? "kept" : "clean");
        return {name + (tls ? "/tls" : "/plain"),
                task,
                kept,
                addProxy(tls ? broker.port() : plainPort),
                tls ? certificates.file(QStringLiteral("ca")) : QString(),
                random.generate(),
                static_cast<int>(std::chrono::seconds(length + 5min).count()) * mostPerSecond};
    }

    // Proxies live on a thread of their own, so that they do not disturb the event loop under test.
    quint16 addProxy(quint16 target)
    {
        weathers.push_back(new weather_t(target, random.generate()));
        weathers.back()->moveToThread(&network);
        QObject::connect(&network, &QThread::finished, weathers.back(), &QObject::deleteLater);
        return weathers.back()->port();
    }
    void change(void (weather_t::*to)())
    {
        for (weather_t* const weather : weathers) {
            QMetaObject::invokeMethod(weather, [=] { (weather->*to)(); });
        }
    }

    // On the witness' thread.
    void arrived(const QByteArray& topic, const QByteArray& payload)
    {
        const auto ledger = ledgers.find(topic);
        ledger == ledgers.end() ? void(marked = true) : ledger->second->arrive(payload);
    }

    void storm()
    {
        descriptorsAtRest = openDescriptors();
        QTimer feeder;
        QObject::connect(&feeder, &QTimer::timeout, &feeder, [&] {
            feeder.start(random.bounded(80));
            feed(random.bounded(5));
        });
        QTimer sampler;
        QObject::connect(&sampler, &QTimer::timeout, &sampler, [this] { sample(); });
        feeder.start(0);
        sampler.start(1000);
        change(&weather_t::begin);
        gaps.begin();
        std::for_each(nodes.begin(), nodes.end(), [](node_t* node) { node->begin(); });
        waitFor([] { return false; }, length + 500ms);
    }

    void feed(int count)
    {
        const auto isFarBehind = [](const auto& subscriber) { return subscriber->isFarBehind(); };
        if (std::any_of(subscribers.begin(), subscribers.end(), isFarBehind) || subscribers[0]->ledger.isFull()) {
            return;
        }
        for (; count > 0; --count) {
            int number = 0;
            for (const auto& subscriber : subscribers) {
                number = subscriber->ledger.ask(2);
            }
            witness.publish("feed", payloadOf(number, random.bounded(1 << random.bounded(14))));
        }
    }

    // From here on the network is well, and everything has to arrive.
    void calmDown()
    {
        change(&weather_t::calm);
        std::for_each(nodes.begin(), nodes.end(), [](node_t* node) { node->rest(); });
        waitFor([this] { return nodesReady(); }, 90s);
        // The broker keeps the order, so the last one comes when everything has come. A kept session may end with one
        // more connection then, whose node is well again only after it.
        const int last = subscribers[0]->ledger.size();
        feed(1);
        witness.publish("up", "the end");
        const auto hasLast = [last](const auto& subscriber) { return subscriber->ledger.newest(2) == last; };
        const auto hasAll = [&] { return marked && std::all_of(subscribers.begin(), subscribers.end(), hasLast); };
        waitFor([&] { return hasAll() && nodesReady(); }, 30s);
    }

    bool nodesReady() const
    {
        return std::all_of(nodes.begin(), nodes.end(), [](const node_t* node) { return node->isReady(); });
    }

    bool waitFor(const std::function<bool()>& done, std::chrono::milliseconds longest)
    {
        const QDeadlineTimer deadline(longest);
        QTimer tick; // so that the end is noticed in silence, too
        tick.start(20);
        while (interrupted == 0 && !done() && !deadline.hasExpired()) {
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        }
        return done();
    }

    void sample()
    {
        memory.push_back(residentKib());
        if (memory.size() % 60 == 0) {
            std::printf("minute %3d: %7d asked for, %7d arrived, %5d losses, %6d KiB, %3d descriptors, "
                        "longest gap %d ms, %d above 50 ms\n",
                        static_cast<int>(memory.size() / 60), total(ledger_t::asked), total(ledger_t::arrived),
                        losses(), memory.back(), openDescriptors(), gaps.longest, gaps.above50);
            std::fflush(stdout);
        }
    }

    int total(int has) const
    {
        return sum(publishers, [has](const publisher_t& one) {
            return one.ledger.count(0, has) + one.ledger.count(1, has) + one.ledger.count(2, has);
        });
    }

    template <typename Nodes, typename Figure>
    static int sum(const Nodes& nodes, Figure figure)
    {
        return std::accumulate(nodes.begin(), nodes.end(), 0,
                               [&](int result, const auto& one) { return result + figure(*one); });
    }

    int losses() const
    {
        return sum(nodes, [](const node_t& one) { return one.losses; });
    }

    int growth() const
    {
        const auto fifth = static_cast<std::ptrdiff_t>(memory.size() / 5);
        return median({memory.end() - fifth, memory.end()}) - median({memory.begin(), memory.begin() + fifth});
    }

    int cutQueues(const QByteArray& client) const
    {
        return broker.output().count("being dropped for client " + client);
    }

    std::vector<figure_t> figures()
    {
        return {
            {"messages not acknowledged at the end", sum(publishers, [](auto& one) { return one.unacknowledged(); }),
             0},
            {"nodes not well at the end", sum(nodes, [](auto& one) { return one.isReady() ? 0 : 1; }), 0},
            {"damaged messages", sum(nodes, [](auto& one) { return one.ledger.damaged(); }), 0},
            {"acknowledgements of nothing", sum(publishers, [](auto& one) { return one.strays; }), 0},
            {"lines about a full outbox", log.full, 0},
            {"lines about a message given up", log.givenUp, 0},
            {"subscribers whose queue the broker cut", cutQueues("down/"), 0},
            {"witness's queue cut by the broker", cutQueues("witness"), 0},
            {"losses of the witness", witness.losses(), 0},
            {"growth of memory in KiB", growth(), mostGrowthKib},
            {"more descriptors", openDescriptors() - descriptorsAtRest, 4},
            {"longest gap of the event loop in ms", gaps.longest, 1000},
            {"gaps above 50 ms", gaps.above50},
            {"connections lost", losses()},
        };
    }

    const std::chrono::minutes length;
    QRandomGenerator random;
    log_watch_t log;
    gap_watch_t gaps;
    const certificates_t certificates;
    const quint16 plainPort = freePort();
    broker_t broker;
    QThread network;
    std::vector<weather_t*> weathers;
    std::vector<std::unique_ptr<publisher_t>> publishers;
    std::vector<std::unique_ptr<subscriber_t>> subscribers;
    std::vector<node_t*> nodes;
    std::map<QByteArray, ledger_t*> ledgers; // by topic
    std::atomic<bool> marked{false};
    std::vector<int> memory; // each second
    int descriptorsAtRest = 0;
    witness_t witness; // its thread ends first
};

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    QCommandLineParser options;
    options.addHelpOption();
    options.addPositionalArgument(QStringLiteral("minutes"), QStringLiteral("how long the network is bad"));
    options.addOption(
        {QStringLiteral("seed"), QStringLiteral("repeats the choices of a run"), QStringLiteral("number")});
    options.addOption({QStringLiteral("verbose"), QStringLiteral("prints the warnings of the library")});
    options.process(application);
    const int minutes = std::max(1, options.positionalArguments().value(0).toInt());
    const QString given = options.value(QStringLiteral("seed"));
    const quint32 seed = given.isEmpty() ? QRandomGenerator::global()->generate() : given.toUInt();
    std::printf("%d minutes, seed %u\n", minutes, seed);
    std::fflush(stdout);

    mallopt(M_MMAP_THRESHOLD, 64 * 1024); // so that large payloads leave no holes that look like growth
    const auto interrupt = [](int) { interrupted = 1; };
    std::signal(SIGINT, interrupt);
    std::signal(SIGTERM, interrupt);
    return soak_t(std::chrono::minutes(minutes), seed, options.isSet(QStringLiteral("verbose"))).run();
}
