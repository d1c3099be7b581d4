// SPDX-License-Identifier: MIT
// The book of a house: nodes, bridges and events, how each entry changes and what that entails. Internal.
#pragma once

#include <flotrofobul/house/house_reading.h>

#include <QtCore/QHash>

namespace comunication {
namespace house {

/// Every change raises the revision; what a person would want to know of is an event as well.
struct house_book_t {
    moment_t now{0};
    QVector<house_node_t> nodes;
    QHash<QString, int> places; ///< of the nodes, by id
    QVector<house_bridge_t> bridges;
    QVector<house_event_t> events;
    QStringList masters;
    moment_t mastersSince = never;
    quint64 revision = 0;
    quint64 lastRemoval = 0;

    void note(house_event_t::kind_t kind, const QString& subject, const QString& other = QString());
    void touch(house_node_t& node) { node.changed = ++revision; }
    /// Null if it is not there.
    house_node_t* find(const parts_t& parts);
    /// Enters a node. Null if there is no room for it.
    house_node_t* admit(const parts_t& parts, bool presents);
    /// Whether a packet is no copy of one that came on a shorter way.
    bool isFirst(house_node_t::channel_t& channel, int way, int source) const;
    void arrive(house_node_t& node);
    void leave(house_node_t& node);
    void setMaster(house_node_t& node, const QString& master, moment_t since);
    void setReady(house_node_t& node, bool ready, const QString& master);
    void countMasters();
    void bridge(const QString& name, const QByteArray& payload);

private:
    void reindex();
    void loseListeners(const QString& master);

    bool isCrowded = false;
};

} // namespace house
} // namespace comunication
