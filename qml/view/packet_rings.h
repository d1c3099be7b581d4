// SPDX-License-Identifier: MIT
// The last packets of each node, as many as fit; without passwords.
#pragma once

#include "scene.h"

#include <QtCore/QByteArray>
#include <QtCore/QHash>

namespace comunication {
namespace view {

struct ring_packet_t {
    quint64 serial = 0;
    moment_t moment = house::never;
    QString topic;
    QByteArray payload; ///< cut where it is long
    int size = 0;       ///< of the whole payload
    int qos = 0;
    bool retain = false;
};

/// Of one node, the oldest first.
struct ring_view_t {
    QString id;
    QVector<ring_packet_t> packets;
};

class packet_rings_t {
public:
    static constexpr int mostOfOne = 100;
    static constexpr int mostNodes = 1200;
    static constexpr int longestPayload = 4096;
    static constexpr qint64 mostBytes = 32 * 1024 * 1024; ///< of all

    explicit packet_rings_t(qint64 bytes = mostBytes) : most(bytes) {}

    void add(moment_t moment, const QString& id, const QString& topic, const QByteArray& payload, int qos, bool retain);
    [[nodiscard]] ring_view_t of(const QString& id) const;
    /// Serial of the last packet of a node; 0: none.
    [[nodiscard]] quint64 last(const QString& id) const;
    [[nodiscard]] qint64 bytes() const { return kept; }

private:
    void dropOldest();

    const qint64 most;
    qint64 kept = 0;
    quint64 serial = 0;
    QHash<QString, QVector<ring_packet_t>> rings; ///< the oldest first, none is empty
};

} // namespace view
} // namespace comunication
