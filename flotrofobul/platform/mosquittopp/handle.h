// SPDX-License-Identifier: MIT
// Owner of one libmosquitto handle and of what is registered in it. Internal.
#pragma once

#include <flotrofobul/platform/mosquittopp/tls_context.h>
#include <flotrofobul/platform/mosquittopp/types.h>

#include <memory>

struct mosquitto;
struct mosquitto_message;

namespace comunication {
namespace mosquittopp {

/// What a handle tells while it is inside a call. libmosquitto hangs or crashes when it is called
/// from there, so whoever listens only takes notes.
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

/// Everything that a connection is made with, apart from where it goes.
struct identity_t {
    QString clientId;
    QByteArray username;
    QByteArray password;
    will_t will;
    bool hasWill = false;
    tls_settings_t tls;
};

class handle_t {
public:
    /// Null when libmosquitto does not take the client id.
    static std::unique_ptr<handle_t> create(const QString& clientId, bool cleanSession, handle_listener_t* listener);
    ~handle_t();

    /// Registers credentials and will and loads TLS for a host; reads all files again. A code of
    /// libmosquitto; 8 for TLS, then tlsReason() says why.
    int prepare(const identity_t& identity, const QString& host);

    /// Starts to dial; the callbacks before it count no more.
    int dial(const QString& address, int port, int keepalive);

    ::mosquitto* get() const { return handle; }
    int socket() const;
    bool wantsWrite() const;
    bool handshakeDone() const;
    bool handshakeWantsWrite() const;
    QString tlsReason() const { return tls ? tls->reason() : QString(); }
    const QString& clientId() const { return id; }
    bool isSecure() const { return tls != nullptr; }

    /// Costs formatting for every packet, so it is on only while somebody reads it.
    void listenToLog(bool on);

    /// libmosquitto has reported the end of the connection, with this code.
    bool closeSeen = false;
    int closeCode = 0;

private:
    handle_t() = default;
    void setCallbacks();

    // The context must go after the handle that uses it.
    std::unique_ptr<tls_context_t> tls;
    ::mosquitto* handle = nullptr;
    handle_listener_t* listener = nullptr;
    QString id;
};

} // namespace mosquittopp
} // namespace comunication
