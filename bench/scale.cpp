// SPDX-License-Identifier: MIT
// One server and many clients in one process on one broker: how time, CPU, memory and traffic grow with their
// number, at the start and when the server is lost and comes back.
#include "bench_host.h"
#include "support/broker.h"

#include <flotrofobul/platform/logs/classlogs.h>
#include <flotrofobul/protoclient_t.h>
#include <flotrofobul/protoserver_t.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QElapsedTimer>
#include <QtCore/QFile>
#include <QtCore/QJsonObject>
#include <QtCore/QSet>

#include <malloc.h>
#include <sys/resource.h>

#include <cstdio>
#include <functional>
#include <memory>
#include <vector>

namespace {

using namespace comunication;

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

bool waitFor(const std::function<bool()>& done, int seconds)
{
    QElapsedTimer clock;
    clock.start();
    while (!done() && clock.elapsed() < seconds * 1000) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents | QEventLoop::AllEvents, 50);
    }
    return done();
}

std::unique_ptr<protoserver_t> makeServer(quint16 port, QSet<QString>& ready)
{
    auto server = std::make_unique<protoserver_t>(QStringLiteral("1"), benchConfiguration(port), true,
                                                  QStringLiteral("tarnel-server-1"), false);
    QObject::connect(server.get(), &protoserver_t::onClientReady, server.get(), [&ready](const QJsonObject& packet) {
        ready.insert(packet[QStringLiteral("sender")].toString());
    });
    return server;
}

bool measure(int count)
{
    broker_t broker;
    if (!broker.start()) {
        return false;
    }
    QSet<QString> ready;
    auto server = makeServer(broker.port(), ready);
    int known = 0; // presentations that the server has reported
    const auto countPresentation = [&known] { ++known; };
    QObject::connect(server.get(), &protobase_t::on_Presentation, server.get(), countPresentation);
    server->connect();
    if (!waitFor([&] { return server->getConnected(); }, 10)) {
        return false;
    }
    const double memoryBefore = residentKib();
    const double cpuBefore = cpuMilliseconds();
    QElapsedTimer clock;
    clock.start();
    std::vector<std::unique_ptr<protoclient_t>> clients;
    for (int i = 0; i < count; ++i) {
        clients.push_back(std::make_unique<protoclient_t>(QStringLiteral("1"), benchConfiguration(broker.port()),
                                                          QStringLiteral("client@panel%1").arg(i), false));
        clients.back()->connect();
    }
    if (!waitFor([&] { return ready.size() == count; }, 120)) {
        std::fprintf(stderr, "%d of %d clients are ready\n", static_cast<int>(ready.size()), count);
        return false;
    }
    const double readyAfter = static_cast<double>(clock.elapsed());
    const double cpu = cpuMilliseconds() - cpuBefore;
    const double memory = (residentKib() - memoryBefore) / count;

    // The server goes with its last will and comes back.
    ready.clear();
    server->disconnection(true);
    if (!waitFor([&] { return !server->getConnected(); }, 10)) {
        return false;
    }
    clock.start();
    server = makeServer(broker.port(), ready);
    server->connect();
    if (!waitFor([&] { return ready.size() == count; }, 120)) {
        std::fprintf(stderr, "%d of %d clients are back\n", static_cast<int>(ready.size()), count);
        return false;
    }
    const double backAfter = static_cast<double>(clock.elapsed());
    std::printf("%7d %14.0f %18.2f %16.1f %14.0f\n", count, readyAfter, cpu / count, memory, backAfter);
    std::fflush(stdout);
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    ::utility::logs::classlogs::getInstance()->setLevel(-1);
    std::vector<int> counts{10, 50, 100, 200, 500};
    if (argc > 1) {
        counts.clear();
        for (int i = 1; i < argc; ++i) {
            counts.push_back(std::atoi(argv[i]));
        }
    }
    std::printf("%7s %14s %18s %16s %14s\n", "clients", "all ready, ms", "CPU ms/client", "KiB/engine", "back, ms");
    for (const int count : counts) {
        if (!measure(count)) {
            return 1;
        }
    }
    return 0;
}
