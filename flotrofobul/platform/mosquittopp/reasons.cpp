// SPDX-License-Identifier: MIT
#include <flotrofobul/platform/mosquittopp/reasons.h>

#include <flotrofobul/platform/text.h>

#include <mosquitto.h>

#include <cerrno>
#include <cstring>

namespace comunication {
namespace mosquittopp {

namespace {

const char* meaningOf(int answer)
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
    case EPIPE:
    case EAGAIN: // of a call after the one that failed
    case ECONNRESET: return QStringLiteral("the other side has reset the connection");
    default: return QString::fromLocal8Bit(std::strerror(error));
    }
}

bool isReset(int systemError)
{
    return systemError == ECONNRESET || systemError == EPIPE;
}

bool speaksNoTls(const QByteArray& line)
{
    return line.contains("wrong version number") || line.contains("packet length too long") ||
           line.contains("record layer failure");
}

QString handshakeText(const failure_t& failure)
{
    if (speaksNoTls(failure.libraryLine)) {
        return QStringLiteral("TLS: the other side does not speak TLS, is this a port without TLS?");
    }
    if (failure.outcome.systemError == ETIMEDOUT) {
        return QStringLiteral("TLS: the handshake is not answered");
    }
    return "TLS: the other side has ended the handshake, is this a port without TLS?"_l1 +
           (failure.libraryLine.isEmpty() ? QString() : " ("_l1 + QString::fromUtf8(failure.libraryLine) + ")"_l1);
}

// Empty where the system error says it best.
QString greetingText(const failure_t& failure)
{
    const auto [code, systemError] = failure.outcome;
    if (systemError == ETIMEDOUT) {
        return QStringLiteral("the other side does not answer, is it a broker?");
    }
    if (code == MOSQ_ERR_CONN_LOST || isReset(systemError)) {
        return failure.tlsWanted ? QStringLiteral("the other side has closed the connection without an answer")
                                 : QStringLiteral("the other side has closed the connection without an answer, "
                                                  "does it expect TLS?");
    }
    return code != MOSQ_ERR_ERRNO || systemError == 0
               ? QStringLiteral("the answer is not that of a broker (%1)").arg(code)
               : QString();
}

} // namespace

int codeOf(const failure_t& failure)
{
    if (failure.stage == stage_t::securing) {
        return MOSQ_ERR_TLS;
    }
    return isReset(failure.outcome.systemError) ? static_cast<int>(MOSQ_ERR_CONN_LOST) : failure.outcome.code;
}

QString textOf(const failure_t& failure)
{
    if (!failure.tlsReason.isEmpty()) {
        return failure.tlsReason;
    }
    const QString text = failure.stage == stage_t::securing   ? handshakeText(failure)
                         : failure.stage == stage_t::greeting ? greetingText(failure)
                                                              : QString();
    if (!text.isEmpty()) {
        return text;
    }
    const auto [code, systemError] = failure.outcome;
    return systemError != 0 ? systemText(systemError) : QString::fromLatin1(mosquitto_strerror(code));
}

QString refusalText(int answer)
{
    return QLatin1String(meaningOf(answer)) + " ("_l1 + QString::number(answer) + ")"_l1;
}

QString lookupText(bool inTime)
{
    return inTime ? QStringLiteral("this name does not resolve to an address")
                  : QStringLiteral("no name server answers for this name");
}

QString lossText(outcome_t outcome)
{
    switch (outcome.code) {
    case MOSQ_ERR_CONN_LOST: return QStringLiteral("the broker has closed it");
    case MOSQ_ERR_KEEPALIVE: return QStringLiteral("the broker has not answered within the keep-alive");
    case MOSQ_ERR_PROTOCOL:
    case MOSQ_ERR_MALFORMED_PACKET:
    case MOSQ_ERR_MALFORMED_UTF8: return QStringLiteral("the broker sent what the protocol does not know");
    case MOSQ_ERR_NOMEM: return QStringLiteral("there is no memory for what the broker announced");
    case MOSQ_ERR_ERRNO:
        return outcome.systemError == 0 ? QStringLiteral("it ended in the middle of a packet")
                                        : systemText(outcome.systemError);
    default: return QString::fromLatin1(mosquitto_strerror(outcome.code));
    }
}

} // namespace mosquittopp
} // namespace comunication
