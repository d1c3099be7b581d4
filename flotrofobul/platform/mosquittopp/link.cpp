// SPDX-License-Identifier: MIT
// An established connection: reading, writing, what is published and what arrives.
#include <flotrofobul/platform/mosquittopp/link.h>

#include <flotrofobul/platform/logs/log_line.h>

#include <QtCore/QTimerEvent>

#include <mosquitto.h>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cerrno>
#include <chrono>

namespace comunication {
namespace mosquittopp {

namespace {

using namespace ::utility::logs;

// Several packets per wake-up, but never so many that the rest of the event loop has to wait.
constexpr int mostReads = 64;
constexpr std::chrono::milliseconds longestRead{5};
constexpr milliseconds_t shortestHousekeeping{500};

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

link_t::link_t(delivery_t::receiver_t receiver, const QString& clientId, bool cleanSession, bool autoconnect)
    : cleanSession(cleanSession), autoconnect(autoconnect), delivery(std::move(receiver))
{
    identity.clientId = clientId;
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
    dropNotifiers();
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
    verdict_t verdict = checkQos(qos);
    if (verdict.code == MOSQ_ERR_SUCCESS) {
        verdict = checkTopic(letter.topic);
    }
    if (verdict.code == MOSQ_ERR_SUCCESS && letter.payload.size() > longestPayload) {
        verdict = {MOSQ_ERR_PAYLOAD_SIZE, "it is longer than the protocol allows"};
    }
    if (verdict.code == MOSQ_ERR_SUCCESS && !isConnected() && letter.bytes() > outbox.bytesLimit()) {
        verdict = {MOSQ_ERR_PAYLOAD_SIZE, "without a connection it does not fit into the outbox"};
    }
    if (verdict.code != MOSQ_ERR_SUCCESS) {
        return refuse(verdict, "message to", topic);
    }
    letter.mid = outbox.nextMid();
    if (mid != nullptr) {
        *mid = letter.mid;
    }
    if (const int dropped = outbox.add(std::move(letter), isConnected()); dropped > 0) {
        noteDropped(dropped);
    }
    pump();
    delivery.deliverLater();
    return MOSQ_ERR_SUCCESS;
}

void link_t::withdraw(int mid)
{
    // A handle that has sent the message would send it again.
    if (outbox.withdraw(mid)) {
        resumable = false;
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
    return request(mid, filter, mosquitto_subscribe, qos);
}

int link_t::unsubscribe(int* mid, const QString& filter)
{
    const auto call = [](::mosquitto* handle, int* wireMid, const char* text, int) {
        return mosquitto_unsubscribe(handle, wireMid, text);
    };
    return request(mid, filter, call, 0);
}

int link_t::request(int* mid, const QString& filter, int (*call)(::mosquitto*, int*, const char*, int), int qos)
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
    const int rc = call(handle->get(), &wireMid, text.constData(), qos);
    const int systemError = errno;
    if (rc == MOSQ_ERR_SUCCESS) {
        const int number = outbox.nextMid();
        outbox.addRequest(number, wireMid);
        if (mid != nullptr) {
            *mid = number;
        }
    }
    if (endsConnection(rc)) {
        settle(rc, systemError);
    } else {
        watch();
    }
    delivery.deliverLater();
    return rc;
}

void link_t::setLogging(bool on)
{
    logging = on;
    if (isConnected()) {
        handle->listenToLog(on);
    }
}

void link_t::pump()
{
    const moment_t now = moment_t::clock::now();
    while (isConnected()) {
        letter_t* const letter = outbox.takeNext(now);
        if (letter == nullptr) {
            break;
        }
        // A QoS 0 message is acknowledged inside the call, and its letter is gone afterwards.
        const int rc =
            mosquitto_publish(handle->get(), &letter->wireMid, letter->topic.constData(), letter->payload.size(),
                              letter->payload.constData(), letter->qos, letter->retain);
        const int systemError = errno;
        if (endsConnection(rc)) {
            settle(rc, systemError);
            return;
        }
        if (rc != MOSQ_ERR_SUCCESS) {
            refuse({rc, mosquitto_strerror(rc)}, "message to", QString::fromUtf8(letter->topic));
            outbox.discardNewest();
        }
    }
    watch();
}

void link_t::readable()
{
    readStep();
    pump();
    congested = false;
    if (!delivery.deliver()) {
        return;
    }
    if (outbox.awaitsAnswers()) {
        acknowledgeNow();
    }
    if (!delivery.isEmpty()) {
        congested = true;
        watch();
    }
}

void link_t::writable()
{
    writeStep();
    pump();
    delivery.deliver();
}

bool link_t::readStep()
{
    if (state == state_t::securing && !handshakeStands()) {
        return false;
    }
    QElapsedTimer turn;
    turn.start();
    for (int count = 0; count < mostReads; ++count) {
        errno = 0;
        const int rc = mosquitto_loop_read(handle->get(), 1);
        const int systemError = errno;
        if (!settle(rc, systemError)) {
            return false;
        }
        if (systemError == EAGAIN || !isConnected() || turn.hasExpired(longestRead.count())) {
            break;
        }
    }
    if (isUnderWay()) {
        acknowledgeNow();
    }
    return true;
}

void link_t::writeStep()
{
    if (state == state_t::dialling) {
        dialled();
        return;
    }
    errno = 0;
    // libmosquitto drives a TLS handshake from its reading side only.
    const int rc =
        state == state_t::securing ? mosquitto_loop_read(handle->get(), 1) : mosquitto_loop_write(handle->get(), 1);
    settle(rc, errno);
}

// When the other side closes the connection during the handshake, libmosquitto would retry forever.
bool link_t::handshakeStands()
{
    char byte;
    const ssize_t count = ::recv(descriptor, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
    if (count > 0 || (count < 0 && (errno == EAGAIN || errno == EINTR))) {
        return true;
    }
    addressFailed(MOSQ_ERR_TLS, count == 0 ? 0 : errno);
    return false;
}

// Checks what a library call did to the connection; false if it has ended or been replaced.
bool link_t::settle(int rc, int systemError)
{
    const bool gone = rc != MOSQ_ERR_SUCCESS || handle->closeSeen || handle->socket() != descriptor;
    const int code = handle->closeSeen ? handle->closeCode : rc;
    if (state == state_t::closing) {
        gone ? closed() : watch();
        return false;
    }
    if (answerSeen) {
        answered();
    }
    if (!gone) {
        if (state == state_t::securing && handle->handshakeDone()) {
            state = state_t::greeting;
        }
        watch();
        return true;
    }
    if (startAnew) {
        beginAnew();
    } else if (isConnected()) {
        lost(code, systemError);
    } else {
        addressFailed(code, systemError);
    }
    return false;
}

bool link_t::wantsWrite() const
{
    switch (state) {
    case state_t::dialling: return true;
    case state_t::securing: return handle->handshakeWantsWrite();
    default: return handle->wantsWrite();
    }
}

void link_t::watch()
{
    if (synchronous || descriptor < 0) {
        return;
    }
    if (!reader) {
        reader = std::make_unique<QSocketNotifier>(descriptor, QSocketNotifier::Read);
        writer = std::make_unique<QSocketNotifier>(descriptor, QSocketNotifier::Write);
        QObject::connect(reader.get(), &QSocketNotifier::activated, this, &link_t::readable);
        QObject::connect(writer.get(), &QSocketNotifier::activated, this, &link_t::writable);
    }
    reader->setEnabled(state != state_t::dialling && !congested);
    writer->setEnabled(wantsWrite());
}

void link_t::dropNotifiers()
{
    descriptor = -1;
    reader.reset();
    writer.reset();
}

// The kernel holds an acknowledgement back for 40 ms, hoping to send it along with data, and a broker with Nagle's
// algorithm waits for exactly that before it sends the rest of a burst. So whatever is still owed after our own answers
// goes out at once. An even value does so once and lets later acknowledgements travel with later answers; an odd one
// costs a segment for every packet, which is right only while a connection is made: the broker's half of a TLS
// handshake comes in several pieces.
void link_t::acknowledgeNow()
{
#ifdef TCP_QUICKACK
    const int mode = isUnderWay() ? 1 : 2;
    if (descriptor >= 0) {
        ::setsockopt(descriptor, IPPROTO_TCP, TCP_QUICKACK, &mode, sizeof mode);
    }
#endif
}

milliseconds_t link_t::housekeepingInterval() const
{
    const milliseconds_t longest =
        keepalive == seconds_t::zero() ? limits::interval.highest : milliseconds_t(keepalive) / 4;
    return std::clamp(interval, shortestHousekeeping, longest);
}

void link_t::timerEvent(QTimerEvent*)
{
    switch (state) {
    case state_t::connected: {
        errno = 0;
        const int rc = mosquitto_loop_misc(handle->get());
        settle(rc, errno);
        break;
    }
    case state_t::closing: closed(); break;
    case state_t::waiting: attempt(); break;
    case state_t::idle: timer.stop(); break;
    default: expired();
    }
    delivery.deliverLater();
}

void link_t::noteDropped(int count)
{
    if (count > 0 && droppedCount == 0) {
        FLOTROFOBUL_LOG(warning, "Outbox is full, the oldest messages go until the broker takes them"_l1);
    }
    droppedCount += count;
    if (count == 0 && droppedCount > 0) {
        FLOTROFOBUL_LOG(warning, "Messages dropped from the full outbox: "_l1 + QString::number(droppedCount));
        droppedCount = 0;
    }
}

void link_t::brokerAnswered(int rc, int flags)
{
    // On a fast network a single call may end the handshake, send CONNECT and read the answer.
    if ((state != state_t::greeting && state != state_t::securing) || answerSeen) {
        return; // a second answer that nobody asked for
    }
    const bool sessionPresent = flags & 1;
    // At this point the library resumes half-finished QoS 2 exchanges. A broker that has forgotten the first half
    // confirms the second without having the message, and a new message is taken for the rest of one that was half
    // received. A DISCONNECT sent now prevents both.
    if (rc == 0 && resumable && !sessionPresent) {
        startAnew = true;
        mosquitto_disconnect(handle->get());
        return;
    }
    answerSeen = true;
    outcome = rc;
    delivery.push(event_t(event_t::connected, rc, flags));
}

void link_t::acknowledged(int wireMid)
{
    const int mid = outbox.acknowledge(wireMid);
    if (mid > 0) {
        delivery.push(event_t(event_t::published, mid));
    }
}

void link_t::messageArrived(const mosquitto_message& message)
{
    if (message.payloadlen > maxPacketBytes) {
        FLOTROFOBUL_LOG(warning, "Message dropped, it is longer than "_l1 + QString::number(maxPacketBytes) +
                                     " bytes: "_l1 + QString::fromUtf8(message.topic).left(120));
        return;
    }
    event_t event(event_t::message, message.mid, message.qos, message.retain, message.payloadlen);
    event.topic = QString::fromUtf8(message.topic);
    event.text = QString::fromUtf8(static_cast<const char*>(message.payload), message.payloadlen);
    delivery.push(std::move(event));
}

void link_t::subscribed(int wireMid, int count, const int* granted)
{
    const int mid = outbox.acknowledgeRequest(wireMid);
    if (mid == 0) {
        FLOTROFOBUL_LOG(warning,
                        "The broker acknowledges a subscription that nobody made: "_l1 + QString::number(wireMid));
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

void link_t::lineWritten(int level, const char* text)
{
    if (isUnderWay() && (level == MOSQ_LOG_ERR || level == MOSQ_LOG_WARNING)) {
        libraryLine = text;
    }
    if (logging) {
        event_t event(event_t::log, level);
        event.text = QString::fromUtf8(text);
        delivery.push(std::move(event));
    }
}

} // namespace mosquittopp
} // namespace comunication
