// SPDX-License-Identifier: MIT
#include <flotrofobul/platform/mosquittopp/link.h>

#include <QtCore/QElapsedTimer>
#include <QtCore/QPointer>
#include <QtCore/QTimerEvent>

#include <mosquitto.h>

#include <poll.h>

#include <algorithm>

namespace comunication {
namespace mosquittopp {

namespace {

constexpr int deadline = 10000;
constexpr int longestDelay = 30000;

void initialiseLibrary()
{
    static const int once = mosquitto_lib_init();
    Q_UNUSED(once)
}

const char* orNull(const QByteArray& text)
{
    return text.isEmpty() ? nullptr : text.constData();
}

} // namespace

link_t::link_t(mosquittoppqt* owner, const QString& clientId, bool cleanSession, bool autoconnect)
    : clientId(clientId), owner(owner), cleanSession(cleanSession), autoconnect(autoconnect)
{
    initialiseLibrary();
}

link_t::~link_t()
{
    dropNotifiers();
    if (handle) {
        mosquitto_destroy(handle);
    }
}

void link_t::setCallbacks(::mosquitto* handle)
{
    mosquitto_connect_with_flags_callback_set(handle, [](::mosquitto*, void* self, int rc, int flags) {
        static_cast<link_t*>(self)->push({event_t::connected, rc, flags});
    });
    mosquitto_disconnect_callback_set(handle, [](::mosquitto*, void* self, int rc) {
        auto* const link = static_cast<link_t*>(self);
        link->closeSeen = true;
        link->closeCode = rc;
    });
    mosquitto_publish_callback_set(handle, [](::mosquitto*, void* self, int mid) {
        static_cast<link_t*>(self)->push({event_t::published, mid});
    });
    mosquitto_unsubscribe_callback_set(handle, [](::mosquitto*, void* self, int mid) {
        static_cast<link_t*>(self)->push({event_t::unsubscribed, mid});
    });
    mosquitto_subscribe_callback_set(handle, [](::mosquitto*, void* self, int mid, int count, const int* granted) {
        event_t event{event_t::subscribed, mid};
        event.granted.assign(granted, granted + count);
        static_cast<link_t*>(self)->push(std::move(event));
    });
    mosquitto_message_callback_set(handle, [](::mosquitto*, void* self, const mosquitto_message* message) {
        event_t event{event_t::message, message->mid, message->qos, message->retain, message->payloadlen};
        event.topic = QString::fromUtf8(message->topic);
        event.text = QString::fromUtf8(static_cast<const char*>(message->payload), message->payloadlen);
        static_cast<link_t*>(self)->push(std::move(event));
    });
    mosquitto_log_callback_set(handle, [](::mosquitto*, void* self, int level, const char* text) {
        auto* const link = static_cast<link_t*>(self);
        if (link->logging) {
            event_t event{event_t::log, level};
            event.text = QString::fromUtf8(text);
            link->push(std::move(event));
        }
    });
}

int link_t::openHandle()
{
    if (handle) {
        mosquitto_destroy(handle);
    }
    handle = mosquitto_new(clientId.toUtf8().constData(), cleanSession, this);
    if (!handle) {
        return MOSQ_ERR_INVAL;
    }
    setCallbacks(handle);
    mosquitto_int_option(handle, MOSQ_OPT_TCP_NODELAY, 1);
    if (!username.isEmpty() || !password.isEmpty()) {
        mosquitto_username_pw_set(handle, username.constData(), orNull(password));
    }
    if (willRegistered) {
        const QByteArray payload = will.payload.toUtf8();
        mosquitto_will_set(handle, will.topic.toUtf8().constData(), payload.size(), payload.constData(), will.qos,
                           will.retain);
    }
    if (!tlsWanted) {
        return MOSQ_ERR_SUCCESS;
    }
    mosquitto_tls_insecure_set(handle, tlsInsecure);
    return mosquitto_tls_set(handle, orNull(cafile), orNull(capath), orNull(certfile), orNull(keyfile),
                             passwordCallback);
}

int link_t::connectTo(const QString& newHost, int newPort, int newKeepalive, bool wait)
{
    if (state == state_t::connected) {
        return MOSQ_ERR_SUCCESS;
    }
    host = newHost;
    port = newPort;
    keepalive = newKeepalive;
    const int rc = attempt();
    if (rc != MOSQ_ERR_SUCCESS || !wait) {
        return rc;
    }
    QElapsedTimer clock;
    clock.start();
    while (state == state_t::connecting && clock.elapsed() < deadline) {
        pollfd descriptor{mosquitto_socket(handle), POLLIN, 0};
        if (writer && writer->isEnabled()) {
            descriptor.events |= POLLOUT;
        }
        poll(&descriptor, 1, 100);
        if (descriptor.revents & (POLLIN | POLLERR | POLLHUP)) {
            readable();
        }
        if (state == state_t::connecting && descriptor.revents & POLLOUT) {
            writable();
        }
    }
    const auto answer = std::find_if(events.rbegin(), events.rend(),
                                     [](const event_t& event) { return event.kind == event_t::connected; });
    return answer == events.rend() ? static_cast<int>(MOSQ_ERR_ERRNO) : answer->number;
}

int link_t::attempt()
{
    dropNotifiers();
    int rc = openHandle();
    if (rc == MOSQ_ERR_SUCCESS) {
        closeSeen = false;
        state = state_t::connecting;
        rc = mosquitto_connect_async(handle, host.toUtf8().constData(), port, keepalive);
    }
    if (rc != MOSQ_ERR_SUCCESS) {
        state = state_t::waiting;
        timer.start(delay, this);
        delay = std::min(delay * 2, longestDelay);
        return rc;
    }
    timer.start(deadline, this);
    watch();
    return rc;
}

int link_t::disconnect()
{
    const bool wasConnected = state == state_t::connected;
    timer.stop();
    dropNotifiers();
    state = state_t::idle;
    if (!handle || !wasConnected) {
        return MOSQ_ERR_NO_CONN;
    }
    const int rc = mosquitto_disconnect(handle);
    push({event_t::disconnected, 0});
    return rc;
}

int link_t::subscribe(int* mid, const QString& topic, int qos)
{
    int number = 0;
    const int rc = connected() ? mosquitto_subscribe(handle, &number, topic.toUtf8().constData(), qos)
                               : static_cast<int>(MOSQ_ERR_NO_CONN);
    if (mid) {
        *mid = number;
    }
    settle(rc == MOSQ_ERR_CONN_LOST ? rc : 0);
    return rc;
}

int link_t::unsubscribe(int* mid, const QString& topic)
{
    int number = 0;
    const int rc = connected() ? mosquitto_unsubscribe(handle, &number, topic.toUtf8().constData())
                               : static_cast<int>(MOSQ_ERR_NO_CONN);
    if (mid) {
        *mid = number;
    }
    settle(rc == MOSQ_ERR_CONN_LOST ? rc : 0);
    return rc;
}

int link_t::publish(int* mid, const QString& topic, const QString& payload, int qos, bool retain)
{
    int number = 0;
    int rc = MOSQ_ERR_NO_CONN;
    if (handle) {
        const QByteArray bytes = payload.toUtf8();
        rc = mosquitto_publish(handle, &number, topic.toUtf8().constData(), bytes.size(), bytes.constData(), qos,
                               retain);
    }
    if (mid) {
        *mid = number;
    }
    settle(rc == MOSQ_ERR_CONN_LOST ? rc : 0);
    return rc;
}

void link_t::readable()
{
    settle(mosquitto_loop_read(handle, 1));
}

void link_t::writable()
{
    // libmosquitto drives a TLS handshake from its reading side only.
    if (state == state_t::connecting && tlsWanted && !mosquitto_want_write(handle)) {
        settle(mosquitto_loop_read(handle, 1));
        return;
    }
    settle(mosquitto_loop_write(handle, 1));
}

void link_t::settle(int rc)
{
    if (state != state_t::connecting && state != state_t::connected) {
        return;
    }
    if (rc != MOSQ_ERR_SUCCESS || closeSeen || mosquitto_socket(handle) < 0) {
        closed(closeSeen ? closeCode : rc);
        return;
    }
    watch();
}

void link_t::closed(int rc)
{
    dropNotifiers();
    const bool refused = !events.empty() && events.back().kind == event_t::connected && events.back().number != 0;
    if (!refused) {
        push({event_t::disconnected, rc});
    }
    state = state_t::idle;
    timer.stop();
    if (autoconnect) {
        state = state_t::waiting;
        timer.start(refused ? longestDelay : delay, this);
        delay = std::min(delay * 2, longestDelay);
    }
}

void link_t::dropNotifiers()
{
    reader.reset();
    writer.reset();
}

void link_t::watch()
{
    const int descriptor = mosquitto_socket(handle);
    if (!reader || reader->socket() != descriptor) {
        reader = std::make_unique<QSocketNotifier>(descriptor, QSocketNotifier::Read);
        writer = std::make_unique<QSocketNotifier>(descriptor, QSocketNotifier::Write);
        QObject::connect(reader.get(), &QSocketNotifier::activated, this, [this] { readable(); });
        QObject::connect(writer.get(), &QSocketNotifier::activated, this, [this] { writable(); });
    }
    writer->setEnabled(mosquitto_want_write(handle) || (state == state_t::connecting && tlsWanted));
}

void link_t::timerEvent(QTimerEvent*)
{
    switch (state) {
    case state_t::connecting: closed(MOSQ_ERR_ERRNO); break;
    case state_t::connected: settle(mosquitto_loop_misc(handle)); break;
    case state_t::waiting: attempt(); break;
    case state_t::idle: timer.stop(); break;
    }
}

void link_t::push(event_t event)
{
    if (event.kind == event_t::connected && event.number == 0) {
        state = state_t::connected;
        timer.start(std::max(interval, 500), this);
    }
    events.push_back(std::move(event));
    if (!deliveryPending) {
        deliveryPending = true;
        QMetaObject::invokeMethod(
            this, [this] { deliver(); }, Qt::QueuedConnection);
    }
}

void link_t::deliver()
{
    deliveryPending = false;
    const QPointer<link_t> alive(this);
    while (alive && !events.empty()) {
        const event_t event = std::move(events.front());
        events.pop_front();
        emitEvent(event);
    }
}

void link_t::emitEvent(const event_t& event)
{
    const QPointer<link_t> alive(this);
    switch (event.kind) {
    case event_t::connected:
        Q_EMIT owner->onConnect(event.number);
        if (alive) {
            Q_EMIT owner->onConnect_with_flags(event.number, event.flags);
        }
        break;
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
    }
}

} // namespace mosquittopp
} // namespace comunication
