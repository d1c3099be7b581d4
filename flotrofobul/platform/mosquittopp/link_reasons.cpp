// SPDX-License-Identifier: MIT
// Why a connection failed, in words that help the person in front of the panel.
#include <flotrofobul/platform/mosquittopp/link.h>

#include <flotrofobul/platform/logs/log_line.h>

#include <mosquitto.h>

#include <cerrno>
#include <cstring>

namespace comunication {
namespace mosquittopp {

namespace {

const char* refusalText(int answer)
{
    switch (answer) {
    case 1: return "the broker does not speak this version of the protocol";
    case 2: return "the broker refuses the client id";
    case 3: return "the broker is not available";
    case 4: return "the broker refuses the user name or the password";
    case 5: return "the broker does not authorise this client";
    default: return "the broker refuses the connection with an unknown code";
    }
}

QString systemText(int error)
{
    switch (error) {
    case ECONNREFUSED: return QStringLiteral("nobody listens there, is the broker running?");
    case ENETUNREACH:
    case EHOSTUNREACH: return QStringLiteral("there is no way to this host, is the network up?");
    case ETIMEDOUT: return QStringLiteral("the host does not answer");
    case ECONNRESET: return QStringLiteral("the other side has reset the connection");
    default: return QString::fromLocal8Bit(std::strerror(error));
    }
}

bool speaksNoTls(const QByteArray& line)
{
    return line.contains("wrong version number") || line.contains("packet length too long") ||
           line.contains("record layer failure");
}

} // namespace

QString link_t::target() const
{
    return host + ":"_l1 + QString::number(port);
}

QString link_t::failureText(int rc, int systemError) const
{
    if (outcome != 0) {
        return QLatin1String(refusalText(outcome)) + " ("_l1 + QString::number(outcome) + ")"_l1;
    }
    if (rc == MOSQ_ERR_EAI) {
        return systemError == ETIMEDOUT ? QStringLiteral("no name server answers for this name")
                                        : QStringLiteral("this name does not resolve to an address");
    }
    const QString tlsReason = handle ? handle->tlsReason() : QString();
    if (!tlsReason.isEmpty()) {
        return tlsReason;
    }
    if (state == state_t::securing) {
        if (speaksNoTls(libraryLine)) {
            return QStringLiteral("TLS: the other side does not speak TLS, is this a port without TLS?");
        }
        if (systemError == ETIMEDOUT) {
            return QStringLiteral("TLS: the handshake is not answered");
        }
        return "TLS: the other side has ended the handshake, is this a port without TLS?"_l1 +
               (libraryLine.isEmpty() ? QString() : " ("_l1 + QString::fromUtf8(libraryLine) + ")"_l1);
    }
    if (state == state_t::greeting) {
        if (systemError == ETIMEDOUT) {
            return QStringLiteral("the other side does not answer, is it a broker?");
        }
        if (rc == MOSQ_ERR_CONN_LOST || systemError == ECONNRESET || systemError == EPIPE) {
            return identity.tls.wanted ? QStringLiteral("the other side has closed the connection without an answer")
                                       : QStringLiteral("the other side has closed the connection without an answer, "
                                                        "does it expect TLS?");
        }
        if (rc != MOSQ_ERR_ERRNO || systemError == 0) {
            return QStringLiteral("the answer is not that of a broker (%1)").arg(rc);
        }
    }
    return systemError != 0 ? systemText(systemError) : QString::fromLatin1(mosquitto_strerror(rc));
}

QString link_t::lossText(int rc, int systemError) const
{
    switch (rc) {
    case MOSQ_ERR_CONN_LOST: return QStringLiteral("the broker has closed it");
    case MOSQ_ERR_KEEPALIVE: return QStringLiteral("the broker has not answered within the keep-alive");
    case MOSQ_ERR_PROTOCOL:
    case MOSQ_ERR_MALFORMED_PACKET:
    case MOSQ_ERR_MALFORMED_UTF8: return QStringLiteral("the broker sent what the protocol does not know");
    case MOSQ_ERR_NOMEM: return QStringLiteral("there is no memory for what the broker announced");
    case MOSQ_ERR_ERRNO:
        return systemError == 0 ? QStringLiteral("it ended in the middle of a packet") : systemText(systemError);
    default: return QString::fromLatin1(mosquitto_strerror(rc));
    }
}

} // namespace mosquittopp
} // namespace comunication
