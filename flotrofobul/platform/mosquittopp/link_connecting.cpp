// SPDX-License-Identifier: MIT
// How a link comes and goes: what is asked for, what the dialler brings, and what follows when it ends.
#include <flotrofobul/platform/mosquittopp/link.h>

#include <flotrofobul/platform/logs/log_line.h>

#include <mosquitto.h>

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

} // namespace

int link_t::checkTarget(const target_t& newTarget)
{
    if (newTarget.host.isEmpty()) {
        return refuseTarget({MOSQ_ERR_INVAL, "it is empty"}, "host of the broker", QString());
    }
    if (newTarget.port < limits::port.lowest || newTarget.port > limits::port.highest) {
        return refuseTarget({MOSQ_ERR_INVAL, "it is not 1 to 65535"}, "port of the broker",
                            QString::number(newTarget.port));
    }
    if (!isKeepalive(newTarget.keepalive)) {
        return refuseTarget({MOSQ_ERR_INVAL, "it is not 0 or 5 to 65535 seconds"}, "keep-alive",
                            QString::number(newTarget.keepalive.count()));
    }
    const QByteArray id = identity.clientId.toUtf8();
    const verdict_t verdict = id.isEmpty() ? verdict_t{MOSQ_ERR_INVAL, "it is empty"} : checkText(id);
    if (verdict.code != MOSQ_ERR_SUCCESS) {
        return refuseTarget(verdict, "client id", identity.clientId);
    }
    if (!session.isClean() && id.size() > inbound_t::longestId) {
        say(warning,
            "The client id is longer than "_l1 + QString::number(inbound_t::longestId) +
                " bytes: when the link of a kept session is cut, messages may be lost or come in place of others"_l1,
            __func__, __LINE__);
    }
    return MOSQ_ERR_SUCCESS;
}

int link_t::refuseTarget(const verdict_t& verdict, const char* what, const QString& value)
{
    if (!isConnected()) {
        noteProblem(refusalText(verdict, what, value));
    }
    sayRefused(verdict, what, value);
    return verdict.code;
}

int link_t::connectAsync(const QString& host, int port, seconds_t keepalive)
{
    return finish(start({host.trimmed(), port, keepalive, connectTimeout}, wait_t::no));
}

int link_t::connectSync(const QString& host, int port, seconds_t keepalive)
{
    return finish(start({host.trimmed(), port, keepalive, connectTimeout}, wait_t::yes));
}

int link_t::start(const target_t& newTarget, wait_t wait)
{
    const int rc = checkTarget(newTarget);
    if (rc != MOSQ_ERR_SUCCESS || isConnected() || (wait == wait_t::no && isDialling(newTarget))) {
        return rc;
    }
    if (state == state_t::closing) {
        closed();
    }
    letGo();
    // What was half done with one broker means nothing to another.
    if (newTarget.host != target.host || newTarget.port != target.port) {
        session.forget();
    }
    target = newTarget;
    return dial(wait, true);
}

// Whether an attempt is under way that would not be made otherwise now.
bool link_t::isDialling(const target_t& newTarget) const
{
    return state == state_t::dialling && newTarget.host == target.host && newTarget.port == target.port &&
           newTarget.keepalive == target.keepalive && identity == dialledAs;
}

int link_t::dial(wait_t wait, bool callerIsTold)
{
    state = state_t::dialling;
    dialledAs = identity;
    if (wait == wait_t::yes) {
        dialler.startAndWait(target, identity);
    } else {
        dialler.start(target, identity);
    }
    return conclude(callerIsTold);
}

std::unique_ptr<handle_t> link_t::takeHandle()
{
    renews = false; // that was about the handle before this one
    std::unique_ptr<handle_t> next = session.takeHandle(dialledAs, this);
    if (!session.isResuming()) {
        outbox.restart();
    }
    return next;
}

// Takes the result of an attempt, if there is one. callerIsTold: the code goes to the caller, and no signal says it
// once more.
int link_t::conclude(bool callerIsTold)
{
    std::optional<dialler_t::result_t> result = dialler.takeResult();
    if (!result) {
        return MOSQ_ERR_SUCCESS;
    }
    if (result->handle) {
        established(std::move(*result));
        return MOSQ_ERR_SUCCESS;
    }
    failed(*result, callerIsTold);
    return result->code;
}

void link_t::established(dialler_t::result_t result)
{
    state = state_t::connected;
    handle = std::move(result.handle);
    watcher_t::listener_t* const listener = this;
    watcher = std::make_unique<watcher_t>(*handle, listener, this);
    connectedFor.start();
    signOfLife.invalidate();
    lastTraffic = tcp::traffic(handle->socket());
    receivedAtPacket = lastTraffic.received;
    packetSeen = false;
    lastMove.invalidate();
    timer.start(housekeepingInterval().count(), this);
    exactness = exactness_t::untried;
    listenToLog();
    outbox.sentAgain(lastTick()); // by the library, if a session goes on
    reportDropped();
    noteProblem(QString());
    if (settle(result.outcome)) {
        pump();
    }
}

void link_t::failed(const dialler_t::result_t& result, bool callerIsTold)
{
    outbox.acquit();
    if (!result.refused && !callerIsTold) {
        delivery.push(event_t(event_t::disconnected, result.code));
    }
    // A broker that refuses will not change its mind in a second, unless the host has.
    if (result.refused && identity == dialledAs) {
        backoff.useLongest();
    }
    letGo();
    rest("Connection to "_l1 + target.name() + " failed: "_l1 + result.why);
}

void link_t::lost(outcome_t outcome)
{
    if (std::chrono::milliseconds(connectedFor.elapsed()) >= stableTime) {
        backoff.reset();
    }
    outbox_t::suspicion_t suspicion;
    if (outcome.code != MOSQ_ERR_KEEPALIVE) {
        suspicion = outbox.suspect(lastTick());
    }
    if (!suspicion.any) {
        outbox.acquit();
        noteSessionLength();
    }
    // A handle sends all its messages again at once. To find the one that makes the broker close the connection, they
    // have to go one by one, over a new handle.
    if (suspicion.isStuck || suspicion.forsaken) {
        session.forget();
    }
    if (suspicion.forsaken) {
        say(error,
            "Message dropped, the broker closes the connection at it: "_l1 +
                QString::fromUtf8(suspicion.forsaken->topic.constData()).left(120),
            __func__, __LINE__);
    }
    letGo();
    outbox.linkLost(session.isResumable());
    delivery.push(event_t(event_t::disconnected, outcome.code));
    rest("Connection to "_l1 + target.name() + " lost: "_l1 +
         (exactness == exactness_t::refused ? "the broker does not speak QoS 2"_l1 : lossText(outcome)));
}

// Goes on with the same session over a new handle.
void link_t::renew()
{
    renews = false;
    session.renewHandle();
    handle->disconnect(); // does nothing where the connection is cut already
    letGo();
    outbox.linkLost(false);
    delivery.push(event_t(event_t::disconnected, MOSQ_ERR_CONN_LOST));
    const QString why = "Connection to "_l1 + target.name() + " is made anew, to receive each message once"_l1;
    noteProblem(why);
    say(warning, why, __func__, __LINE__);
    state = state_t::waiting;
    timer.start(0, this);
}

void link_t::noteSessionLength()
{
    shortSessions = std::chrono::milliseconds(connectedFor.elapsed()) < shortTime ? shortSessions + 1 : 0;
    if (shortSessions == manyShortSessions) {
        say(warning, "Connections end within seconds: another node probably uses the client id "_l1 + identity.clientId,
            __func__, __LINE__);
    }
}

void link_t::rest(const QString& why)
{
    noteProblem(why);
    if (!autoconnect) {
        say(warning, why, __func__, __LINE__);
        return;
    }
    state = state_t::waiting;
    const milliseconds_t delay = backoff.next();
    timer.start(delay.count(), this);
    say(warning, why + "; next attempt in "_l1 + QString::number(delay.count() / 1000.0, 'f', 1) + " s"_l1, __func__,
        __LINE__);
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
void link_t::letGo()
{
    timer.stop();
    dialler.stop();
    watcher.reset();
    congested = false;
    if (handle) {
        session.giveBack(std::move(handle));
    }
    state = state_t::idle;
}

int link_t::disconnect()
{
    noteProblem(QString());
    if (state == state_t::idle) {
        return finish(MOSQ_ERR_NO_CONN);
    }
    backoff.reset();
    shortSessions = 0;
    if (isConnected()) {
        state = state_t::closing;
        timer.start(closingTime.count(), this);
        settle(handle->disconnect());
    } else if (state != state_t::closing) {
        letGo();
    }
    return finish(MOSQ_ERR_SUCCESS);
}

void link_t::closed()
{
    letGo();
    outbox.linkLost(session.isResumable());
    delivery.push(event_t(event_t::disconnected, MOSQ_ERR_SUCCESS));
}

} // namespace mosquittopp
} // namespace comunication
