// SPDX-License-Identifier: MIT
#include <flotrofobul/platform/mosquittopp/dialler.h>

#include <flotrofobul/platform/mosquittopp/tcp.h>
#include <flotrofobul/platform/text.h>

#include <QtCore/QTimerEvent>
#include <QtNetwork/QHostAddress>

#include <mosquitto.h>
#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <chrono>

namespace comunication {
namespace mosquittopp {

namespace {

// How long an address may be silent before another one is dialled beside it.
constexpr std::chrono::milliseconds stagger{250};

} // namespace

QString target_t::name() const
{
    return host + ":"_l1 + QString::number(port);
}

void dialler_t::start(const target_t& newTarget, const identity_t& newIdentity)
{
    waits = false;
    begin(newTarget, newIdentity);
}

void dialler_t::startAndWait(const target_t& newTarget, const identity_t& newIdentity)
{
    waits = true;
    begin(newTarget, newIdentity);
    while (!result) {
        pollOnce();
    }
}

void dialler_t::begin(const target_t& newTarget, const identity_t& newIdentity)
{
    stop();
    target = newTarget;
    identity = newIdentity;
    deadline.setRemainingTime(target.timeout);
    furthest.reset();
    if (!QHostAddress(target.host).isNull()) {
        addresses = QStringList(target.host);
        dialNext();
        return;
    }
    lookup = std::make_unique<lookup_t>(target.host);
    if (lookup->isDone()) {
        lookedUp();
    } else if (!waits) {
        lookupNotifier = std::make_unique<QSocketNotifier>(lookup->descriptor(), QSocketNotifier::Read, this);
        QObject::connect(lookupNotifier.get(), &QSocketNotifier::activated, this, [this] {
            lookedUp();
            tell();
        });
        armTimer();
    }
}

// A broker that has read CONNECT would publish the last will of a client that leaves without a word.
void dialler_t::stop()
{
    if (chosen != nullptr && chosen->stage == stage_t::greeting) {
        chosen->handle->disconnect();
    }
    release();
    result.reset();
}

std::optional<dialler_t::result_t> dialler_t::takeResult()
{
    return std::exchange(result, std::nullopt);
}

void dialler_t::lookedUp()
{
    addresses = lookup->addresses();
    lookupNotifier.reset();
    lookup.reset();
    if (addresses.isEmpty()) {
        finish({MOSQ_ERR_EAI, false, lookupText(true), nullptr, {}});
        return;
    }
    // An address that accepts TCP and then says nothing would have all the time of every attempt.
    if (addresses.removeOne(lastStalled)) {
        addresses += lastStalled;
    }
    lastStalled.clear();
    dialNext();
}

// Goes on until an address is being dialled or none is left.
void dialler_t::dialNext()
{
    bool dialling = false;
    while (!dialling && !addresses.isEmpty() && !deadline.hasExpired()) {
        dialling = dial(addresses.takeFirst());
    }
    if (dials.empty()) {
        fail();
    } else {
        armTimer();
    }
}

bool dialler_t::dial(const QString& address)
{
    dials.push_back(std::make_unique<dial_t>());
    dial_t& one = *dials.back();
    one.address = address;
    one.handle = handles.take();
    outcome_t outcome{MOSQ_ERR_INVAL, 0};
    if (one.handle) {
        one.handle->listenToLog(true);
        outcome.code = one.handle->prepare(identity, target.host);
    }
    if (outcome.code == MOSQ_ERR_SUCCESS) {
        outcome = one.handle->dial(address, target.port, target.keepalive);
    }
    if (outcome.code == MOSQ_ERR_SUCCESS && one.handle->socket() < 0) {
        outcome.code = MOSQ_ERR_ERRNO;
    }
    if (outcome.code != MOSQ_ERR_SUCCESS) {
        noteFailure(one, outcome);
        drop(one);
        return false;
    }
    // Where only one can be dialled at a time, each has its share of the time to accept TCP.
    const auto share = std::chrono::milliseconds(deadline.remainingTime() / (addresses.size() + 1));
    patience.setRemainingTime(handles.hasSeveral() ? stagger : share);
    if (!waits) {
        listener_t* const listener = this;
        one.watcher = std::make_unique<watcher_t>(*one.handle, listener, this);
    }
    watch(one);
    return true;
}

void dialler_t::readable(watcher_t& watcher)
{
    proceed(*find([&](const dial_t& one) { return one.watcher.get() == &watcher; }), true);
    tell();
}

void dialler_t::writable(watcher_t& watcher)
{
    proceed(*find([&](const dial_t& one) { return one.watcher.get() == &watcher; }), false);
    tell();
}

void dialler_t::proceed(dial_t& dial, bool readable)
{
    if (dial.stage == stage_t::connecting && !connected(dial)) {
        return;
    }
    int systemError = 0;
    // When the other side closes the connection during the handshake, libmosquitto would retry for ever.
    if (dial.stage == stage_t::securing && readable && !tcp::stands(dial.handle->socket(), &systemError)) {
        settle(dial, {MOSQ_ERR_TLS, systemError});
        return;
    }
    // libmosquitto drives a TLS handshake from its reading side only.
    const bool reads = readable || dial.stage == stage_t::securing;
    const outcome_t outcome = reads ? dial.handle->read() : dial.handle->write();
    // The broker's half of a TLS handshake comes in several pieces, each of which may wait for an acknowledgement.
    if (!dial.handle->hasEnded()) {
        tcp::acknowledge(dial.handle->socket(), tcp::quickly_t::always);
    }
    settle(dial, outcome);
}

// The socket has become writable for the first time: TCP is connected, or has failed.
bool dialler_t::connected(dial_t& dial)
{
    const int error = tcp::connectError(dial.handle->socket());
    // A reset before we looked still means that somebody answered.
    if (error == 0 || error == ECONNRESET || error == EPIPE) {
        choose(dial);
        dial.stage = dial.handle->isSecure() ? stage_t::securing : stage_t::greeting;
    }
    if (error != 0) {
        settle(dial, {MOSQ_ERR_ERRNO, error});
    }
    return error == 0;
}

void dialler_t::choose(dial_t& dial)
{
    chosen = &dial;
    while (dial_t* const other = find([this](const dial_t& one) { return &one != chosen; })) {
        addresses += other->address;
        drop(*other);
    }
    armTimer();
}

// Looks at what a library call did to an attempt.
void dialler_t::settle(dial_t& dial, outcome_t outcome)
{
    if (answer == MOSQ_ERR_SUCCESS) {
        accept(dial, outcome);
    } else if (answer > MOSQ_ERR_SUCCESS) {
        finish({answer, true, refusalText(answer), nullptr, {}});
    } else if (outcome.code != MOSQ_ERR_SUCCESS || dial.handle->hasEnded()) {
        if (startAnew) {
            addresses.prepend(dial.address);
        } else {
            noteFailure(dial, outcome);
        }
        startAnew = false;
        drop(dial);
        dialNext();
    } else {
        if (dial.stage == stage_t::securing && dial.handle->handshakeDone()) {
            dial.stage = stage_t::greeting;
        }
        watch(dial);
    }
}

void dialler_t::timerEvent(QTimerEvent* /*event*/)
{
    outOfTime();
    tell();
}

void dialler_t::outOfTime()
{
    // The answer may have come while the host was busy.
    if (chosen != nullptr && tcp::hasInput(chosen->handle->socket())) {
        proceed(*chosen, true);
        if (result) {
            return;
        }
    }
    // Asked before the deadline, which may pass between the two and leaves no patience either.
    const bool isNextDue = patienceLeft() == 0;
    if (deadline.hasExpired()) {
        if (lookup) {
            finish({MOSQ_ERR_EAI, false, lookupText(false), nullptr, {}});
            return;
        }
        lastStalled = chosen != nullptr ? chosen->address : QString();
        for (const auto& one : dials) {
            noteFailure(*one, {MOSQ_ERR_ERRNO, ETIMEDOUT});
        }
        fail();
        return;
    }
    if (isNextDue) {
        if (!handles.hasSeveral()) {
            noteFailure(*dials.front(), {MOSQ_ERR_ERRNO, ETIMEDOUT});
            drop(*dials.front());
        }
        dialNext();
        return;
    }
    armTimer();
}

void dialler_t::noteFailure(const dial_t& dial, outcome_t outcome)
{
    if (!furthest || dial.stage >= furthest->stage) {
        furthest = failure_t{dial.stage, outcome, dial.handle ? dial.handle->tlsReason() : QString(), dial.libraryLine,
                             identity.tls.wanted};
    }
}

void dialler_t::drop(dial_t& dial)
{
    if (chosen == &dial) {
        chosen = nullptr;
    }
    const auto one = std::find_if(dials.begin(), dials.end(), [&](const auto& each) { return each.get() == &dial; });
    const std::unique_ptr<dial_t> dropped = std::move(*one);
    dials.erase(one);
    dropped->watcher.reset();
    if (dropped->handle) {
        handles.giveBack(std::move(dropped->handle));
    }
}

void dialler_t::accept(dial_t& dial, outcome_t outcome)
{
    dial.watcher.reset();
    finish({0, false, QString(), std::move(dial.handle), outcome});
}

void dialler_t::finish(result_t newResult)
{
    release();
    result = std::move(newResult);
}

void dialler_t::fail()
{
    const failure_t failure =
        furthest.value_or(failure_t{stage_t::connecting, {MOSQ_ERR_ERRNO, ETIMEDOUT}, {}, {}, {}});
    finish({codeOf(failure), false, textOf(failure), nullptr, {}});
}

void dialler_t::release()
{
    timer.stop();
    lookupNotifier.reset();
    lookup.reset();
    addresses.clear();
    while (!dials.empty()) {
        drop(*dials.back());
    }
    answer = -1;
    startAnew = false;
}

template <typename condition_t>
dialler_t::dial_t* dialler_t::find(condition_t&& condition) const
{
    const auto dial = std::find_if(dials.begin(), dials.end(), [&](const auto& one) { return condition(*one); });
    return dial == dials.end() ? nullptr : dial->get();
}

bool dialler_t::mayAnswer() const
{
    return chosen != nullptr && answer < 0 && !startAnew;
}

void dialler_t::noteAnswer(int rc, bool anew)
{
    startAnew = anew;
    if (anew) {
        chosen->handle->disconnect();
    } else {
        answer = rc;
    }
}

void dialler_t::noteLine(const handle_t& handle, const char* text)
{
    if (dial_t* const dial = find([&](const dial_t& one) { return one.handle.get() == &handle; })) {
        dial->libraryLine = text;
    }
}

bool dialler_t::wantsWrite(const dial_t& dial) const
{
    switch (dial.stage) {
    case stage_t::connecting: return true;
    case stage_t::securing: return dial.handle->handshakeWantsWrite();
    default: return dial.handle->wantsWrite();
    }
}

void dialler_t::watch(dial_t& dial)
{
    if (dial.watcher) {
        dial.watcher->update(wantsRead(dial), wantsWrite(dial));
    }
}

// Milliseconds until another address is dialled; more than there are if that is not to be.
int dialler_t::patienceLeft() const
{
    const bool mayGoOn = chosen == nullptr && !dials.empty() && !addresses.isEmpty();
    const qint64 left = deadline.remainingTime();
    return static_cast<int>(mayGoOn ? std::min(patience.remainingTime(), left) : left);
}

void dialler_t::armTimer()
{
    if (!waits) {
        timer.start(std::max(patienceLeft(), 1), this);
    }
}

void dialler_t::tell()
{
    if (result) {
        finished();
    }
}

void dialler_t::pollOnce()
{
    if (deadline.hasExpired()) {
        outOfTime();
        return;
    }
    std::vector<pollfd> watched;
    bool buffered = false;
    if (lookup) {
        watched.push_back({lookup->descriptor(), POLLIN, 0});
    }
    for (const auto& one : dials) {
        const int events = (wantsRead(*one) ? POLLIN : 0) | (wantsWrite(*one) ? POLLOUT : 0);
        watched.push_back({one->handle->socket(), static_cast<short>(events), 0});
        buffered = buffered || one->handle->hasBufferedInput();
    }
    ::poll(watched.data(), watched.size(), buffered ? 0 : patienceLeft());
    const auto isReady = [](const pollfd& one) { return one.revents != 0; };
    const auto ready = std::find_if(watched.begin(), watched.end(), isReady);
    if (ready != watched.end() && lookup) {
        lookedUp();
    } else if (ready != watched.end()) {
        dial_t& dial = *dials[static_cast<std::size_t>(ready - watched.begin())];
        proceed(dial, wantsRead(dial) && (ready->revents & (POLLIN | POLLERR | POLLHUP)) != 0);
    } else if (buffered) {
        proceed(*find([](const dial_t& one) { return one.handle->hasBufferedInput(); }), true);
    } else if (patienceLeft() == 0) {
        outOfTime();
    }
}

} // namespace mosquittopp
} // namespace comunication
