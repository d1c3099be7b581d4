// SPDX-License-Identifier: MIT
// An established link: reading, writing, what is published and what arrives.
#include <flotrofobul/platform/mosquittopp/link.h>

#include <flotrofobul/platform/logs/log_line.h>

#include <QtCore/QPointer>
#include <QtCore/QTimerEvent>

#include <mosquitto.h>

#include <cerrno>
#include <chrono>
#include <cstring>

namespace comunication {
namespace mosquittopp {

namespace {

using namespace ::utility::logs;

// Many packets per wake-up, but never so many that the rest of the event loop has to wait.
constexpr milliseconds_t longestTurn{5};
constexpr milliseconds_t shortestHousekeeping{500};
// More bytes than any packet has that is not reported: the rest of a long one is under way.
constexpr std::uint64_t longPacket = 1000;

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

link_t::link_t(delivery_t::receiver_t receiver, const QString& clientId, bool cleanSession, bool autoconnect,
               QObject* parent)
    : QObject(parent), autoconnect(autoconnect), session(cleanSession),
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
    noteDropped(0);
    flush();
}

int link_t::publish(int* mid, const QString& topic, const QString& payload, int qos, bool retain)
{
    if (mid != nullptr) {
        *mid = 0;
    }
    letter_t letter;
    letter.topic = topic.toUtf8();
    letter.payload = payload.toUtf8();
    letter.qos = qos;
    letter.retain = retain;
    const verdict_t verdict = check(letter);
    if (verdict.code != MOSQ_ERR_SUCCESS) {
        return refuse(verdict, "message to", topic);
    }
    letter.mid = outbox.nextMid();
    if (mid != nullptr) {
        *mid = letter.mid;
    }
    noteDropped(outbox.add(std::move(letter), isConnected()));
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
    if (!isConnected() && letter.bytes() > outbox.bytesLimit()) {
        return {MOSQ_ERR_PAYLOAD_SIZE, "without a connection it does not fit into the outbox"};
    }
    if (isConnected() && !outbox.hasRoom(letter.bytes())) {
        return {MOSQ_ERR_NOMEM, "too many others wait for the broker"};
    }
    return verdict;
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
        return refuse(verdict, "subscription of", filter);
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
        return refuse(verdict, "subscription of", filter);
    }
    if (!isConnected()) {
        return MOSQ_ERR_NO_CONN;
    }
    if (outbox.hasTooManyRequests()) {
        return refuse({MOSQ_ERR_NOMEM, "too many others wait for the broker"}, "subscription of", filter);
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

// A session that is kept needs the lines for its book of what is being received.
void link_t::listenToLog()
{
    if (handle) {
        handle->listenToLog(logging || !session.isClean());
    }
}

void link_t::pump()
{
    const turn_t turn(longestTurn);
    while (isConnected() && !session.inbound.hasLeftovers()) {
        letter_t* const letter = outbox.takeNext(lastTick());
        if (letter == nullptr) {
            break;
        }
        // A QoS 0 message is acknowledged inside the call, and its letter is gone afterwards.
        const outcome_t outcome = handle->publish(*letter);
        if (endsConnection(outcome.code)) {
            settle(outcome);
            return;
        }
        if (outcome.code != MOSQ_ERR_SUCCESS) {
            const verdict_t verdict{outcome.code, mosquitto_strerror(outcome.code)};
            say(error, refusalText(verdict, "message to", QString::fromUtf8(letter->topic)), "refuse", __LINE__);
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
    } while (outcome.systemError != EAGAIN && !readTurn.isOver());
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
    watch();
    return true;
}

void link_t::watch()
{
    if (watcher) {
        watcher->update(!congested, handle->wantsWrite());
    }
}

milliseconds_t link_t::housekeepingInterval() const
{
    const milliseconds_t longest =
        target.keepalive == seconds_t::zero() ? limits::interval.highest : milliseconds_t(target.keepalive) / 4;
    return std::clamp(interval, shortestHousekeeping, longest);
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

// Judges the link by the keep-alive, but first reads what came while the host was busy. While a long packet moves the
// link is alive, although the library sees no whole one.
void link_t::keepHouse()
{
    const bool mayRead = delivery.pendingBytes() <= maxPacketBytes;
    if (mayRead && !read()) {
        return;
    }
    pump();
    if (!isConnected()) {
        return;
    }
    const tcp::traffic_t traffic = tcp::traffic(handle->socket());
    const bool sends = isSending(traffic);
    const bool receives = mayRead ? isReceiving(traffic) : tcp::hasInput(handle->socket());
    lastTraffic = traffic;
    if (receives) {
        giveSignOfLife();
    } else if (!sends) {
        settle(handle->checkKeepalive());
    }
}

bool link_t::isSending(const tcp::traffic_t& traffic) const
{
    const bool hasLongPacket = handle->wantsWrite() || traffic.queued > static_cast<int>(longPacket);
    return hasLongPacket && traffic.acknowledged != lastTraffic.acknowledged;
}

bool link_t::isReceiving(const tcp::traffic_t& traffic)
{
    if (packetSeen) {
        packetSeen = false;
        receivedAtPacket = traffic.received;
    }
    return traffic.received != lastTraffic.received && traffic.received - receivedAtPacket > longPacket;
}

// The answer to a PINGREQ would come behind the packet that is under way, too late for the library, and the broker
// wants to hear something, too. It answers that nobody is subscribed to this, and that is all.
void link_t::giveSignOfLife()
{
    if (target.keepalive != seconds_t::zero() &&
        (!signOfLife.isValid() || signOfLife.hasExpired(milliseconds_t(target.keepalive).count() / 2))) {
        signOfLife.start();
        int wireMid = 0;
        settle(handle->unsubscribe(&wireMid, QByteArrayLiteral("still/receiving")));
    }
}

void link_t::noteDropped(int count)
{
    if (count > 0 && droppedCount == 0) {
        say(warning, "Outbox is full, the oldest messages go until the broker takes them"_l1, __func__, __LINE__);
    }
    droppedCount += count;
    if (count == 0 && isConnected() && droppedCount > 0) {
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

void link_t::brokerAnswered(int rc, int flags)
{
    // On a fast network a single call may end the handshake, send CONNECT and read the answer.
    if (!dialler.mayAnswer()) {
        return; // a second answer that nobody asked for
    }
    const bool sessionPresent = flags & 1;
    const bool resuming = session.isResuming();
    const bool anew = rc == 0 && !session.begins(sessionPresent);
    dialler.noteAnswer(rc, anew);
    if (!anew) {
        delivery.push(event_t(event_t::connected, rc, flags));
    } else if (resuming) {
        say(warning, "The broker has forgotten the session, a new one is begun"_l1, __func__, __LINE__);
    } else if (sessionPresent) {
        say(warning, "The broker holds an old session of this client, which is ended"_l1, __func__, __LINE__);
    }
}

void link_t::acknowledged(int wireMid)
{
    packetSeen = true;
    const int mid = outbox.acknowledge(wireMid);
    if (mid > 0) {
        delivery.push(event_t(event_t::published, mid));
    }
}

bool link_t::isNew(const mosquitto_message& message)
{
    const uint topic = qHashBits(message.topic, std::strlen(message.topic));
    const uint content = qHashBits(message.payload, static_cast<std::size_t>(message.payloadlen), topic);
    return session.inbound.isNew(message.mid, content);
}

void link_t::messageArrived(const mosquitto_message& message)
{
    packetSeen = true;
    // The library reads on until nothing is left, which may be long. This ends its loop after this packet.
    if (readTurn.isOver()) {
        errno = EAGAIN;
    }
    if (message.qos == 2 && !session.isClean() && !isNew(message)) {
        return;
    }
    if (message.payloadlen > maxPacketBytes) {
        say(warning,
            "Message dropped, it is longer than "_l1 + QString::number(maxPacketBytes) + " bytes: "_l1 +
                QString::fromUtf8(message.topic).left(120),
            __func__, __LINE__);
        return;
    }
    event_t event(event_t::message, message.mid, message.qos, message.retain, message.payloadlen);
    event.topic = QString::fromUtf8(message.topic);
    event.text = QString::fromUtf8(static_cast<const char*>(message.payload), message.payloadlen);
    delivery.push(std::move(event));
}

void link_t::subscribed(int wireMid, int count, const int* granted)
{
    packetSeen = true;
    const int mid = outbox.acknowledgeRequest(wireMid);
    if (mid == 0) {
        say(warning, "The broker acknowledges a subscription that nobody made: "_l1 + QString::number(wireMid),
            __func__, __LINE__);
        return;
    }
    event_t event(event_t::subscribed, mid);
    event.granted.assign(granted, granted + count);
    delivery.push(std::move(event));
}

void link_t::unsubscribed(int wireMid)
{
    const int mid = outbox.acknowledgeRequest(wireMid);
    if (mid > 0) {
        delivery.push(event_t(event_t::unsubscribed, mid));
    }
}

// A repeat comes when all that was half received before is released. So where nothing of ours is on its way either, the
// handle is not needed any more; without it the broker repeats the message to a new one.
void link_t::noteInbound(handle_t& from, inbound_t::finding_t finding)
{
    const bool canRenew = finding == inbound_t::finding_t::repeat && !outbox.awaitsAnswers();
    renews = renews || canRenew;
    if (canRenew || finding == inbound_t::finding_t::stale) {
        from.cut();
    } else if (finding == inbound_t::finding_t::release && tcp::isDead(from.socket())) {
        from.cutSilently();
    }
}

void link_t::lineWritten(handle_t& from, int level, const char* text)
{
    if (level == MOSQ_LOG_ERR || level == MOSQ_LOG_WARNING) {
        dialler.noteLine(from, text);
    }
    if (!session.isClean() && level == MOSQ_LOG_DEBUG) {
        noteInbound(from, session.inbound.note(text));
    }
    if (logging) {
        event_t event(event_t::log, level);
        event.text = QString::fromUtf8(text);
        delivery.push(std::move(event));
    }
}

} // namespace mosquittopp
} // namespace comunication
