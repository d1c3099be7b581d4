// SPDX-License-Identifier: MIT
// How a connection is made, and what happens when it fails or ends.
#include <flotrofobul/platform/mosquittopp/link.h>

#include <flotrofobul/platform/logs/log_line.h>
#include <flotrofobul/platform/mosquittopp/resolver.h>

#include <QtNetwork/QHostAddress>
#include <QtNetwork/QHostInfo>

#include <mosquitto.h>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <chrono>

namespace comunication {
namespace mosquittopp {

namespace {

using namespace ::utility::logs;

// How long the last packets may take to leave.
constexpr milliseconds_t closingTime{2000};
// A session that lasted this long has proved that broker and network are well.
constexpr std::chrono::minutes stableTime{1};
constexpr std::chrono::seconds shortTime{10};
constexpr int manyShortSessions = 3;
// libmosquitto accepts no shorter one, except 0 for none.
constexpr seconds_t shortestKeepalive{5};

bool isKeepalive(seconds_t time)
{
    return time == seconds_t::zero() || (time >= shortestKeepalive && time <= limits::keepalive.highest);
}

// Whether the other side has ever answered. A connection that it has ended since looks like one that was refused, but
// for the measured time of the answer.
bool hasStood(int descriptor)
{
#ifdef TCP_INFO
    tcp_info info{};
    socklen_t length = sizeof info;
    return ::getsockopt(descriptor, IPPROTO_TCP, TCP_INFO, &info, &length) == 0 && info.tcpi_rtt != 0;
#else
    Q_UNUSED(descriptor)
    return false;
#endif
}

} // namespace

int link_t::checkTarget(const QString& newHost, int newPort, seconds_t newKeepalive)
{
    if (newHost.isEmpty()) {
        return refuseTarget({MOSQ_ERR_INVAL, "it is empty"}, "host of the broker", QString());
    }
    if (newPort < limits::port.lowest || newPort > limits::port.highest) {
        return refuseTarget({MOSQ_ERR_INVAL, "it is not 1 to 65535"}, "port of the broker", QString::number(newPort));
    }
    if (!isKeepalive(newKeepalive)) {
        return refuseTarget({MOSQ_ERR_INVAL, "it is not 0 or 5 to 65535 seconds"}, "keep-alive",
                            QString::number(newKeepalive.count()));
    }
    const QByteArray id = identity.clientId.toUtf8();
    const verdict_t verdict = id.isEmpty() ? verdict_t{MOSQ_ERR_INVAL, "it is empty"} : checkText(id);
    return verdict.code == MOSQ_ERR_SUCCESS ? verdict.code : refuseTarget(verdict, "client id", identity.clientId);
}

int link_t::refuseTarget(const verdict_t& verdict, const char* what, const QString& value)
{
    if (!isConnected()) {
        noteProblem(refusalText(verdict, what, value));
    }
    return refuse(verdict, what, value);
}

int link_t::connectAsync(const QString& newHost, int newPort, seconds_t newKeepalive)
{
    const bool sameTarget = newHost == host && newPort == port && newKeepalive == keepalive &&
                            (!handle || handle->clientId() == identity.clientId);
    if (isUnderWay() && sameTarget) {
        return MOSQ_ERR_SUCCESS;
    }
    reportFailure = false;
    const int rc = start(newHost, newPort, newKeepalive);
    reportFailure = true;
    delivery.deliverLater();
    return rc;
}

int link_t::connectSync(const QString& newHost, int newPort, seconds_t newKeepalive)
{
    synchronous = true;
    reportFailure = false;
    int rc = start(newHost, newPort, newKeepalive);
    if (rc == MOSQ_ERR_SUCCESS && isUnderWay()) {
        driveUntilAnswered();
        rc = outcome;
    }
    synchronous = false;
    reportFailure = true;
    pump();
    delivery.deliverLater();
    return rc;
}

int link_t::start(const QString& newHost, int newPort, seconds_t newKeepalive)
{
    const int rc = checkTarget(newHost, newPort, newKeepalive);
    if (rc != MOSQ_ERR_SUCCESS || isConnected()) {
        return rc;
    }
    if (state == state_t::closing) {
        closed();
    }
    abandon();
    host = newHost;
    port = newPort;
    keepalive = newKeepalive;
    return attempt();
}

int link_t::attempt()
{
    deadline.setRemainingTime(connectTimeout);
    outcome = MOSQ_ERR_SUCCESS;
    state = state_t::resolving;
    if (!QHostAddress(host).isNull()) {
        addresses = QStringList(host);
        return dialNext();
    }
    addresses.clear();
    if (synchronous) {
        addresses = resolveBefore(host, deadline);
        if (addresses.isEmpty()) {
            return failed(MOSQ_ERR_EAI, failureText(MOSQ_ERR_EAI, deadline.hasExpired() ? ETIMEDOUT : 0));
        }
        return dialNext();
    }
    timer.start(connectTimeout.count(), this);
    // String-based connection: Qt 5.15 leaks a function object when a look-up is aborted.
    lookup = QHostInfo::lookupHost(host, this, SLOT(resolved(QHostInfo)));
    return MOSQ_ERR_SUCCESS;
}

void link_t::resolved(const QHostInfo& info)
{
    if (state != state_t::resolving || info.lookupId() != lookup) {
        return;
    }
    lookup = -1;
    for (const QHostAddress& one : info.addresses()) {
        addresses += one.toString();
    }
    if (addresses.isEmpty()) {
        failed(MOSQ_ERR_EAI, failureText(MOSQ_ERR_EAI, 0));
    } else {
        dialNext();
    }
    delivery.deliverLater();
}

int link_t::dialNext()
{
    address = addresses.takeFirst();
    return dial(address);
}

int link_t::prepareHandle()
{
    const bool usable =
        handle && resumable && handle->clientId() == identity.clientId && handle->isSecure() == identity.tls.wanted;
    if (!usable) {
        // Only a new handle makes a clean session clean: the old one would send the second half of a QoS 2 message that
        // the broker has forgotten, and take it for delivered.
        outbox.restart();
        resumable = false;
        handle = handle_t::create(identity.clientId, cleanSession, this);
        if (!handle) {
            return MOSQ_ERR_INVAL;
        }
    }
    handle->listenToLog(true);
    return handle->prepare(identity, host);
}

int link_t::dial(const QString& where)
{
    libraryLine.clear();
    answerSeen = false;
    int rc = prepareHandle();
    int systemError = 0;
    if (rc == MOSQ_ERR_SUCCESS) {
        errno = 0;
        rc = handle->dial(where, port, keepalive.count());
        systemError = errno;
    }
    if (rc != MOSQ_ERR_SUCCESS || handle->socket() < 0) {
        return addressFailed(rc == MOSQ_ERR_SUCCESS ? static_cast<int>(MOSQ_ERR_ERRNO) : rc, systemError);
    }
    descriptor = handle->socket();
    state = state_t::dialling;
    // An address that never answers must leave time for the others.
    const qint64 share = deadline.remainingTime() / (addresses.size() + 1);
    addressDeadline.setRemainingTime(share);
    timer.start(static_cast<int>(std::max<qint64>(share, 1)), this);
    watch();
    return MOSQ_ERR_SUCCESS;
}

// The socket has become writable for the first time: TCP is connected, or has failed.
void link_t::dialled()
{
    int error = 0;
    socklen_t length = sizeof error;
    ::getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &error, &length);
    sockaddr_storage peer;
    socklen_t peerLength = sizeof peer;
    // OpenSSL writes before TCP is connected, which clears the error.
    if (error == 0 && ::getpeername(descriptor, reinterpret_cast<sockaddr*>(&peer), &peerLength) != 0) {
        error = hasStood(descriptor) ? ECONNRESET : ECONNREFUSED;
    }
    // A reset before we looked still means that somebody answered.
    const bool stood = error == 0 || error == ECONNRESET || error == EPIPE;
    if (stood) {
        state = handle->isSecure() ? state_t::securing : state_t::greeting;
    }
    if (error != 0) {
        addressFailed(MOSQ_ERR_ERRNO, error);
        return;
    }
    acknowledgeNow();
    writeStep();
}

void link_t::driveUntilAnswered()
{
    while (isUnderWay()) {
        const qint64 left = addressDeadline.remainingTime();
        if (left == 0) {
            expired();
            continue;
        }
        pollfd watched{descriptor, 0, 0};
        if (state != state_t::dialling) {
            watched.events |= POLLIN;
        }
        if (wantsWrite()) {
            watched.events |= POLLOUT;
        }
        if (::poll(&watched, 1, static_cast<int>(left)) <= 0) {
            continue;
        }
        if (state != state_t::dialling && (watched.revents & (POLLIN | POLLERR | POLLHUP))) {
            readStep();
        } else {
            writeStep();
        }
    }
}

void link_t::answered()
{
    answerSeen = false;
    if (outcome != 0) {
        return; // the library closes the connection itself
    }
    state = state_t::connected;
    resumable = !cleanSession;
    session.start();
    outbox.sentAgain(moment_t::clock::now()); // by the library, if a session goes on
    timer.start(housekeepingInterval().count(), this);
    handle->listenToLog(logging);
    noteDropped(0);
    noteProblem(QString());
}

// Name, address or the broker's answer took too long.
void link_t::expired()
{
    if (state == state_t::resolving) {
        failed(MOSQ_ERR_EAI, failureText(MOSQ_ERR_EAI, ETIMEDOUT));
    } else {
        addressFailed(state == state_t::securing ? MOSQ_ERR_TLS : MOSQ_ERR_ERRNO, ETIMEDOUT);
    }
}

int link_t::addressFailed(int rc, int systemError)
{
    const QString why = failureText(rc, systemError);
    if (state == state_t::securing) {
        rc = MOSQ_ERR_TLS;
    } else if (systemError == ECONNRESET || systemError == EPIPE) {
        rc = MOSQ_ERR_CONN_LOST;
    }
    dropNotifiers();
    const bool refused = outcome != 0;
    if (!refused && !addresses.isEmpty() && !deadline.hasExpired()) {
        return dialNext();
    }
    return failed(rc, why);
}

int link_t::failed(int rc, const QString& why)
{
    const bool refused = outcome != 0;
    if (refused) {
        backoff.useLongest();
    } else {
        outcome = rc;
        if (reportFailure) {
            delivery.push(event_t(event_t::disconnected, rc));
        }
    }
    abandon();
    retryOrRest("Connection to "_l1 + target() + " failed: "_l1 + why);
    return outcome;
}

void link_t::lost(int rc, int systemError)
{
    const QString why = lossText(rc, systemError);
    const auto giveUp = [](const letter_t& letter) {
        FLOTROFOBUL_LOG_AT(error,
                           "Message dropped, the broker closes the connection at it: "_l1 +
                               QString::fromUtf8(letter.topic).left(120),
                           "lost", logSource, __LINE__);
    };
    if (std::chrono::milliseconds(session.elapsed()) >= stableTime) {
        backoff.reset();
    }
    int cuts = 0;
    if (rc != MOSQ_ERR_KEEPALIVE) {
        cuts = outbox.suspect(moment_t::clock::now(), giveUp);
    }
    // A handle resends all its messages at once. To find the one that makes the broker close the connection, they have
    // to go one by one, over a new handle.
    if (cuts > 1) {
        resumable = false;
    }
    if (cuts == 0) {
        noteSessionLength();
    }
    abandon();
    outbox.linkLost(resumable);
    delivery.push(event_t(event_t::disconnected, rc));
    retryOrRest("Connection to "_l1 + target() + " lost: "_l1 + why);
}

void link_t::noteSessionLength()
{
    shortSessions = std::chrono::milliseconds(session.elapsed()) < shortTime ? shortSessions + 1 : 0;
    if (shortSessions == manyShortSessions) {
        FLOTROFOBUL_LOG(warning, "Connections end within seconds: another node probably uses the client id "_l1 +
                                     identity.clientId);
    }
}

void link_t::beginAnew()
{
    startAnew = false;
    resumable = false;
    dropNotifiers();
    addresses.prepend(address);
    FLOTROFOBUL_LOG(warning, "The broker has forgotten the session, a new one is begun"_l1);
    dialNext();
}

void link_t::retryOrRest(const QString& why)
{
    noteProblem(why);
    if (!autoconnect) {
        state = state_t::idle;
        FLOTROFOBUL_LOG(warning, why);
        return;
    }
    state = state_t::waiting;
    const milliseconds_t delay = backoff.next();
    timer.start(delay.count(), this);
    FLOTROFOBUL_LOG(warning, why + "; next attempt in "_l1 + QString::number(delay.count() / 1000.0, 'f', 1) + " s"_l1);
}

void link_t::noteProblem(const QString& why)
{
    if (problem != why) {
        problem = why;
        event_t event(event_t::problem);
        event.text = why;
        delivery.push(std::move(event));
    }
}

// Lets go of everything that belongs to an attempt or a connection, except a session that may be resumed.
void link_t::abandon()
{
    timer.stop();
    dropNotifiers();
    addresses.clear();
    congested = false;
    answerSeen = false;
    startAnew = false;
    if (lookup != -1) {
        QHostInfo::abortHostLookup(lookup);
        lookup = -1;
    }
    if (!resumable) {
        handle.reset();
    } else if (handle && handle->socket() >= 0) {
        ::shutdown(handle->socket(), SHUT_RDWR);
    }
    state = state_t::idle;
}

int link_t::disconnect()
{
    noteProblem(QString());
    if (state == state_t::idle) {
        delivery.deliverLater();
        return MOSQ_ERR_NO_CONN;
    }
    backoff.reset();
    shortSessions = 0;
    if (isConnected()) {
        state = state_t::closing;
        timer.start(closingTime.count(), this);
        errno = 0;
        const int rc = mosquitto_disconnect(handle->get());
        settle(rc, errno);
    } else if (state != state_t::closing) {
        abandon();
    }
    delivery.deliverLater();
    return MOSQ_ERR_SUCCESS;
}

void link_t::closed()
{
    abandon();
    outbox.linkLost(resumable);
    delivery.push(event_t(event_t::disconnected, 0));
}

} // namespace mosquittopp
} // namespace comunication
