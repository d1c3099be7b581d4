// SPDX-License-Identifier: MIT
// Owns one libmosquitto handle and what is registered with it. Internal.
#pragma once

#include <flotrofobul/platform/mosquittopp/tls_context.h>
#include <flotrofobul/platform/mosquittopp/types.h>

#include <memory>

struct mosquitto;
struct mosquitto_message;

namespace comunication {
namespace mosquittopp {

/// What a handle reports from inside a call of libmosquitto. The library hangs or crashes when it is called from there,
/// so a listener only takes notes.
class handle_listener_t {
public:
    virtual void brokerAnswered(int rc, int flags) = 0;
    virtual void acknowledged(int wireMid) = 0;
    virtual void messageArrived(const mosquitto_message& message) = 0;
    virtual void subscribed(int wireMid, int count, const int* granted) = 0;
    virtual void unsubscribed(int wireMid) = 0;
    virtual void lineWritten(int level, const char* text) = 0;

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

class handle_t {
public:
    /// Null if libmosquitto does not accept the client id.
    static std::unique_ptr<handle_t> create(const QString& clientId, bool cleanSession, handle_listener_t* listener);
    ~handle_t();

    /// Registers credentials and last will and sets TLS up for a host; reads all files anew. Returns a code of
    /// libmosquitto; it is 8 for TLS, and tlsReason() says why.
    int prepare(const identity_t& identity, const QString& host);

    /// Starts to dial; forgets that an earlier connection has ended.
    int dial(const QString& address, int port, int keepalive);

    ::mosquitto* get() const { return handle; }
    int socket() const;
    bool wantsWrite() const;
    bool handshakeDone() const;
    bool handshakeWantsWrite() const;
    QString tlsReason() const { return tls ? tls->reason() : QString(); }
    const QString& clientId() const { return id; }
    bool isSecure() const { return tls != nullptr; }

    /// The library formats a line for every packet, so this is on only while somebody reads them.
    void listenToLog(bool on);

    /// libmosquitto has reported the end of the connection, with this code.
    bool closeSeen = false;
    int closeCode = 0;

private:
    handle_t() = default;
    void setCallbacks();

    // Destroyed after the handle that uses it.
    std::unique_ptr<tls_context_t> tls;
    ::mosquitto* handle = nullptr;
    handle_listener_t* listener = nullptr;
    QString id;
};

} // namespace mosquittopp
} // namespace comunication
