// SPDX-License-Identifier: MIT
#include <flotrofobul/platform/mosquittopp/tls_context.h>

#include <QtCore/QStringList>
#include <QtCore/QUrl>
#include <QtNetwork/QHostAddress>

#include <mosquitto.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

namespace comunication {
namespace mosquittopp {

namespace {

// Notes that OpenSSL really lets go of a context.
void contextReleased(void*, void* owner, CRYPTO_EX_DATA*, int, long, void*)
{
    if (owner != nullptr) {
        static_cast<tls_context_t*>(owner)->released = true;
    }
}

int ownerIndex()
{
    static const int index = SSL_CTX_get_ex_new_index(0, nullptr, nullptr, nullptr, contextReleased);
    return index;
}

tls_context_t* ownerOf(const SSL_CTX* context)
{
    return static_cast<tls_context_t*>(SSL_CTX_get_ex_data(context, ownerIndex()));
}

int certificateChecked(int accepted, X509_STORE_CTX* store)
{
    if (!accepted) {
        const auto* const session =
            static_cast<SSL*>(X509_STORE_CTX_get_ex_data(store, SSL_get_ex_data_X509_STORE_CTX_idx()));
        ownerOf(SSL_get_SSL_CTX(session))
            ->noteRefusal(X509_STORE_CTX_get_error(store), X509_STORE_CTX_get0_cert(store));
    }
    return accepted;
}

// libmosquitto names the address that it dials; the broker must be asked for the configured name.
void handshakeProceeds(const SSL* session, int where, int)
{
    if (where & SSL_CB_HANDSHAKE_START) {
        QByteArray name = ownerOf(SSL_get_SSL_CTX(session))->serverName();
        char* const text = name.isEmpty() ? nullptr : name.data();
        // SSL_set_tlsext_host_name() is a macro with an old-style cast in it.
        SSL_ctrl(const_cast<SSL*>(session), SSL_CTRL_SET_TLSEXT_HOSTNAME, TLSEXT_NAMETYPE_host_name, text);
    }
}

QString namesIn(X509* certificate)
{
    QStringList names;
    auto* const all =
        static_cast<GENERAL_NAMES*>(X509_get_ext_d2i(certificate, NID_subject_alt_name, nullptr, nullptr));
    for (int i = 0; i < sk_GENERAL_NAME_num(all); ++i) {
        const GENERAL_NAME* const one = sk_GENERAL_NAME_value(all, i);
        if (one->type == GEN_DNS) {
            names += QString::fromLatin1(reinterpret_cast<const char*>(ASN1_STRING_get0_data(one->d.dNSName)),
                                         ASN1_STRING_length(one->d.dNSName));
        } else if (one->type == GEN_IPADD && ASN1_STRING_length(one->d.iPAddress) == 4) {
            const unsigned char* const byte = ASN1_STRING_get0_data(one->d.iPAddress);
            names += QStringLiteral("%1.%2.%3.%4").arg(byte[0]).arg(byte[1]).arg(byte[2]).arg(byte[3]);
        }
    }
    GENERAL_NAMES_free(all);
    if (names.isEmpty()) {
        char common[256] = "";
        X509_NAME_get_text_by_NID(X509_get_subject_name(certificate), NID_commonName, common, sizeof common);
        names += QString::fromUtf8(common);
    }
    return names.join(QStringLiteral(", "));
}

QString lastOpensslText()
{
    char text[256] = "";
    ERR_error_string_n(ERR_peek_last_error(), text, sizeof text);
    return QString::fromLatin1(text).section(QLatin1Char(':'), -1);
}

} // namespace

tls_context_t::tls_context_t() : context(opensslIsGone() ? nullptr : SSL_CTX_new(TLS_client_method()))
{
    if (context == nullptr) {
        return;
    }
    if (SSL_CTX_set_ex_data(context, ownerIndex(), this) != 1) {
        SSL_CTX_free(context);
        context = nullptr;
        return;
    }
    SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION);
    SSL_CTX_set_mode(context,
                     SSL_MODE_RELEASE_BUFFERS | SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
    SSL_CTX_set_verify(context, SSL_VERIFY_PEER, certificateChecked);
    SSL_CTX_set_info_callback(context, handshakeProceeds);
}

tls_context_t::~tls_context_t()
{
    if (opensslIsGone()) {
        keepForever(context);
        return;
    }
    // libmosquitto 2.0.11 takes a reference of its own and forgets it when dialling fails early.
    while (context != nullptr && !released) {
        SSL_CTX_free(context);
    }
}

int tls_context_t::fail(int code, const QString& text)
{
    why = text;
    ERR_clear_error();
    return code;
}

int tls_context_t::load(const tls_settings_t& settings, const QString& newHost, authorities_t& authorities)
{
    host = newHost;
    why.clear();
    if (context == nullptr) {
        return fail(MOSQ_ERR_NOMEM, QStringLiteral("TLS: OpenSSL is not available"));
    }
    ERR_clear_error();
    if (!expect(settings)) {
        return fail(MOSQ_ERR_INVAL, QStringLiteral("TLS: no certificate can be for the host %1").arg(host));
    }
    const int rc = authorities.load(settings.cafile, settings.capath);
    if (rc != MOSQ_ERR_SUCCESS) {
        return fail(rc, authorities.reason());
    }
    authority = settings.cafile.isEmpty() ? settings.capath : settings.cafile;
    SSL_CTX_set1_cert_store(context, authorities.get());
    return loadOwnCertificate(settings);
}

int tls_context_t::loadOwnCertificate(const tls_settings_t& settings)
{
    if (settings.certfile.isEmpty() != settings.keyfile.isEmpty()) {
        return fail(MOSQ_ERR_INVAL, QStringLiteral("TLS: a certificate needs its key and a key its certificate"));
    }
    if (settings.certfile.isEmpty()) {
        return MOSQ_ERR_SUCCESS;
    }
    for (const QString& path : {settings.certfile, settings.keyfile}) {
        const QString problem = unreadable(path);
        if (!problem.isEmpty()) {
            return fail(MOSQ_ERR_INVAL, problem);
        }
    }
    // Without a callback OpenSSL would ask on the terminal and wait.
    const password_callback_t nobodyKnows = [](char*, int, int, void*) { return 0; };
    SSL_CTX_set_default_passwd_cb(context,
                                  settings.passwordCallback != nullptr ? settings.passwordCallback : nobodyKnows);
    if (SSL_CTX_use_certificate_chain_file(context, settings.certfile.toLocal8Bit().constData()) != 1) {
        return fail(MOSQ_ERR_NOMEM,
                    QStringLiteral("TLS: the file %1 holds no whole certificate").arg(settings.certfile));
    }
    if (SSL_CTX_use_PrivateKey_file(context, settings.keyfile.toLocal8Bit().constData(), SSL_FILETYPE_PEM) != 1 ||
        SSL_CTX_check_private_key(context) != 1) {
        return fail(MOSQ_ERR_NOMEM, QStringLiteral("TLS: the key in %1 cannot be used with the certificate in %2 (%3)")
                                        .arg(settings.keyfile, settings.certfile, lastOpensslText()));
    }
    return MOSQ_ERR_SUCCESS;
}

// Sets the name or the address that the certificate must be for. False if there is none: OpenSSL would then accept any
// certificate.
bool tls_context_t::expect(const tls_settings_t& settings)
{
    QHostAddress address(host);
    address.setScopeId(QString()); // no certificate holds the interface
    const bool isAddress = !address.isNull();
    name = isAddress ? QByteArray() : QUrl::toAce(host);
    if (name.endsWith('.')) { // the end of a complete name, which certificates and server names lack
        name.chop(1);
    }
    X509_VERIFY_PARAM* const rules = SSL_CTX_get0_param(context);
    X509_VERIFY_PARAM_set_hostflags(rules, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
    X509_VERIFY_PARAM_set1_host(rules, nullptr, 0);
    X509_VERIFY_PARAM_set1_ip(rules, nullptr, 0);
    if (settings.insecure || host.isEmpty()) { // no host: only the files are tried
        return true;
    }
    if (isAddress) {
        return X509_VERIFY_PARAM_set1_ip_asc(rules, address.toString().toLatin1().constData()) == 1;
    }
    return !name.isEmpty() && X509_VERIFY_PARAM_set1_host(rules, name.constData(), 0) == 1;
}

void tls_context_t::noteRefusal(int error, void* certificate)
{
    auto* const theirs = static_cast<X509*>(certificate);
    switch (error) {
    case X509_V_ERR_HOSTNAME_MISMATCH:
    case X509_V_ERR_IP_ADDRESS_MISMATCH:
        why = QStringLiteral("TLS: certificate of host %1 is for %2").arg(host, namesIn(theirs));
        break;
    case X509_V_ERR_CERT_HAS_EXPIRED: why = QStringLiteral("TLS: certificate of host %1 has expired").arg(host); break;
    case X509_V_ERR_CERT_NOT_YET_VALID:
        why = QStringLiteral("TLS: certificate of host %1 is not yet valid: is the clock of this machine right?")
                  .arg(host);
        break;
    case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
    case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
    case X509_V_ERR_CERT_SIGNATURE_FAILURE:
        why = QStringLiteral("TLS: certificate of host %1 was not signed by an authority in %2").arg(host, authority);
        break;
    default:
        why = QStringLiteral("TLS: certificate of host %1 is refused (%2)")
                  .arg(host, QString::fromLatin1(X509_verify_cert_error_string(error)));
    }
}

} // namespace mosquittopp
} // namespace comunication
