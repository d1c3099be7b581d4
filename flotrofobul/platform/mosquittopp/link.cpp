// SPDX-License-Identifier: MIT
// What a host asks of a link, and how it reads and writes.
#include <flotrofobul/platform/mosquittopp/link.h>

#include <flotrofobul/platform/logs/log_line.h>

#include <QtCore/QPointer>
#include <QtCore/QTimerEvent>

#include <mosquitto.h>

#include <cerrno>
#include <chrono>

namespace comunication {
namespace mosquittopp {

namespace {

using namespace ::utility::logs;

constexpr const char logSource[] = "libscomunication/libmosquittoqt/mosquittoqt";

// Many packets per wake-up, but never so many that the rest of the event loop has to wait.
constexpr milliseconds_t longestTurn{5};

bool endsConnection(int rc)
{
    switch (rc) {
    case MOSQ_ERR_SUCCESS:
    case MOSQ_ERR_INVAL:
    case MOSQ_ERR_NOMEM:
    case MOSQ_ERR_PAYLOAD_SIZE:
    case MOSQ_ERR_MALFORMED_UTF8:
    case MOSQ_ERR_OVERSIZE_PACKET:
    case MOSQ_ERR_QOS_NOT_SUPPORTED: return false;
    default: return true;
    }
}

} // namespace

QString refusalText(const verdict_t& verdict, const char* what, const QString& value)
{
    return "Refused "_l1 + QLatin1String(what) + (value.isEmpty() ? QString() : " "_l1 + value.left(120)) + ": "_l1 +
           QLatin1String(verdict.why);
}

int refuse(const verdict_t& verdict, const char* what, const QString& value)
{
    FLOTROFOBUL_LOG(error, refusalText(verdict, what, value));
    return verdict.code;
}

link_t::link_t(delivery_t::receiver_t receiver, const QString& clientId, bool cleanSession, bool givenAutoconnect,
               QObject* parent)
    : QObject(parent), autoconnect(givenAutoconnect), session(cleanSession),
      dialler({[this] { return takeHandle(); }, [this] { return !session.isResuming(); },
               [this](std::unique_ptr<handle_t> used) { session.giveBack(std::move(used)); }},
              this),
      delivery(std::move(receiver), this)
{
    identity.clientId = clientId;
    dialler.finished = [this] {
        conclude(false);
        finish(MOSQ_ERR_SUCCESS);
    };
    delivery.drained = [this] {
        if (congested) {
            congested = false;
            watch();
        }
    };
}

link_t::~link_t()
{
    flush();
}

int link_t::publish(int* mid, const QString& topic, const QByteArray& payload, int qos, bool retain)
{
    if (mid != nullptr) {
        *mid = 0;
    }
    letter_t letter;
    letter.topic = topic.toUtf8();
    letter.payload = payload;
    letter.qos = qos;
    letter.retain = retain;
    const verdict_t verdict = check(letter);
    if (verdict.code != MOSQ_ERR_SUCCESS) {
        return refused(verdict, "message to", topic);
    }
    letter.mid = outbox.nextMid();
    if (mid != nullptr) {
        *mid = letter.mid;
    }
    noteDropped(outbox.add(std::move(letter), handle != nullptr));
    pump();
    return finish(MOSQ_ERR_SUCCESS);
}

verdict_t link_t::check(const letter_t& letter) const
{
    verdict_t verdict = checkQos(letter.qos);
    if (verdict.code == MOSQ_ERR_SUCCESS) {
        verdict = checkTopic(letter.topic);
    }
    if (verdict.code != MOSQ_ERR_SUCCESS) {
        return verdict;
    }
    if (letter.payload.size() > longestPayload) {
        return {MOSQ_ERR_PAYLOAD_SIZE, "it is longer than the protocol allows"};
    }
    if (!handle && letter.bytes() > outbox.bytesLimit()) {
        return {MOSQ_ERR_PAYLOAD_SIZE, "without a connection it does not fit into the outbox"};
    }
    if (handle && !outbox.hasRoom(letter.bytes())) {
        return {MOSQ_ERR_NOMEM, "too many others wait for the broker"};
    }
    return verdict;
}

int link_t::refused(const verdict_t& verdict, const char* what, const QString& value)
{
    sayRefused(verdict, what, value);
    return finish(verdict.code);
}

void link_t::sayRefused(const verdict_t& verdict, const char* what, const QString& value)
{
    say(error, refusalText(verdict, what, value), "refuse", __LINE__);
}

void link_t::withdraw(int mid)
{
    // A handle that has sent the message would send it again.
    if (outbox.withdraw(mid)) {
        session.forget();
    }
}

int link_t::subscribe(int* mid, const QString& filter, int qos)
{
    const verdict_t verdict = checkQos(qos);
    if (verdict.code != MOSQ_ERR_SUCCESS) {
        if (mid != nullptr) {
            *mid = 0;
        }
        return refused(verdict, "subscription of", filter);
    }
    return request(mid, filter,
                   [this, qos](int* wireMid, const QByteArray& text) { return handle->subscribe(wireMid, text, qos); });
}

int link_t::unsubscribe(int* mid, const QString& filter)
{
    return request(mid, filter,
                   [this](int* wireMid, const QByteArray& text) { return handle->unsubscribe(wireMid, text); });
}

int link_t::request(int* mid, const QString& filter, const std::function<outcome_t(int*, const QByteArray&)>& call)
{
    if (mid != nullptr) {
        *mid = 0;
    }
    const QByteArray text = filter.toUtf8();
    const verdict_t verdict = checkFilter(text);
    if (verdict.code != MOSQ_ERR_SUCCESS) {
        return refused(verdict, "subscription of", filter);
    }
    if (!isConnected()) {
        return MOSQ_ERR_NO_CONN;
    }
    if (outbox.hasTooManyRequests()) {
        return refused({MOSQ_ERR_NOMEM, "too many others wait for the broker"}, "subscription of", filter);
    }
    int wireMid = 0;
    const outcome_t outcome = call(&wireMid, text);
    if (outcome.code == MOSQ_ERR_SUCCESS) {
        const int number = outbox.nextMid();
        outbox.addRequest(number, wireMid);
        if (mid != nullptr) {
            *mid = number;
        }
    }
    if (endsConnection(outcome.code)) {
        settle(outcome);
    } else {
        watch();
    }
    return finish(outcome.code);
}

void link_t::setLogging(bool on)
{
    logging = on;
    listenToLog();
}

// A session that is kept needs the lines for its book of what is being received. Any other needs them until they have
// told whether the broker speaks QoS 2.
void link_t::listenToLog()
{
    if (handle) {
        handle->listenToLog(logging || !session.isClean() || exactness == exactness_t::tried);
    }
}

void link_t::pump()
{
    const turn_t turn(longestTurn);
    while (isConnected()) {
        letter_t* const letter = outbox.takeNext(lastTick());
        if (letter == nullptr) {
            break;
        }
        if (letter->qos == 2 && exactness == exactness_t::untried) {
            exactness = exactness_t::tried;
            listenToLog();
        }
        // A QoS 0 message is acknowledged inside the call, and its letter is gone afterwards.
        const outcome_t outcome = handle->publish(*letter);
        if (endsConnection(outcome.code)) {
            settle(outcome);
            return;
        }
        if (outcome.code != MOSQ_ERR_SUCCESS) {
            sayRefused({outcome.code, mosquitto_strerror(outcome.code)}, "message to",
                       QString::fromUtf8(letter->topic.constData()));
            outbox.discardNewest();
        }
        if (turn.isOver()) {
            nextTurn.start(0, this);
            break;
        }
    }
    watch();
}

void link_t::readable(watcher_t& /*watcher*/)
{
    if (state == state_t::closing) {
        bin();
        return;
    }
    read();
    pump();
    congested = false;
    if (!flush() || !delivery.deliver()) {
        return;
    }
    // The kernel holds an acknowledgement back for 40 ms, hoping to send it along with data, and a broker with Nagle's
    // algorithm waits for exactly that before it sends the rest of a burst. So whatever is still owed after our own
    // answers goes out at once.
    if (isConnected() && outbox.awaitsAnswers()) {
        tcp::acknowledge(handle->socket(), tcp::quickly_t::once);
    }
    if (!delivery.isEmpty()) {
        congested = true;
        watch();
    }
}

// What comes while the last packets leave: libmosquitto would take it for a fault and end the connection at once, but
// left unread it would make the kernel do the same.
void link_t::bin()
{
    if (!tcp::discardInput(handle->socket())) {
        closed();
    }
    finish(MOSQ_ERR_SUCCESS);
}

void link_t::writable(watcher_t& /*watcher*/)
{
    settle(handle->write());
    pump();
    if (flush()) {
        delivery.deliver();
    }
}

bool link_t::read()
{
    readTurn.start(longestTurn);
    outcome_t outcome;
    do {
        outcome = handle->read();
        if (!settle(outcome)) {
            return false;
        }
    } while (outcome.systemError != EAGAIN && !hasReadEnough());
    return true;
}

// Looks at what a library call did to the connection; false if it has ended.
bool link_t::settle(outcome_t outcome)
{
    const bool gone = outcome.code != MOSQ_ERR_SUCCESS || handle->hasEnded();
    if (state == state_t::closing) {
        gone ? closed() : watch();
        return false;
    }
    if (gone) {
        renews ? renew() : lost(outcome);
        return false;
    }
    // Another moment to replace a handle that holds stale messages: nothing is half done, in either direction.
    if (session.inbound.hasLeftovers() && !session.inbound.isReceiving() && !outbox.awaitsAnswers() &&
        !handle->wantsWrite()) {
        renew();
        return false;
    }
    listenToLog();
    watch();
    return true;
}

void link_t::watch()
{
    if (watcher) {
        watcher->update(!congested, handle->wantsWrite());
    }
}

void link_t::timerEvent(QTimerEvent* event)
{
    if (event->timerId() == nextTurn.timerId()) {
        nextTurn.stop();
        pump();
    } else {
        switch (state) {
        case state_t::connected: keepHouse(); break;
        case state_t::closing: closed(); break;
        case state_t::waiting: dial(wait_t::no, false); break;
        default: timer.stop();
        }
    }
    finish(MOSQ_ERR_SUCCESS);
}

void link_t::noteDropped(int count)
{
    if (count > 0 && droppedCount == 0) {
        say(warning, "Outbox is full, the oldest messages go until the broker takes them"_l1, __func__, __LINE__);
    }
    droppedCount += count;
}

void link_t::reportDropped()
{
    if (droppedCount > 0) {
        say(warning, "Messages dropped from the full outbox: "_l1 + QString::number(droppedCount), __func__, __LINE__);
        droppedCount = 0;
    }
}

void link_t::say(int level, const QString& text, const char* function, int number)
{
    lines.push_back({level, text, function, number});
}

// False if this object was deleted meanwhile. What a sink makes this object say is for the next turn, or it would never
// end where the sink dials at every line.
bool link_t::flush()
{
    if (lines.empty() || flushing) {
        return true;
    }
    const QPointer<link_t> alive(this);
    flushing = true;
    for (const line_t& line : std::exchange(lines, {})) {
        FLOTROFOBUL_LOG_AT(line.level, line.text, line.function, logSource, line.number);
    }
    if (alive.isNull()) {
        return false;
    }
    flushing = false;
    if (!lines.empty()) {
        nextTurn.start(0, this);
    }
    return true;
}

// Ends an operation or an event: no signal comes from inside.
int link_t::finish(int rc)
{
    if (flush()) {
        delivery.deliverLater();
    }
    return rc;
}

} // namespace mosquittopp
} // namespace comunication
