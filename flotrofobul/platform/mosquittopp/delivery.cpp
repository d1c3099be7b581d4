// SPDX-License-Identifier: MIT
#include <flotrofobul/platform/mosquittopp/delivery.h>

#include <QtCore/QElapsedTimer>
#include <QtCore/QPointer>

namespace comunication {
namespace mosquittopp {

namespace {

// Long enough for a few hundred messages, short enough that nobody sees a panel stop.
constexpr qint64 longestTurn = 10;

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
        emitSignal(event);
        if (!alive) {
            return false;
        }
        if (turn.elapsed() > longestTurn) {
            return true;
        }
    }
    nextTurn.stop();
    if (drained) {
        drained();
    }
    return true;
}

void delivery_t::emitSignal(const event_t& event)
{
    switch (event.kind) {
    case event_t::connected: {
        const QPointer<mosquittoppqt> alive(owner);
        Q_EMIT owner->onConnect(event.number);
        if (alive) {
            Q_EMIT alive->onConnect_with_flags(event.number, event.flags);
        }
        break;
    }
    case event_t::disconnected: Q_EMIT owner->onDisconnect(event.number); break;
    case event_t::published: Q_EMIT owner->onPublish(event.number); break;
    case event_t::message:
        Q_EMIT owner->onMessage(event.number, event.topic, event.text, event.payloadlen, event.flags, event.retain);
        break;
    case event_t::subscribed:
        Q_EMIT owner->onSubscribe(event.number, static_cast<int>(event.granted.size()), event.granted.data());
        break;
    case event_t::unsubscribed: Q_EMIT owner->onUnsubscribe(event.number); break;
    case event_t::log: Q_EMIT owner->onLog(event.number, event.text); break;
    case event_t::error: Q_EMIT owner->onError(); break;
    }
}

} // namespace mosquittopp
} // namespace comunication
