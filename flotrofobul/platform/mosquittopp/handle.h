// SPDX-License-Identifier: MIT
// Owns one libmosquitto handle and what is registered with it; every call of the library is made here. Internal.
#pragma once

#include <flotrofobul/platform/limits.h>
#include <flotrofobul/platform/mosquittopp/tls_context.h>
#include <flotrofobul/platform/mosquittopp/types.h>

#include <memory>

struct mosquitto;
struct mosquitto_message;

namespace comunication {
namespace mosquittopp {

class handle_t;
struct letter_t;

/// What a handle reports from inside a call of libmosquitto. The library hangs or crashes when it is called from there,
/// so a listener only takes notes.
class handle_listener_t {
public:
    virtual void brokerAnswered(int rc, int flags) = 0;
    virtual void acknowledged(int wireMid) = 0;
    virtual void messageArrived(const mosquitto_message& message) = 0;
    virtual void subscribed(int wireMid, int count, const int* granted) = 0;
    virtual void unsubscribed(int wireMid) = 0;
    virtual void lineWritten(handle_t& handle, int level, const char* text) = 0;

protected:
    ~handle_listener_t() = default;
};

/// Everything that a connection needs, except where it goes.
struct identity_t {
    QString clientId;
    QByteArray username;
    QByteArray password;
    will_t will;
    bool hasWill = false;
    tls_settings_t tls;
    std::shared_ptr<authorities_t> authorities = std::make_shared<authorities_t>();
};
bool operator==(const identity_t& left, const identity_t& right);

/// What a call of libmosquitto came to: its code, or the one with which it ended the connection, and errno where that
/// tells more.
struct outcome_t {
    int code = 0;
    int systemError = 0;
};

class handle_t {
public:
    /// Null if libmosquitto does not accept the client id.
    static std::unique_ptr<handle_t> create(const QString& clientId, bool cleanSession, handle_listener_t* listener);
    ~handle_t();

    /// Registers credentials and last will and sets TLS up for a host; reads all files anew. Returns a code of
    /// libmosquitto; it is 8 for TLS, and tlsReason() says why.
    int prepare(const identity_t& identity, const QString& host);
    QString tlsReason() const { return tls ? tls->reason() : QString(); }

    /// Starts to dial; forgets that an earlier connection has ended.
    outcome_t dial(const QString& address, int port, seconds_t keepalive);
    /// Reads what is there: as many packets as libmosquitto sees fit, and one step of a TLS handshake. Then answers.
    outcome_t read();
    outcome_t write();
    /// Sends a PINGREQ when it is time, and closes the connection when the last one was not answered.
    outcome_t checkKeepalive();
    outcome_t disconnect();
    outcome_t publish(letter_t& letter);
    outcome_t subscribe(int* wireMid, const QByteArray& filter, int qos);
    outcome_t unsubscribe(int* wireMid, const QByteArray& filter);

    /// Ends the connection without a word; the library notices with its next call.
    void cut();
    /// The socket of the connection; -1 without one.
    int socket() const { return descriptor; }
    /// Whether the library has closed the connection.
    bool hasEnded() const;

    bool wantsWrite() const;
    /// Whether OpenSSL holds bytes that were read from the socket: no notifier tells of them.
    bool hasBufferedInput() const;
    bool handshakeDone() const;
    bool handshakeWantsWrite() const;

    const QString& clientId() const { return id; }
    bool isSecure() const { return tls != nullptr; }

    /// The library formats a line for every packet, so this is on only while somebody reads them.
    void listenToLog(bool on);

private:
    handle_t() = default;
    void setCallbacks();
    template <typename call_t>
    outcome_t call(call_t&& library);

    // Destroyed after the handle that uses it.
    std::unique_ptr<tls_context_t> tls;
    ::mosquitto* handle = nullptr;
    handle_listener_t* listener = nullptr;
    QString id;
    int process = 0; // that made the connection; a fork's child must not end it
    int descriptor = -1;
    bool listensToLog = false;
    bool closeSeen = false;
    int closeCode = 0;
};

} // namespace mosquittopp
} // namespace comunication
