// SPDX-License-Identifier: MIT
#include <flotrofobul/house/house_book.h>

#include <flotrofobul/platform/text.h>

#include <algorithm>
#include <tuple>

namespace comunication {
namespace house {

namespace {

constexpr moment_t patience{5000}; // for copies of a packet
const QString serverPrefix = QStringLiteral("tarnel-server-");

constexpr int mostNodes = house_model_t::mostNodes;
constexpr int mostBridges = house_model_t::mostBridges;
constexpr int mostEvents = house_model_t::mostEvents;

} // namespace

void house_book_t::note(house_event_t::kind_t kind, const QString& subject, const QString& other)
{
    if (events.size() >= mostEvents) {
        events.remove(0, mostEvents / 10);
    }
    house_event_t event;
    event.number = ++revision;
    event.moment = now;
    event.kind = kind;
    event.subject = subject;
    event.other = other;
    events.append(event);
}

house_node_t* house_book_t::find(const parts_t& parts)
{
    const auto place = places.constFind(borrowed(parts.sender));
    return place == places.constEnd() ? nullptr : &nodes[*place];
}

// Whoever has presented itself comes in, for the longest silent of those that are gone, or have never presented
// themselves, or of all.
house_node_t* house_book_t::admit(const parts_t& parts, bool presents)
{
    if (nodes.size() >= mostNodes) {
        if (!isCrowded) {
            isCrowded = true;
            note(house_event_t::crowded, QString());
        }
        if (!presents) {
            return nullptr;
        }
        const auto worth = [](const house_node_t& node) {
            return std::make_tuple(node.presented, node.presence == presence_t::here, node.heard);
        };
        const auto least = std::min_element(
            nodes.begin(), nodes.end(), [&](const auto& one, const auto& other) { return worth(one) < worth(other); });
        nodes.erase(least);
        lastRemoval = ++revision;
        reindex();
        countMasters();
    }
    house_node_t node;
    node.id = parts.sender.toString();
    node.installation = parts.installation.toString();
    node.since = now;
    places.insert(node.id, nodes.size());
    nodes.append(node);
    touch(nodes.last());
    return &nodes.last();
}

void house_book_t::reindex()
{
    places.clear();
    for (int i = 0; i < nodes.size(); ++i) {
        places.insert(nodes[i].id, i);
    }
}

void house_book_t::bridge(const QString& name, const QByteArray& payload)
{
    auto known = std::find_if(bridges.begin(), bridges.end(), [&](const auto& one) { return one.name == name; });
    if (payload.isEmpty()) { // taken back
        if (known != bridges.end()) {
            bridges.erase(known);
            lastRemoval = ++revision;
        }
        return;
    }
    const bool up = payload == "1";
    if (known == bridges.end()) {
        if (bridges.size() >= mostBridges || name.size() > longestId || name.isEmpty()) {
            return;
        }
        house_bridge_t bridge;
        bridge.name = name;
        const QStringList pieces = name.split(u'-');
        if (pieces.size() >= 4) {
            bridge.servers = QStringList{serverPrefix + pieces[2], serverPrefix + pieces[3]};
        }
        bridges.append(bridge);
        known = bridges.end() - 1;
    } else if (known->up == up) {
        return;
    }
    known->up = up;
    known->since = now;
    note(up ? house_event_t::bridgeUp : house_event_t::bridgeDown, name);
    known->changed = revision;
}

// Copies come over longer ways as well, and later. Those are heard only where the node is silent on its shortest way:
// it may have moved to another broker.
bool house_book_t::isFirst(house_node_t::channel_t& channel, int way, int source) const
{
    const bool isSame = way == channel.way && source == channel.source;
    if (!isSame && way >= channel.way && now - channel.heard < patience) {
        return false;
    }
    channel = {way, source, now};
    return true;
}

void house_book_t::arrive(house_node_t& node)
{
    node.heard = now;
    if (node.presence != presence_t::here) {
        node.presence = presence_t::here;
        node.since = now;
        note(house_event_t::came, node.id);
        node.changed = revision;
        countMasters();
    }
}

void house_book_t::leave(house_node_t& node)
{
    if (node.presence == presence_t::gone) {
        return;
    }
    node.presence = presence_t::gone;
    node.ready = false;
    node.since = now;
    note(house_event_t::gone, node.id);
    node.changed = revision;
    if (node.master == node.id) {
        setMaster(node, QString(), never);
    }
    node.master.clear();
}

void house_book_t::setMaster(house_node_t& node, const QString& master, moment_t since)
{
    if (node.master == master) {
        return;
    }
    const bool wasMaster = node.master == node.id;
    const bool isServer = node.role == role_t::server;
    node.master = master;
    node.ready = false;
    if (isServer && master == node.id) {
        node.masterSince = since == never ? now : std::min(since, now);
        note(house_event_t::masterNow, node.id);
    } else if (isServer && wasMaster) {
        node.masterSince = never;
        note(house_event_t::masterNoMore, node.id);
    } else {
        note(house_event_t::follows, node.id, master);
    }
    node.changed = revision;
    if (isServer) {
        countMasters();
    }
    if (isServer && wasMaster) {
        loseListeners(node.id);
    }
}

// A panel whose master goes takes its subscriptions back, and says nothing.
void house_book_t::loseListeners(const QString& master)
{
    for (house_node_t& node : nodes) {
        if (node.ready && node.master == master) {
            node.ready = false;
            touch(node);
        }
    }
}

void house_book_t::setReady(house_node_t& node, bool ready, const QString& master)
{
    if (node.ready != ready) {
        node.ready = ready;
        note(ready ? house_event_t::readyNow : house_event_t::readyNoMore, node.id, master);
        node.changed = revision;
    }
}

void house_book_t::countMasters()
{
    QStringList found;
    for (const house_node_t& node : qAsConst(nodes)) {
        if (node.isMaster()) {
            found << node.id;
        }
    }
    if (found == masters) {
        return;
    }
    const int before = masters.size();
    masters = found;
    mastersSince = now;
    ++revision;
    if (found.size() > 1) {
        note(house_event_t::twoMasters, QString(), found.join(", "_l1));
    } else if (found.size() == 1 && before > 1) {
        note(house_event_t::oneMaster, QString(), found[0]);
    }
}

} // namespace house
} // namespace comunication
