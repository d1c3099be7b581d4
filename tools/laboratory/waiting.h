// SPDX-License-Identifier: MIT
// Waiting for something that becomes true, without a signal that tells of it.
#pragma once

#include <QtCore/QDeadlineTimer>
#include <QtCore/QEventLoop>
#include <QtCore/QTimer>

#include <chrono>

/// Looks every ten milliseconds. It has an event loop of its own: a client of an engine that is gone is deleted by
/// nothing less.
template <typename Condition>
bool waitFor(Condition condition, std::chrono::milliseconds longest = std::chrono::seconds(5))
{
    if (condition()) {
        return true;
    }
    const QDeadlineTimer deadline(longest);
    QEventLoop loop;
    QTimer tick;
    QObject::connect(&tick, &QTimer::timeout, &loop, [&] {
        if (condition() || deadline.hasExpired()) {
            loop.quit();
        }
    });
    tick.start(10);
    loop.exec();
    return condition();
}
