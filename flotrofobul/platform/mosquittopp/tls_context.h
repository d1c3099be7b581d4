// SPDX-License-Identifier: MIT
// TLS as this adapter needs it: every connection has what is in the files at its time, the certificate is checked
// against the configured name although an address is dialled, and failures are put into words. Internal.
#pragma once

#include <flotrofobul/platform/mosquittopp/authorities.h>
#include <flotrofobul/platform/mosquittopp/types.h>

#include <QtCore/QByteArray>
#include <QtCore/QString>

struct ssl_ctx_st;

namespace comunication {
namespace mosquittopp {

struct tls_settings_t {
    bool wanted = false;
    bool insecure = false;
    QString cafile;
    QString capath;
    QString certfile;
    QString keyfile;
    password_callback_t passwordCallback = nullptr;
};

/// One OpenSSL context for one libmosquitto handle, which it must outlive. Not movable: OpenSSL keeps a pointer to it.
class tls_context_t {
public:
    tls_context_t();
    ~tls_context_t();
    tls_context_t(const tls_context_t&) = delete;
    tls_context_t& operator=(const tls_context_t&) = delete;

    /// Reads the files, those of the authorities if they have changed, and notes the name to check. Returns 0, or 3 for
    /// a file that is missing or unreadable, or 1 for one that does not hold what it should; reason() says why.
    int load(const tls_settings_t& settings, const QString& host, authorities_t& authorities);

    /// Null if OpenSSL could not make one; load() then fails.
    ssl_ctx_st* get() const { return context; }
    /// Why loading or the last check of a certificate failed; empty if neither did.
    QString reason() const { return why; }
    /// Name for the handshake; empty if the broker is configured by its address.
    const QByteArray& serverName() const { return name; }

    /// For OpenSSL's callbacks.
    void noteRefusal(int error, void* certificate);
    bool released = false;

private:
    int fail(int code, const QString& text);
    int loadOwnCertificate(const tls_settings_t& settings);
    bool expect(const tls_settings_t& settings);

    ssl_ctx_st* context = nullptr;
    QString host;
    QByteArray name;
    QString authority;
    QString why;
};

} // namespace mosquittopp
} // namespace comunication
