// SPDX-License-Identifier: MIT
#include "packet_rings.h"

#include "watch/packet_lines.h"

#include <algorithm>

namespace comunication {
namespace view {

namespace {

constexpr int overhead = 160; // of a packet beside its texts
constexpr int longestTopic = 1024;

qint64 weightOf(const ring_packet_t& packet)
{
    return overhead + packet.payload.size() + qint64(sizeof(QChar)) * packet.topic.size();
}

} // namespace

void packet_rings_t::add(moment_t moment, const QString& id, const QString& topic, const QByteArray& payload, int qos,
                         bool retain)
{
    // Hidden before it is cut: half of a password could be the rest.
    tools::packet_t hidden{0, topic, payload, qos, retain};
    tools::hideSecrets(hidden);
    const QByteArray& shown = hidden.payload;
    ring_packet_t packet;
    packet.serial = ++serial;
    packet.moment = moment;
    packet.topic = topic.left(longestTopic);
    packet.payload = shown.size() > longestPayload ? QByteArray(shown.constData(), longestPayload) : shown;
    packet.size = payload.size();
    packet.qos = qos;
    packet.retain = retain;
    kept += weightOf(packet);
    QVector<ring_packet_t>& ring = rings[id];
    if (ring.size() >= mostOfOne) {
        kept -= weightOf(ring.first());
        ring.removeFirst();
    }
    ring.append(packet);
    while (kept > most || rings.size() > mostNodes) {
        dropOldest();
    }
}

void packet_rings_t::dropOldest()
{
    const auto ring = std::min_element(rings.begin(), rings.end(), [](const auto& one, const auto& other) {
        return one.first().serial < other.first().serial;
    });
    kept -= weightOf(ring->first());
    ring->removeFirst();
    if (ring->isEmpty()) {
        rings.erase(ring);
    }
}

ring_view_t packet_rings_t::of(const QString& id) const
{
    return {id, rings.value(id)};
}

quint64 packet_rings_t::last(const QString& id) const
{
    const auto ring = rings.constFind(id);
    return ring == rings.constEnd() ? 0 : ring->last().serial;
}

} // namespace view
} // namespace comunication
