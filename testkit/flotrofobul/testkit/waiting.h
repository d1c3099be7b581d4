// SPDX-License-Identifier: MIT
// Waiting without sleeping: for a condition, and for a signal that may have come already.
#pragma once

#include <QtCore/QCoreApplication>
#include <QtCore/QDeadlineTimer>
#include <QtCore/QEvent>
#include <QtCore/QEventLoop>
#include <QtCore/QObject>
#include <QtCore/QTimer>

#include <chrono>
#include <functional>
#include <utility>

namespace comunication {
namespace testkit {

/// As long as a test waits before it takes no for an answer: a link that is refused twice is tried again after 3 s, and
/// machines that test are busy.
constexpr std::chrono::milliseconds patience{10000};

/// Runs the event loop until a condition holds; false if it does not in time. It is looked at after every event, and
/// some times a second for what no event tells.
inline bool until(const std::function<bool()>& condition, std::chrono::milliseconds bound = patience)
{
    const QDeadlineTimer deadline(bound);
    QTimer tick;
    tick.start(20);
    while (!condition()) {
        if (deadline.hasExpired()) {
            return false;
        }
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    return true;
}

/// A signal of an object on this thread, listened to from the construction on. What has come before comes() is called
/// is not missed, as it is when a wait begins after the deed.
class awaited_t {
public:
    template <class Sender, class Signal>
    awaited_t(const Sender* sender, Signal signal)
    {
        QObject::connect(sender, signal, &listener, [this] { ++waiting; });
    }

    /// True when the signal has come since the construction, or since the last call that was true: each time counts
    /// once.
    [[nodiscard]] bool comes(std::chrono::milliseconds bound = patience)
    {
        return until([this] { return waiting > 0; }, bound) && waiting-- > 0;
    }
    /// Whether it has not come until now, but for what comes() has told. To say so of what follows from a deed, wait
    /// for something that follows later.
    [[nodiscard]] bool hasNotCome() const { return waiting == 0; }

private:
    int waiting = 0;
    QObject listener;
};

} // namespace testkit
} // namespace comunication
