// SPDX-License-Identifier: MIT
// One connection to a broker over one libmosquitto handle, driven by the event loop. Internal.
#pragma once

#include <flotrofobul/platform/mosquittopp/mosquittoqt.h>

#include <QtCore/QBasicTimer>
#include <QtCore/QSocketNotifier>

#include <deque>
#include <vector>

struct mosquitto;
struct mosquitto_message;

namespace comunication {
namespace mosquittopp {

/// What libmosquitto reported, kept until the event loop turns.
struct event_t {
    enum kind_t { connected, disconnected, published, message, subscribed, unsubscribed, log };

    event_t(kind_t kind, int number, int flags = 0, bool retain = false, int payloadlen = 0)
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

class link_t : public QObject {
public:
    link_t(mosquittoppqt* owner, const QString& clientId, bool cleanSession, bool autoconnect);
    ~link_t() override;

    int connectTo(const QString& host, int port, int keepalive, bool wait);
    int disconnect();
    int subscribe(int* mid, const QString& topic, int qos);
    int unsubscribe(int* mid, const QString& topic);
    int publish(int* mid, const QString& topic, const QString& payload, int qos, bool retain);
    bool connected() const { return state == state_t::connected; }

    QString clientId;
    QByteArray username, password;
    will_t will;
    bool willRegistered = false;
    bool tlsWanted = false;
    bool tlsInsecure = false;
    QByteArray cafile, capath, certfile, keyfile;
    mosquittoppqt::password_callback passwordCallback = nullptr;
    bool logging = false;
    int interval = 1000;

protected:
    void timerEvent(QTimerEvent* event) override;

private:
    enum class state_t { idle, connecting, connected, waiting };

    static void setCallbacks(::mosquitto* handle);
    int openHandle();
    int attempt();
    void readable();
    void writable();
    void settle(int rc);
    void closed(int rc);
    void dropNotifiers();
    void watch();
    void push(event_t event);
    void deliver();
    void emitEvent(const event_t& event);

    mosquittoppqt* const owner;
    const bool cleanSession;
    const bool autoconnect;
    ::mosquitto* handle = nullptr;
    state_t state = state_t::idle;
    QString host;
    int port = 0;
    int keepalive = 0;
    int delay = 1000;
    bool closeSeen = false;
    int closeCode = 0;
    bool deliveryPending = false;
    std::deque<event_t> events;
    std::unique_ptr<QSocketNotifier> reader, writer;
    QBasicTimer timer;
};

} // namespace mosquittopp
} // namespace comunication
