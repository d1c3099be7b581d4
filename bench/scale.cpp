// SPDX-License-Identifier: MIT
// One server and many clients in one process on one broker: how time, CPU, memory and traffic grow with their number,
// at the start and when the server is lost and comes back.
#include "bench_host.h"

#include <flotrofobul/protoclient_t.h>
#include <flotrofobul/protoserver_t.h>
#include <flotrofobul/testkit/broker.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QElapsedTimer>
#include <QtCore/QFile>
#include <QtCore/QJsonObject>
#include <QtCore/QSet>

#include <malloc.h>
#include <sys/resource.h>
#include <time.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <vector>

using comunication::testkit::broker_t;

namespace {

using namespace comunication;
using namespace std::chrono_literals;

double cpuMilliseconds()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto milliseconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_usec) / 1e3;
    };
    return milliseconds(usage.ru_utime) + milliseconds(usage.ru_stime);
}

double residentKib()
{
    malloc_trim(0);
    QFile file(QStringLiteral("/proc/self/statm"));
    if (!file.open(QIODevice::ReadOnly)) {
        return 0;
    }
    return file.readAll().split(' ').value(1).toDouble() * 4;
}

bool waitFor(const std::function<bool()>& done, std::chrono::milliseconds most)
{
    QElapsedTimer clock;
    clock.start();
    while (!done() && clock.elapsed() < most.count()) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents | QEventLoop::AllEvents, 50);
    }
    return done();
}

// Data that has passed the loopback interface; nearly all of it is ours.
double loopbackKib()
{
    QFile file(QStringLiteral("/proc/self/net/dev"));
    if (!file.open(QIODevice::ReadOnly)) {
        return 0;
    }
    for (const QByteArray& line : file.readAll().split('\n')) {
        if (line.trimmed().startsWith("lo:")) {
            return line.simplified().split(' ').value(1).toDouble() / 1024;
        }
    }
    return 0;
}

// Measures the CPU time of each presentation, its answer included.
class measured_server_t : public protoserver_t {
public:
    measured_server_t(quint16 port, QSet<QString>& ready)
        : protoserver_t(QStringLiteral("1"), benchConfiguration(port), true, QStringLiteral("tarnel-server-1"), false)
    {
        QObject::connect(this, &protoserver_t::onClientReady, this, [&ready](const QJsonObject& packet) {
            ready.insert(packet[QStringLiteral("sender")].toString());
        });
    }

    double microsecondsPerPresentation() const { return presentations > 0 ? microseconds / presentations : 0; }

protected:
    void onMessage(int mid, topic_t topic, QJsonValue payload, int qos, bool retain) override
    {
        const double before = now();
        const bool isPresentation = topic.getValue() == QLatin1String("connection/presentation");
        protoserver_t::onMessage(mid, topic, payload, qos, retain);
        if (isPresentation) {
            microseconds += now() - before;
            ++presentations;
        }
    }

private:
    static double now()
    {
        timespec time{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) / 1e3;
    }

    double microseconds = 0;
    int presentations = 0;
};

bool measure(int count)
{
    broker_t broker;
    if (!broker.start()) {
        return false;
    }
    QSet<QString> ready;
    auto server = std::make_unique<measured_server_t>(broker.port(), ready);
    server->connect();
    if (!waitFor([&] { return server->getConnected(); }, 10s)) {
        return false;
    }
    const double memoryBefore = residentKib();
    const double trafficBefore = loopbackKib();
    const double cpuBefore = cpuMilliseconds();
    QElapsedTimer clock;
    clock.start();
    std::vector<std::unique_ptr<protoclient_t>> clients;
    for (int i = 0; i < count; ++i) {
        clients.push_back(std::make_unique<protoclient_t>(QStringLiteral("1"), benchConfiguration(broker.port()),
                                                          QStringLiteral("client@panel%1").arg(i), false));
        clients.back()->connect();
    }
    if (!waitFor([&] { return ready.size() == count; }, 2min)) {
        std::fprintf(stderr, "%s of %d clients are ready\n", qPrintable(QString::number(ready.size())), count);
        return false;
    }
    const double readyAfter = static_cast<double>(clock.elapsed());
    const double cpu = cpuMilliseconds() - cpuBefore;
    const double memory = (residentKib() - memoryBefore) / count;

    const double traffic = (loopbackKib() - trafficBefore) / count;
    const double presentation = server->microsecondsPerPresentation();

    // The server ends like a killed one, so that the broker publishes its last will, and comes back.
    ready.clear();
    server.reset();
    // Its link, which no event loop would close here.
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    const auto isLost = [](const auto& client) { return client->getServerId().isEmpty(); };
    if (!waitFor([&] { return std::all_of(clients.begin(), clients.end(), isLost); }, 1min)) {
        return false;
    }
    clock.start();
    server = std::make_unique<measured_server_t>(broker.port(), ready);
    server->connect();
    if (!waitFor([&] { return ready.size() == count; }, 2min)) {
        std::fprintf(stderr, "%s of %d clients are back\n", qPrintable(QString::number(ready.size())), count);
        return false;
    }
    const double backAfter = static_cast<double>(clock.elapsed());
    std::printf("%7d %14.0f %14.2f %18.1f %12.1f %13.1f %10.0f\n", count, readyAfter, cpu / count, presentation, memory,
                traffic, backAfter);
    std::fflush(stdout);
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    silenceLog();
    std::vector<int> counts{10, 50, 100, 200, 500};
    if (argc > 1) {
        counts.clear();
        for (int i = 1; i < argc; ++i) {
            counts.push_back(std::atoi(argv[i]));
        }
    }
    std::printf("%7s %14s %14s %18s %12s %13s %10s\n", "clients", "all ready, ms", "CPU ms/client", "us/presentation",
                "KiB/engine", "lo KiB/client", "back, ms");
    for (const int count : counts) {
        if (!measure(count)) {
            return 1;
        }
    }
    return 0;
}
