// SPDX-License-Identifier: MIT
// Reading packet templates, and completing packets for the host. Internal.
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

/// The topic without the common prefix, which is what topic_t::getValue() returns for it.
inline QString commandOf(QString topic)
{
    return topic.remove(PREFIX + u'/');
}

/// Adds to a packet where it came from: sender, destination, and the topic from the first occurrence of the word
/// onwards (which may be in the sender's name; the whole topic if the word does not occur).
inline QJsonObject withAddress(QJsonObject packet, const utility::topic_t& topic, const QString& word)
{
    const QString received = topic.getOriginal();
    packet.insert("topic"_l1, received.mid(std::max<int>(received.indexOf(word), 0)));
    packet.insert("sender"_l1, topic.getSender());
    packet.insert("destination"_l1, topic.getDestination());
    return packet;
}

} // namespace comunication
