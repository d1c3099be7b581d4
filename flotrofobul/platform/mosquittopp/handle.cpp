// SPDX-License-Identifier: MIT
#include <flotrofobul/platform/mosquittopp/handle.h>

#include <flotrofobul/platform/mosquittopp/outbox.h>
#include <flotrofobul/platform/mosquittopp/process.h>

#include <mosquitto.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <tuple>
#include <utility>

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

auto membersOf(const identity_t& one)
{
    return std::tie(one.clientId, one.username, one.password, one.hasWill, one.will.topic, one.will.payload,
                    one.will.qos, one.will.retain, one.tls.wanted, one.tls.insecure, one.tls.cafile, one.tls.capath,
                    one.tls.certfile, one.tls.keyfile, one.tls.passwordCallback);
}

} // namespace

bool operator==(const identity_t& left, const identity_t& right)
{
    return membersOf(left) == membersOf(right);
}

std::unique_ptr<handle_t> handle_t::create(const QString& clientId, bool cleanSession, handle_listener_t* listener)
{
    static const int initialised = mosquitto_lib_init();
    Q_UNUSED(initialised)
    std::unique_ptr<handle_t> result(new handle_t);
    result->listener = listener;
    result->id = clientId;
    {
        const handle_creation_t creation;
        result->handle = mosquitto_new(clientId.toUtf8().constData(), cleanSession, result.get());
        if (result->handle == nullptr) {
            return nullptr;
        }
        creation.removePair(result->handle);
    }
    mosquitto_int_option(result->handle, MOSQ_OPT_TCP_NODELAY, 1);
    result->setCallbacks();
    return result;
}

handle_t::~handle_t()
{
    if (tls && opensslIsGone()) {
        // The process ends. libmosquitto would call OpenSSL to free its session.
        ::close(mosquitto_socket(handle));
        keepForever(handle);
        return;
    }
    if (handle == nullptr) {
        return;
    }
    // The connection of the process that forked this one lives on: closing it here would end TLS for both.
    if (!hasEnded() && descriptor >= 0 && process != ::getpid()) {
        replaceByNull(descriptor);
    }
    mosquitto_destroy(handle);
}

// An error that the host has left behind in OpenSSL's queue would be taken for one of this connection.
template <typename call_t>
outcome_t handle_t::call(call_t&& library)
{
    if (tls) {
        ERR_clear_error();
    }
    errno = 0;
    const int code = library();
    const int systemError = errno;
    const int result = closeSeen ? closeCode : code;
    // libmosquitto calls it a lost connection when the broker has closed one that is read, but not one that is written.
    const bool isLost = result == MOSQ_ERR_ERRNO && systemError == EPIPE;
    return {isLost ? int(MOSQ_ERR_CONN_LOST) : result, systemError};
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

outcome_t handle_t::dial(const QString& address, int port, seconds_t keepalive)
{
    closeSeen = false;
    closeCode = 0;
    process = ::getpid();
    const QByteArray host = address.toLatin1();
    const outcome_t outcome =
        call([&] { return mosquitto_connect_async(handle, host.constData(), port, keepalive.count()); });
    descriptor = mosquitto_socket(handle);
    if (descriptor >= 0) {
        closeOnExec(descriptor);
    }
    return outcome;
}

// The answers are written after the call. Inside it an answer that cannot be written to a connection that is just
// ending makes libmosquitto 2.0.11 throw away the released message that it was about to hand over.
outcome_t handle_t::read()
{
    mosquitto_threaded_set(handle, true);
    const outcome_t outcome = call([this] { return mosquitto_loop_read(handle, 1); });
    mosquitto_threaded_set(handle, false);
    if (outcome.code != MOSQ_ERR_SUCCESS || hasEnded() || !wantsWrite()) {
        return outcome;
    }
    const outcome_t written = write();
    return written.code == MOSQ_ERR_SUCCESS ? outcome : written;
}

outcome_t handle_t::write()
{
    return call([this] { return mosquitto_loop_write(handle, 1); });
}

outcome_t handle_t::checkKeepalive()
{
    return call([this] { return mosquitto_loop_misc(handle); });
}

outcome_t handle_t::disconnect()
{
    return call([this] { return mosquitto_disconnect(handle); });
}

outcome_t handle_t::publish(letter_t& letter)
{
    return call([&] {
        return mosquitto_publish(handle, &letter.wireMid, letter.topic.constData(), letter.payload.size(),
                                 letter.payload.constData(), letter.qos, letter.retain);
    });
}

outcome_t handle_t::subscribe(int* wireMid, const QByteArray& filter, int qos)
{
    return call([&] { return mosquitto_subscribe(handle, wireMid, filter.constData(), qos); });
}

outcome_t handle_t::unsubscribe(int* wireMid, const QByteArray& filter)
{
    return call([&] { return mosquitto_unsubscribe(handle, wireMid, filter.constData()); });
}

void handle_t::cut()
{
    if (descriptor >= 0 && !hasEnded() && process == ::getpid()) {
        ::shutdown(descriptor, SHUT_RDWR);
    }
}

bool handle_t::hasEnded() const
{
    return closeSeen || mosquitto_socket(handle) != descriptor;
}

bool handle_t::wantsWrite() const
{
    return mosquitto_want_write(handle);
}

bool handle_t::hasBufferedInput() const
{
    const SSL* const session = tls ? sessionOf(handle) : nullptr;
    return session != nullptr && SSL_pending(session) > 0;
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
    if (std::exchange(listensToLog, on) == on) {
        return;
    }
    using log_callback_t = void (*)(::mosquitto*, void*, int, const char*);
    const log_callback_t note = [](::mosquitto*, void* self, int level, const char* text) {
        auto* const known = static_cast<handle_t*>(self);
        known->listener->lineWritten(*known, level, text);
    };
    mosquitto_log_callback_set(handle, on ? note : nullptr);
}

} // namespace mosquittopp
} // namespace comunication
