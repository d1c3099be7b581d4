// SPDX-License-Identifier: MIT
#include <flotrofobul/platform/mosquittopp/delivery.h>

#include <flotrofobul/platform/mosquittopp/turn.h>

#include <QtCore/QPointer>

namespace comunication {
namespace mosquittopp {

namespace {

// Long enough for a few hundred messages, short enough that nobody sees a panel freeze.
constexpr milliseconds_t longestDelivery{10};

} // namespace

// A zero timer costs no system call, unlike a posted event.
void delivery_t::deliverLater()
{
    if (!events.empty() && !nextTurn.isActive()) {
        nextTurn.start(0, this);
    }
}

void delivery_t::timerEvent(QTimerEvent* /*event*/)
{
    nextTurn.stop(); // a slot may run an event loop of its own, in which only a new timer fires
    deliver();
}

bool delivery_t::deliver()
{
    const QPointer<delivery_t> alive(this);
    const turn_t turn(longestDelivery);
    // An event leaves the queue, and the next turn is scheduled, before it is passed on: a slot that runs an event loop
    // of its own then receives the events after it.
    while (!events.empty()) {
        const event_t event = std::move(events.front());
        events.pop_front();
        ends -= event.kind == event_t::disconnected;
        bytes -= sizeOf(event);
        deliverLater();
        if (events.empty()) {
            drained();
        }
        receiver(event);
        if (!alive) {
            return false;
        }
        if (turn.isOver() && !events.empty()) {
            return true;
        }
    }
    nextTurn.stop();
    return true;
}

} // namespace mosquittopp
} // namespace comunication
