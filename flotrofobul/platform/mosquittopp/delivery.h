// SPDX-License-Identifier: MIT
// What libmosquitto has reported, kept until nobody is inside a call any more, then emitted as the
// signals of the adapter. Internal.
#pragma once

#include <QtCore/QBasicTimer>
#include <QtCore/QObject>
#include <QtCore/QString>

#include <deque>
#include <functional>
#include <vector>

namespace comunication {
namespace mosquittopp {

struct event_t {
    enum kind_t { connected, disconnected, published, message, subscribed, unsubscribed, log, error };

    explicit event_t(kind_t kind, int number = 0, int flags = 0, bool retain = false, int payloadlen = 0)
        : kind(kind), number(number), flags(flags), retain(retain), payloadlen(payloadlen)
    {}

    kind_t kind;
    int number; // code, mid or level
    int flags;  // flags or qos
    bool retain;
    int payloadlen;
    QString topic;
    QString text; // payload or log line
    std::vector<int> granted;
};

class delivery_t : public QObject {
public:
    /// Takes one event to the host, who may delete the delivery meanwhile.
    using receiver_t = std::function<void(const event_t&)>;

    explicit delivery_t(receiver_t receiver) : receiver(std::move(receiver)) {}

    /// Adds an event; somebody has to call deliver() or deliverLater().
    void push(event_t event) { events.push_back(std::move(event)); }
    bool isEmpty() const { return events.empty(); }
    /// Delivers on the next turn of the event loop.
    void deliverLater();
    /// Emits what is there, for a few milliseconds at most; the rest follows on the next turn. The
    /// adapter may be gone afterwards: false then.
    bool deliver();

    /// Called when everything has been emitted.
    std::function<void()> drained;

private:
    void timerEvent(QTimerEvent* event) override;

    const receiver_t receiver;
    std::deque<event_t> events;
    QBasicTimer nextTurn;
};

} // namespace mosquittopp
} // namespace comunication
