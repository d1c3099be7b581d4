// SPDX-License-Identifier: MIT
// What both roles do with packet templates and with packets for the host. Internal.
#pragma once

#include <flotrofobul/define/define.h>
#include <flotrofobul/define/topic_t.h>
#include <flotrofobul/platform/text.h>

#include <algorithm>

namespace comunication {

inline QString topicOf(const QJsonObject& packet)
{
    return packet.value("topic"_l1).toString();
}

inline utility::qos_t qosOf(const QJsonObject& packet)
{
    return static_cast<utility::qos_t>(packet.value("qos"_l1).toInt());
}

/// A topic without the common prefix: what topic_t::getValue() gives for it.
inline QString commandOf(QString topic)
{
    return topic.remove(PREFIX + u'/');
}

/// A packet for the host with the place it came from: its topic from the first occurrence of a word on (wherever that
/// stands, be it in a sender's name; the whole topic where it does not occur), the sender and the destination.
inline QJsonObject withAddress(QJsonObject packet, const utility::topic_t& topic, const QString& word)
{
    const QString received = topic.getOriginal();
    packet.insert("topic"_l1, received.mid(std::max(received.indexOf(word), 0)));
    packet.insert("sender"_l1, topic.getSender());
    packet.insert("destination"_l1, topic.getDestination());
    return packet;
}

} // namespace comunication
