// SPDX-License-Identifier: MIT
#include <flotrofobul/platform/mosquittopp/handle.h>

#include <mosquitto.h>
#include <openssl/ssl.h>

#include <unistd.h>

namespace comunication {
namespace mosquittopp {

namespace {

const char* orNull(const QByteArray& text)
{
    return text.isNull() ? nullptr : text.constData();
}

SSL* sessionOf(::mosquitto* handle)
{
    return static_cast<SSL*>(mosquitto_ssl_get(handle));
}

} // namespace

std::unique_ptr<handle_t> handle_t::create(const QString& clientId, bool cleanSession, handle_listener_t* listener)
{
    static const int initialised = mosquitto_lib_init();
    Q_UNUSED(initialised)
    std::unique_ptr<handle_t> result(new handle_t);
    result->listener = listener;
    result->id = clientId;
    result->handle = mosquitto_new(clientId.toUtf8().constData(), cleanSession, result.get());
    if (result->handle == nullptr) {
        return nullptr;
    }
    mosquitto_int_option(result->handle, MOSQ_OPT_TCP_NODELAY, 1);
    result->setCallbacks();
    return result;
}

handle_t::~handle_t()
{
    if (tls && opensslIsGone()) {
        // The process ends. libmosquitto would call OpenSSL to free its session.
        ::close(socket());
        keepForever(handle);
    } else if (handle != nullptr) {
        mosquitto_destroy(handle);
    }
}

void handle_t::setCallbacks()
{
    mosquitto_connect_with_flags_callback_set(handle, [](::mosquitto*, void* self, int rc, int flags) {
        static_cast<handle_t*>(self)->listener->brokerAnswered(rc, flags);
    });
    mosquitto_disconnect_callback_set(handle, [](::mosquitto*, void* self, int rc) {
        static_cast<handle_t*>(self)->closeSeen = true;
        static_cast<handle_t*>(self)->closeCode = rc;
    });
    mosquitto_publish_callback_set(
        handle, [](::mosquitto*, void* self, int mid) { static_cast<handle_t*>(self)->listener->acknowledged(mid); });
    mosquitto_message_callback_set(handle, [](::mosquitto*, void* self, const mosquitto_message* message) {
        static_cast<handle_t*>(self)->listener->messageArrived(*message);
    });
    mosquitto_subscribe_callback_set(handle, [](::mosquitto*, void* self, int mid, int count, const int* granted) {
        static_cast<handle_t*>(self)->listener->subscribed(mid, count, granted);
    });
    mosquitto_unsubscribe_callback_set(
        handle, [](::mosquitto*, void* self, int mid) { static_cast<handle_t*>(self)->listener->unsubscribed(mid); });
}

int handle_t::prepare(const identity_t& identity, const QString& host)
{
    mosquitto_username_pw_set(handle, orNull(identity.username), orNull(identity.password));
    mosquitto_will_clear(handle);
    if (identity.hasWill) {
        const QByteArray payload = identity.will.payload.toUtf8();
        const int rc = mosquitto_will_set(handle, identity.will.topic.toUtf8().constData(), payload.size(),
                                          payload.constData(), identity.will.qos, identity.will.retain);
        if (rc != MOSQ_ERR_SUCCESS) {
            return rc;
        }
    }
    if (!identity.tls.wanted) {
        return MOSQ_ERR_SUCCESS;
    }
    if (!tls) {
        tls = std::make_unique<tls_context_t>();
        mosquitto_void_option(handle, MOSQ_OPT_SSL_CTX, tls->get());
        mosquitto_int_option(handle, MOSQ_OPT_SSL_CTX_WITH_DEFAULTS, 0);
    }
    return tls->load(identity.tls, host, *identity.authorities) == MOSQ_ERR_SUCCESS ? MOSQ_ERR_SUCCESS : MOSQ_ERR_TLS;
}

int handle_t::dial(const QString& address, int port, int keepalive)
{
    closeSeen = false;
    return mosquitto_connect_async(handle, address.toLatin1().constData(), port, keepalive);
}

int handle_t::socket() const
{
    return mosquitto_socket(handle);
}

bool handle_t::wantsWrite() const
{
    return mosquitto_want_write(handle);
}

bool handle_t::handshakeDone() const
{
    const SSL* const session = sessionOf(handle);
    return session != nullptr && SSL_is_init_finished(session);
}

bool handle_t::handshakeWantsWrite() const
{
    const SSL* const session = sessionOf(handle);
    return session != nullptr && SSL_want_write(session);
}

void handle_t::listenToLog(bool on)
{
    using log_callback_t = void (*)(::mosquitto*, void*, int, const char*);
    const log_callback_t note = [](::mosquitto*, void* self, int level, const char* text) {
        static_cast<handle_t*>(self)->listener->lineWritten(level, text);
    };
    mosquitto_log_callback_set(handle, on ? note : nullptr);
}

} // namespace mosquittopp
} // namespace comunication
