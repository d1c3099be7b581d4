// SPDX-License-Identifier: MIT
#include "topology.h"

#include <QtCore/QMap>
#include <QtCore/QSet>

#include <algorithm>

namespace comunication {
namespace view {

using house::house_bridge_t;
using house::house_model_t;
using house::house_node_t;
using house::role_t;
using house::way_t;

namespace {

constexpr moment_t patience{5000};   // for copies, as the model of the house has it
constexpr moment_t believed{120000}; // that a way is open since something came over it
constexpr moment_t underWay{1000};   // what was sent before a bridge went down may still arrive
const QString serverPrefix = QStringLiteral("tarnel-server-");
const QString localPrefix = QStringLiteral("local_");
const QString cloudName = QStringLiteral("cloud");

constexpr int forward = static_cast<int>(way_t::forward);
constexpr int remote = static_cast<int>(way_t::remote);
constexpr int cloud = static_cast<int>(way_t::cloud);

using pair_t = QPair<int, int>; // from, to

/// What a bridge at a broker says of one direction.
struct states_t {
    bool up = false;
    bool down = false;
    moment_t downSince = house::never;
};

struct crossing_t {
    qint64 count = 0;
    double rate = 0;
    moment_t last = house::never;
};

/// Servers that a name joins, in its order; empty where it names none.
QStringList endsOf(const house_bridge_t& bridge)
{
    if (!bridge.servers.isEmpty()) {
        return bridge.servers;
    }
    const QStringList pieces = bridge.name.split(QLatin1Char('-'));
    // The lane of data has a piece less, so that engines do not count it.
    return pieces.size() == 3 ? QStringList{serverPrefix + pieces[1], serverPrefix + pieces[2]} : QStringList();
}

class drawing_t {
public:
    drawing_t(const evidence_t& givenEvidence, moment_t givenNow)
        : evidence(givenEvidence), now(givenNow), count(givenEvidence.names.size())
    {
        result.brokers = evidence.names;
    }

    topology_t draw()
    {
        seatNodes();
        nameBridges();
        attachGhosts();
        joinCloud();
        countCrossings();
        judge();
        return result;
    }

private:
    void seatNodes();
    void nameBridges();
    void attachGhosts();
    void joinCloud();
    void countCrossings();
    void judge();

    [[nodiscard]] int homeOf(const house_node_t& node) const;
    [[nodiscard]] int sourceOf(const house_node_t& node) const;
    [[nodiscard]] int behind(const house_node_t& node);
    [[nodiscard]] bool isAmongServers(int source) const;
    int ghost(const QString& name);
    [[nodiscard]] int seatOf(const QString& server) const { return seats.value(server, -1); }
    [[nodiscard]] int ownEnd(int source, const QStringList& ends) const;
    void join(int source, int other, const house_bridge_t& bridge, const QStringList& ends);
    void note(const pair_t& direction, const house_bridge_t& bridge);
    [[nodiscard]] QVector<int> way(int from, int to) const;
    [[nodiscard]] direction_t directionOf(int from, int to) const;
    [[nodiscard]] static pair_t sorted(int one, int other) { return {std::min(one, other), std::max(one, other)}; }

    const evidence_t& evidence;
    const moment_t now;
    const int count; ///< brokers that are listened to
    topology_t result;
    QHash<QString, int> ghosts;
    QHash<QString, int> seats;                ///< of nodes by id
    QMap<pair_t, QMap<QString, bool>> joined; ///< names of bridges between two brokers, and whether one end is down
    QMap<pair_t, states_t> states;            ///< of directions
    QMap<pair_t, crossing_t> crossings;       ///< of directions, on single lines
    QMap<int, QSet<int>> neighbours;          ///< by named bridges
    QVector<house_bridge_t> unnamed;          ///< bridges that name no servers, and
    QVector<int> unnamedAt;                   ///< where they are
};

int drawing_t::ghost(const QString& name)
{
    auto known = ghosts.find(name);
    if (known == ghosts.end()) {
        known = ghosts.insert(name, result.brokers.size());
        result.brokers << name;
    }
    return *known;
}

// Where it was heard without a bridge, unless it is silent there and heard from elsewhere since.
int drawing_t::homeOf(const house_node_t& node) const
{
    const auto home = evidence.homes.constFind(node.id);
    if (home == evidence.homes.constEnd()) {
        return -1;
    }
    const link_t& link = evidence.links[home->source];
    if (!link.isHeard()) {
        return home->source;
    }
    const moment_t silentSince = std::max(home->heard, link.since);
    for (int source = 0; source < count; ++source) {
        const house_node_t* const there = evidence.models[static_cast<std::size_t>(source)].node(node.id);
        if (source != home->source && there != nullptr && there->heard != house::never &&
            there->heard - silentSince > patience) {
            return -1;
        }
    }
    return home->source;
}

int drawing_t::sourceOf(const house_node_t& node) const
{
    if (node.channel.way < house::wayCount) {
        return node.channel.source;
    }
    for (int source = 0; source < count; ++source) {
        if (evidence.models[static_cast<std::size_t>(source)].node(node.id) != nullptr) {
            return source;
        }
    }
    return 0;
}

bool drawing_t::isAmongServers(int source) const
{
    const auto& nodes = evidence.whole.nodes();
    return std::any_of(nodes.begin(), nodes.end(),
                       [&](const house_node_t& node) { return node.role == role_t::server && homeOf(node) == source; });
}

// One server, one broker. A client is where its record says that its broker is; where that says nothing, at the only
// one that there is behind the bridges.
int drawing_t::behind(const house_node_t& node)
{
    const int source = sourceOf(node);
    const bool isFromCloud = node.packets[cloud] > 0 && node.packets[remote] == 0;
    if (isFromCloud && isAmongServers(source)) {
        return ghost(cloudName);
    }
    const QString address = node.record.value(QLatin1String("brokerip")).toString();
    const bool isAddress = !address.isEmpty() && !address.startsWith(QLatin1String("127.")) &&
                           address != QLatin1String("localhost") && address != QLatin1String("::1");
    int only = -1;
    int servers = 0;
    for (const house_node_t& other : evidence.whole.nodes()) {
        const int place = ghosts.value(other.id, -1);
        if (place < 0) {
            continue;
        }
        if (isAddress && other.record.value(QLatin1String("brokerip")).toString() == address) {
            return place;
        }
        only = place;
        ++servers;
    }
    return servers == 1 ? only : ghost(QStringLiteral("behind ") + evidence.names[source]);
}

void drawing_t::seatNodes()
{
    const auto& nodes = evidence.whole.nodes();
    result.seats.fill(-1, nodes.size());
    // Servers first: whoever sits behind a bridge sits beside one of them.
    for (const bool isServer : {true, false}) {
        for (int i = 0; i < nodes.size(); ++i) {
            const house_node_t& node = nodes[i];
            if ((node.role == role_t::server) != isServer) {
                continue;
            }
            const int home = homeOf(node);
            const int source = home >= 0 ? home
                               : node.packets[forward] > 0 && !evidence.homes.contains(node.id)
                                   ? sourceOf(node) // a retained packet is all that is known of it
                               : isServer ? ghost(node.id)
                                          : behind(node);
            result.seats[i] = source;
            seats.insert(node.id, source);
        }
    }
}

void drawing_t::note(const pair_t& direction, const house_bridge_t& bridge)
{
    states_t& one = states[direction];
    one.up = one.up || bridge.up;
    if (!bridge.up) {
        one.down = true;
        one.downSince = std::max(one.downSince, bridge.since);
    }
}

void drawing_t::join(int source, int other, const house_bridge_t& bridge, const QStringList& ends)
{
    const pair_t line = sorted(source, other);
    const QString name = plainBridgeName(bridge.name);
    bool& isDown = joined[line][name];
    isDown = isDown || !bridge.up;
    neighbours[source].insert(other);
    neighbours[other].insert(source);
    // Where both boxes dial each other, each bridge is a way in one direction.
    QStringList pieces = name.split(QLatin1Char('-'));
    std::swap(pieces[pieces.size() - 1], pieces[pieces.size() - 2]);
    const QString opposite = pieces.join(QLatin1Char('-'));
    bool isOneWay = false;
    for (const house_model_t& model : evidence.models) {
        const auto& bridges = model.bridges();
        isOneWay = isOneWay || std::any_of(bridges.begin(), bridges.end(), [&](const house_bridge_t& one) {
                       return plainBridgeName(one.name) == opposite;
                   });
    }
    const bool isForward = seatOf(ends[0]) == source || seatOf(ends[1]) == other;
    const int from = isForward ? source : other;
    const int to = isForward ? other : source;
    note({from, to}, bridge);
    if (!isOneWay) {
        note({to, from}, bridge);
    }
}

/// Which of two servers, that a bridge at this broker joins, is its own; -1: cannot be told.
int drawing_t::ownEnd(int source, const QStringList& ends) const
{
    for (const int i : {0, 1}) {
        if (seats.value(ends[i], -1) == source) {
            return i;
        }
    }
    for (const int i : {0, 1}) { // its own has not said anything yet
        if (!seats.contains(ends[i]) && seats.contains(ends[1 - i])) {
            return i;
        }
    }
    // What all bridges have in common.
    int named[2] = {0, 0};
    for (const house_bridge_t& bridge : evidence.models[static_cast<std::size_t>(source)].bridges()) {
        const QStringList others = endsOf(bridge);
        named[0] += others.contains(ends[0]) ? 1 : 0;
        named[1] += others.contains(ends[1]) ? 1 : 0;
    }
    return named[0] == named[1] ? -1 : named[0] > named[1] ? 0 : 1;
}

// A broker reports the bridges at its end. One of the servers in the name is its own; all of these are looked for
// first.
void drawing_t::nameBridges()
{
    for (const bool isJoining : {false, true}) {
        for (int source = 0; source < count; ++source) {
            for (const house_bridge_t& bridge : evidence.models[static_cast<std::size_t>(source)].bridges()) {
                const QStringList ends = endsOf(bridge);
                // Three pieces may be any name: they count where both ends are known.
                const bool isSure = !bridge.servers.isEmpty();
                if (ends.size() != 2 || ends[0] == ends[1] ||
                    (!isSure && (!seats.contains(ends[0]) || !seats.contains(ends[1])))) {
                    if (isJoining && !isSure) {
                        unnamed << bridge;
                        unnamedAt << source;
                    }
                    continue;
                }
                const int own = ownEnd(source, ends);
                if (own < 0) {
                    continue;
                }
                if (!isJoining) {
                    if (!seats.contains(ends[own])) {
                        seats.insert(ends[own], source);
                    }
                    continue;
                }
                const QString& far = ends[1 - own];
                if (!seats.contains(far)) {
                    seats.insert(far, ghost(far));
                }
                if (seats[far] != source) {
                    join(source, seats[far], bridge, ends);
                }
            }
        }
    }
}

// Whoever is heard at a broker that has one bridge only, and is not named by it, is behind that bridge's other end.
void drawing_t::attachGhosts()
{
    for (auto known = ghosts.constBegin(); known != ghosts.constEnd(); ++known) {
        const house_node_t* const server = evidence.whole.node(known.key());
        if (server == nullptr || neighbours.contains(*known)) {
            continue;
        }
        const QSet<int> at = neighbours.value(sourceOf(*server));
        if (at.size() == 1 && *at.begin() != *known) {
            joined[sorted(*at.begin(), *known)];
            neighbours[*at.begin()].insert(*known);
            neighbours[*known].insert(*at.begin());
        }
    }
}

// A bridge to the cloud is called as phones know it; which names no server.
void drawing_t::joinCloud()
{
    int place = ghosts.value(cloudName, -1);
    for (int source = 0; source < count && place < 0; ++source) {
        const auto& nodes = evidence.models[static_cast<std::size_t>(source)].nodes();
        const bool hearsCloud = std::any_of(nodes.begin(), nodes.end(), [&](const house_node_t& node) {
            return node.packets[cloud] > 0 && seats.value(node.id) != source;
        });
        if (hearsCloud && !isAmongServers(source)) {
            place = source;
        }
    }
    for (int i = 0; i < unnamed.size() && place >= 0; ++i) {
        if (unnamedAt[i] != place) {
            const pair_t line = sorted(unnamedAt[i], place);
            joined[line][plainBridgeName(unnamed[i].name)] = !unnamed[i].up;
            note({line.first, line.second}, unnamed[i]);
            note({line.second, line.first}, unnamed[i]);
            neighbours[line.first].insert(line.second);
            neighbours[line.second].insert(line.first);
        }
    }
}

/// The shortest way over bridges that are known by name, both ends included; empty if there is none.
QVector<int> drawing_t::way(int from, int to) const
{
    QHash<int, int> before{{from, from}};
    QVector<int> border{from};
    while (!border.isEmpty() && !before.contains(to)) {
        QVector<int> next;
        for (const int one : qAsConst(border)) {
            QList<int> others = neighbours.value(one).values();
            std::sort(others.begin(), others.end());
            for (const int other : qAsConst(others)) {
                if (!before.contains(other)) {
                    before.insert(other, one);
                    next << other;
                }
            }
        }
        border = next;
    }
    QVector<int> path;
    if (before.contains(to)) {
        for (int one = to; one != from; one = before[one]) {
            path.prepend(one);
        }
        path.prepend(from);
    }
    return path;
}

void drawing_t::countCrossings()
{
    for (int source = 0; source < count; ++source) {
        for (const house_node_t& node : evidence.models[static_cast<std::size_t>(source)].nodes()) {
            const int seat = seats.value(node.id, -1);
            if (seat < 0 || seat == source || node.heard == house::never ||
                node.packets[remote] + node.packets[cloud] == 0) {
                continue;
            }
            QVector<int> path = way(seat, source);
            if (path.isEmpty()) {
                path = {seat, source};
            }
            const house_node_t* const known = evidence.whole.node(node.id);
            const bool isFirst = known != nullptr && known->channel.source == source;
            for (int i = 1; i < path.size(); ++i) {
                joined[sorted(path[i - 1], path[i])];
                crossing_t& crossing = crossings[{path[i - 1], path[i]}];
                crossing.last = std::max(crossing.last, node.heard);
                // What several brokers hear has come over a common piece once; where it is heard in between it is
                // counted there.
                if (i + 1 == path.size() || (path[i] >= count && isFirst)) {
                    crossing.count += node.sent;
                    crossing.rate += node.rate.perSecond(now);
                }
            }
        }
    }
}

direction_t drawing_t::directionOf(int from, int to) const
{
    const states_t state = states.value({from, to});
    const moment_t last = crossings.value({from, to}).last;
    if (state.down && (last == house::never || last <= state.downSince + underWay)) {
        return direction_t::down;
    }
    if (from < count && to < count && evidence.links[to].isHeard() && evidence.awaited.isMissing(now, from, to)) {
        return direction_t::missing;
    }
    const bool hasCrossed = last != house::never && now - last <= believed;
    return hasCrossed || state.up ? direction_t::up : direction_t::unknown;
}

void drawing_t::judge()
{
    for (auto known = joined.constBegin(); known != joined.constEnd(); ++known) {
        scene_line_t line;
        line.from = known.key().first;
        line.to = known.key().second;
        line.there = directionOf(line.from, line.to);
        line.back = directionOf(line.to, line.from);
        const crossing_t there = crossings.value({line.from, line.to});
        const crossing_t back = crossings.value({line.to, line.from});
        line.rateThere = there.rate;
        line.rateBack = back.rate;
        line.countThere = there.count;
        line.countBack = back.count;
        for (auto name = known->constBegin(); name != known->constEnd(); ++name) {
            line.names << name.key();
            if (*name) {
                line.down << name.key();
            }
        }
        result.lines << line;
        neighbours[line.from].insert(line.to);
        neighbours[line.to].insert(line.from);
    }
    for (int from = 0; from < count; ++from) {
        for (int to = 0; to < count; ++to) {
            if (from == to || !evidence.links[to].isHeard() || !evidence.awaited.isMissing(now, from, to)) {
                continue;
            }
            // A bridge that is down, and whatever lies behind it, is told of elsewhere.
            const QVector<int> path = way(from, to);
            bool isOpen = !path.isEmpty();
            for (int i = 1; i < path.size(); ++i) {
                isOpen = isOpen && directionOf(path[i - 1], path[i]) != direction_t::down;
            }
            if (isOpen) {
                result.missing << pair_t{from, to};
            }
        }
    }
}

} // namespace

const scene_line_t* topology_t::line(int one, int other) const
{
    for (const scene_line_t& line : lines) {
        if ((line.from == one && line.to == other) || (line.from == other && line.to == one)) {
            return &line;
        }
    }
    return nullptr;
}

topology_t topologyOf(const evidence_t& evidence, moment_t now)
{
    return drawing_t(evidence, now).draw();
}

QString plainBridgeName(const QString& name)
{
    return name.startsWith(localPrefix) ? name.mid(localPrefix.size()) : name;
}

} // namespace view
} // namespace comunication
