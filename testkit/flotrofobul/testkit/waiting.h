// SPDX-License-Identifier: MIT
// Waiting without sleeping: for a condition, and for a signal that may have come already.
#pragma once

#include <QtCore/QAbstractEventDispatcher>
#include <QtCore/QDeadlineTimer>
#include <QtCore/QEventLoop>
#include <QtCore/QObject>
#include <QtCore/QTimer>

#include <chrono>
#include <functional>

namespace comunication {
namespace testkit {

/// As long as a test waits before it takes no for an answer: a link that is refused twice is tried again after 3 s, and
/// machines that test are busy.
constexpr std::chrono::milliseconds patience{10000};

/// Runs an event loop until a condition holds; false if it does not in time. It is looked at whenever the loop has
/// nothing left to do, and some times a second for what no event tells; never again once it has held. May be called in
/// a slot, also while another wait is on. The loop is a real one, in which objects are deleted as in a host's: those
/// that a slot still at work has given to deleteLater() live on, those of a test's own body do not.
inline bool until(const std::function<bool()>& condition, std::chrono::milliseconds bound = patience)
{
    const QDeadlineTimer deadline(bound);
    bool holds = false;
    bool ended = false;
    QEventLoop loop;
    const auto look = [&] {
        if (!ended) {
            holds = condition();
            ended = holds || deadline.hasExpired();
            if (ended) {
                loop.quit();
            }
        }
    };
    QTimer tick;
    QObject::connect(&tick, &QTimer::timeout, &loop, look);
    QObject::connect(QAbstractEventDispatcher::instance(), &QAbstractEventDispatcher::aboutToBlock, &loop, look);
    tick.start(20);
    look();
    while (!ended) {
        if (loop.exec() == -1) { // the application was told to quit, and starts no loop any more
            loop.processEvents(QEventLoop::WaitForMoreEvents);
        }
    }
    return holds;
}

/// A signal of an object, listened to from the construction on. What has come before comes() is called is not missed,
/// as it is when a wait begins after the deed. The object may go at any time.
class awaited_t {
public:
    /// Sender and signal as for QObject::connect().
    template <class Sender, class Signal>
    awaited_t(const Sender* sender, Signal signal)
    {
        QObject::connect(sender, signal, &listener, [this] { ++waiting; });
        QObject::connect(sender, &QObject::destroyed, &listener, [this] { gone = true; });
    }

    /// True when the signal has come since the construction, or since the last call that was true: each time counts
    /// once. False when it does not come in time, or will never come because the object has gone.
    [[nodiscard]] bool comes(std::chrono::milliseconds bound = patience)
    {
        bool came = false;
        until(
            [&] {
                came = waiting > 0;
                waiting -= came ? 1 : 0; // at once: a wait within this one may be for the same signal
                return came || gone;
            },
            bound);
        return came;
    }
    /// Whether it has not come until now, but for what comes() has told. To say so of what follows from a deed, wait
    /// for something that follows later.
    [[nodiscard]] bool hasNotCome() const { return waiting == 0; }

private:
    int waiting = 0;
    bool gone = false;
    QObject listener;
};

} // namespace testkit
} // namespace comunication
