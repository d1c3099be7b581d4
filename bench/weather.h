// SPDX-License-Identifier: MIT
// Changing weather for proxies, at random from a seed, on a thread of its own.
#pragma once

#include "proxy.h"

#include <QtCore/QThread>

/// One proxy whose network is good and bad by turns.
class weather_t : public QObject {
public:
    weather_t(quint16 broker, quint32 seed) : proxy(broker), random(seed)
    {
        change.setSingleShot(true);
        connect(&change, &QTimer::timeout, this, &weather_t::turn);
    }

    void begin() { turn(); }
    void calm()
    {
        change.stop();
        proxy.heal();
    }

    proxy_t proxy;

private:
    using change_t = void (weather_t::*)();
    struct chance_t {
        int share;
        change_t change;
    };

    void turn()
    {
        static constexpr chance_t chances[] = {
            {20, &weather_t::clear},    {15, &weather_t::delay}, {10, &weather_t::throttle}, {8, &weather_t::silence},
            {22, &weather_t::cutLater}, {20, &weather_t::cut},   {5, &weather_t::refuse},
        };
        proxy.heal();
        int dice = random.bounded(100);
        for (const chance_t& chance : chances) {
            if ((dice -= chance.share) < 0) {
                (this->*chance.change)();
                break;
            }
        }
        change.start(random.bounded(200, 4000));
    }

    void clear() {}
    void delay() { proxy.set(late(), late()); }
    void throttle() { proxy.set(slow(), slow()); }
    // Half of the times one way only: what is sent arrives, and its acknowledgement does not, or the reverse.
    void silence()
    {
        way_t silent;
        silent.silent = true;
        const int which = random.bounded(4);
        proxy.set(which == 0 ? way_t() : silent, which == 1 ? way_t() : silent);
    }
    void cutLater()
    {
        way_t toBroker = late();
        way_t toClient = late();
        // From one byte to some kilobytes, short distances as often as long ones.
        (random.bounded(2) ? toBroker : toClient).bytesUntilCut = random.bounded(1 << random.bounded(1, 13));
        proxy.plan(anyCut());
        proxy.set(toBroker, toClient);
    }
    void cut() { proxy.cut(anyCut()); }
    void refuse()
    {
        proxy.refuse(true);
        proxy.cut(anyCut());
    }

    cut_t anyCut() { return static_cast<cut_t>(random.bounded(3)); }
    way_t late()
    {
        way_t way;
        way.shortestDelay = std::chrono::milliseconds(random.bounded(5));
        way.longestDelay = std::chrono::milliseconds(1 << random.bounded(3, 9));
        return way;
    }
    way_t slow()
    {
        way_t way;
        way.bytesPerSecond = random.bounded(5000, 200000);
        return way;
    }

    QRandomGenerator random;
    QTimer change;
};

/// All proxies, and the thread that they live on, so that they do not disturb an event loop under test.
class network_t {
public:
    network_t()
    {
        ground.moveToThread(&thread);
        thread.start();
    }
    ~network_t()
    {
        onThread([this] { all.clear(); });
        thread.quit();
        thread.wait();
    }
    network_t(const network_t&) = delete;
    network_t& operator=(const network_t&) = delete;

    /// The port of a new proxy before a port of this machine.
    quint16 add(quint16 broker, quint32 seed)
    {
        onThread([&] { all.push_back(std::make_unique<weather_t>(broker, seed)); });
        return all.back()->proxy.port();
    }
    void begin()
    {
        onThread([this] { std::for_each(all.begin(), all.end(), [](const auto& one) { one->begin(); }); });
    }
    void calm()
    {
        onThread([this] { std::for_each(all.begin(), all.end(), [](const auto& one) { one->calm(); }); });
    }
    int cuts()
    {
        int sum = 0;
        onThread([&] { std::for_each(all.begin(), all.end(), [&sum](const auto& one) { sum += one->proxy.cuts(); }); });
        return sum;
    }

private:
    template <typename Work>
    void onThread(Work work)
    {
        QMetaObject::invokeMethod(&ground, work, Qt::BlockingQueuedConnection);
    }

    QThread thread;
    QObject ground;
    std::vector<std::unique_ptr<weather_t>> all;
};
