// SPDX-License-Identifier: MIT
// Keeps what libmosquitto reports until no call of the library is running any more, then passes it on. Internal.
#pragma once

#include <QtCore/QBasicTimer>
#include <QtCore/QByteArray>
#include <QtCore/QObject>
#include <QtCore/QString>

#include <deque>
#include <functional>
#include <vector>

namespace comunication {
namespace mosquittopp {

struct event_t {
    enum kind_t {
        connected,
        disconnected,
        published,
        message,
        rawMessage,
        subscribed,
        unsubscribed,
        log,
        problem,
        error
    };

    explicit event_t(kind_t givenKind, int givenNumber = 0, int givenFlags = 0, bool givenRetain = false,
                     int givenPayloadlen = 0)
        : kind(givenKind), number(givenNumber), flags(givenFlags), retain(givenRetain), payloadlen(givenPayloadlen)
    {}

    kind_t kind;
    int number; // code, mid or level
    int flags;  // flags or qos
    bool retain;
    int payloadlen;
    QString topic;
    QString text;     // payload or log line
    QByteArray bytes; // payload as it came, where that is asked for
    std::vector<int> granted;
};

class delivery_t : public QObject {
public:
    /// Passes one event to the host, which may delete this object while handling it.
    using receiver_t = std::function<void(const event_t&)>;

    delivery_t(receiver_t givenReceiver, QObject* parent) : QObject(parent), receiver(std::move(givenReceiver)) {}

    /// Adds an event; call deliver() or deliverLater() afterwards.
    void push(event_t event)
    {
        ends += event.kind == event_t::disconnected;
        bytes += sizeOf(event);
        events.push_back(std::move(event));
    }
    bool isEmpty() const { return events.empty(); }
    /// About how much memory waits.
    qint64 pendingBytes() const { return bytes; }
    /// How many ends of connections are still to be reported.
    int pendingEnds() const { return ends; }
    /// Delivers on the next turn of the event loop.
    void deliverLater();
    /// Passes on what is there, for a few milliseconds at most; the rest follows on the next turn. False if this object
    /// was deleted meanwhile.
    bool deliver();

    /// Called before the last event is passed on: there is room for more.
    std::function<void()> drained;

private:
    void timerEvent(QTimerEvent* event) override;
    static int sizeOf(const event_t& event) { return static_cast<int>(sizeof event) + event.payloadlen; }

    const receiver_t receiver;
    std::deque<event_t> events;
    int ends = 0;
    qint64 bytes = 0;
    QBasicTimer nextTurn;
};

} // namespace mosquittopp
} // namespace comunication
