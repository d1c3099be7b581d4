// SPDX-License-Identifier: MIT
#include <flotrofobul/platform/mosquittopp/delivery.h>

#include <QtCore/QElapsedTimer>
#include <QtCore/QPointer>

#include <chrono>

namespace comunication {
namespace mosquittopp {

namespace {

// Long enough for a few hundred messages, short enough that nobody sees a panel stop.
constexpr std::chrono::milliseconds longestTurn{10};

} // namespace

// A timer of no time costs no system call, unlike a posted event.
void delivery_t::deliverLater()
{
    if (!events.empty() && !nextTurn.isActive()) {
        nextTurn.start(0, this);
    }
}

void delivery_t::timerEvent(QTimerEvent* /*event*/)
{
    deliver();
}

bool delivery_t::deliver()
{
    const QPointer<delivery_t> alive(this);
    QElapsedTimer turn;
    turn.start();
    // An event leaves the queue before it is emitted and the rest is announced, so that a slot which runs an event
    // loop of its own goes on with the next one.
    while (!events.empty()) {
        const event_t event = std::move(events.front());
        events.pop_front();
        deliverLater();
        receiver(event);
        if (!alive) {
            return false;
        }
        if (turn.hasExpired(longestTurn.count())) {
            return true;
        }
    }
    nextTurn.stop();
    if (drained) {
        drained();
    }
    return true;
}

} // namespace mosquittopp
} // namespace comunication
