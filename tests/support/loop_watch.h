// SPDX-License-Identifier: MIT
// How long the event loop did not turn, and how much processor time went by.
#pragma once

#include <QtCore/QElapsedTimer>
#include <QtCore/QTimer>

#include <algorithm>
#include <ctime>

class loop_watch_t {
public:
    loop_watch_t()
    {
        QObject::connect(&timer, &QTimer::timeout, &timer,
                         [this] { longest = std::max(longest, sinceTurn.restart()); });
        sinceTurn.start();
        sinceStart.start();
        timer.start(5);
    }

    /// Milliseconds between two turns of the loop.
    qint64 longestGap() const { return std::max(longest, sinceTurn.elapsed()); }
    /// Per cent of one processor since the start, this watch's own timer included.
    double load() const
    {
        const double busy = 1000.0 * double(std::clock() - cpu) / CLOCKS_PER_SEC;
        return 100.0 * busy / double(std::max<qint64>(sinceStart.elapsed(), 1));
    }

private:
    QTimer timer;
    QElapsedTimer sinceTurn;
    QElapsedTimer sinceStart;
    qint64 longest = 0;
    std::clock_t cpu = std::clock();
};
