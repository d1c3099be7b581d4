// SPDX-License-Identifier: MIT
// What libmosquitto reports from inside its calls: only notes are taken here.
#include <flotrofobul/platform/mosquittopp/link.h>

#include <flotrofobul/platform/logs/log_line.h>

#include <mosquitto.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace comunication {
namespace mosquittopp {

using namespace ::utility::logs;

void link_t::brokerAnswered(int rc, int flags)
{
    if (!dialler.mayAnswer()) {
        return; // a second answer that nobody asked for
    }
    const bool sessionPresent = flags & 1;
    const bool resuming = session.isResuming();
    const bool anew = rc == 0 && !session.begins(sessionPresent);
    dialler.noteAnswer(rc, anew);
    if (!anew) {
        delivery.push(event_t(event_t::connected, rc, flags));
    } else if (sessionPresent) {
        say(warning, "The broker holds an old session of this client, which is ended"_l1, __func__, __LINE__);
    } else if (resuming) {
        say(warning, "The broker has forgotten the session, a new one is begun"_l1, __func__, __LINE__);
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
    if (dialler.startsAnew()) {
        return; // it belongs to the session that is being ended
    }
    // The library reads on until nothing is left, which may be long. This ends its loop after this packet.
    if (hasReadEnough()) {
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
    event_t event(rawPayloads ? event_t::rawMessage : event_t::message, message.mid, message.qos, message.retain,
                  message.payloadlen);
    event.topic = QString::fromUtf8(message.topic);
    const char* const payload = static_cast<const char*>(message.payload);
    if (rawPayloads) {
        event.bytes = QByteArray(payload, message.payloadlen);
    } else {
        event.text = QString::fromUtf8(payload, message.payloadlen);
    }
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
    packetSeen = true;
    const int mid = outbox.acknowledgeRequest(wireMid);
    if (mid > 0) {
        delivery.push(event_t(event_t::unsubscribed, mid));
    }
}

// The broker repeats in order, so where the oldest message comes again, all that wait will. Where nothing of ours is on
// its way either, the handle is not needed any more; without it the broker repeats the messages to a new one.
void link_t::noteInbound(handle_t& from, inbound_t::finding_t finding)
{
    const bool canRenew = finding == inbound_t::finding_t::repeat && !outbox.awaitsAnswers();
    renews = renews || canRenew;
    if (canRenew || finding == inbound_t::finding_t::stale) {
        from.cut();
    }
}

// A broker without QoS 2 answers as if it were QoS 1. The library ends the connection over that and does not say why.
void link_t::noteAnswer(const handle_t& from, const char* text)
{
    const QByteArray prefix = "Client " + from.clientId().toUtf8() + " received PUB";
    int mid = 0;
    char answer[4] = {};
    if (std::strncmp(text, prefix.constData(), static_cast<std::size_t>(prefix.size())) != 0 ||
        std::sscanf(text + prefix.size(), "%3[A-Z] (Mid: %d", answer, &mid) != 2) {
        return;
    }
    if (std::strcmp(answer, "REC") == 0) {
        exactness = exactness_t::spoken;
    } else if (std::strcmp(answer, "ACK") == 0 && outbox.qosOf(mid) == 2) {
        exactness = exactness_t::refused;
    }
}

void link_t::lineWritten(handle_t& from, int level, const char* text)
{
    if (level == MOSQ_LOG_ERR || level == MOSQ_LOG_WARNING) {
        dialler.noteLine(from, text);
    }
    if (exactness != exactness_t::spoken && level == MOSQ_LOG_DEBUG) {
        noteAnswer(from, text);
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
