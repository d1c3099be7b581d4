// SPDX-License-Identifier: MIT
#include "watch/house_picture.h"

#include "watch/packet_lines.h"

#include <QtCore/QDateTime>
#include <QtCore/QJsonArray>

#include <algorithm>

namespace comunication {
namespace tools {

using house::house_bridge_t;
using house::house_event_t;
using house::house_model_t;
using house::house_node_t;
using house::moment_t;
using house::presence_t;
using house::role_t;

namespace {

constexpr int fewestEvents = 3; // lines for what happened, also where there are many nodes

/// A column of the table: what it shows, and which go first where the terminal is narrow.
struct column_t {
    const char* title;
    QString (*text)(const house_node_t& node, const house_model_t& house, moment_t now);
    int rank; ///< the greatest goes first
    bool toTheRight;
};

QString clockOf(moment_t moment)
{
    return QDateTime::fromMSecsSinceEpoch(moment.count()).toString(QStringLiteral("HH:mm:ss"));
}

/// "5 s", "3:20 min", "2:05 h", "4 d".
QString spanOf(moment_t span)
{
    const qint64 seconds = std::max<qint64>(span.count(), 0) / 1000;
    const auto two = [](qint64 number) { return QStringLiteral("%1").arg(number, 2, 10, QLatin1Char('0')); };
    return seconds < 60      ? QStringLiteral("%1 s").arg(seconds)
           : seconds < 3600  ? QStringLiteral("%1:%2 min").arg(seconds / 60).arg(two(seconds % 60))
           : seconds < 86400 ? QStringLiteral("%1:%2 h").arg(seconds / 3600).arg(two(seconds / 60 % 60))
                             : QStringLiteral("%1 d").arg(seconds / 86400);
}

QString ageOf(moment_t moment, moment_t now)
{
    return moment == house::never ? QStringLiteral("-") : spanOf(now - moment);
}

QString stateOf(const house_node_t& node)
{
    if (node.presence == presence_t::gone) {
        return QStringLiteral("gone");
    }
    if (node.presence == presence_t::unknown) {
        return QStringLiteral("?"); // known from retained packets only
    }
    return node.isMaster() ? QStringLiteral("MASTER") : node.ready ? QStringLiteral("ready") : QStringLiteral("there");
}

QString masterOf(const house_node_t& node, const house_model_t& house)
{
    if (node.master.isEmpty() || node.master == node.id) {
        return node.master.isEmpty() ? QStringLiteral("-") : QStringLiteral("itself");
    }
    const house_node_t* const master = house.node(node.master);
    const bool isGone = master != nullptr && master->presence == presence_t::gone;
    const bool isNone = master != nullptr && master->presented && !master->isMaster();
    return node.master + QLatin1String(isGone ? " (gone)" : isNone ? " (not master)" : "");
}

const column_t columns[] = {
    {"NODE", [](const house_node_t& node, const house_model_t&, moment_t) { return node.id; }, 0, false},
    {"ROLE", [](const house_node_t& node, const house_model_t&, moment_t) { return wordOf(node.role); }, 3, false},
    {"STATE", [](const house_node_t& node, const house_model_t&, moment_t) { return stateOf(node); }, 0, false},
    {"FOR",
     [](const house_node_t& node, const house_model_t&, moment_t now) {
         return ageOf(node.isMaster() ? node.masterSince : node.since, now);
     },
     2, true},
    {"MASTER", [](const house_node_t& node, const house_model_t& house, moment_t) { return masterOf(node, house); }, 1,
     false},
    {"HEARD", [](const house_node_t& node, const house_model_t&, moment_t now) { return ageOf(node.heard, now); }, 1,
     true},
    {"PACKETS", [](const house_node_t& node, const house_model_t&, moment_t) { return QString::number(node.sent); }, 5,
     true},
    {"/S",
     [](const house_node_t& node, const house_model_t&, moment_t now) {
         return QString::number(node.rate.perSecond(now), 'f', 1);
     },
     4, true},
    {"HEARD ON",
     [](const house_node_t& node, const house_model_t&, moment_t) -> QString {
         return node.prefixes().join(QLatin1Char(' ')) + (node.encoded ? QStringLiteral(" encoded") : QString());
     },
     6, false},
};

/// Servers before clients before the rest, those that are there before those that are gone.
QVector<const house_node_t*> sorted(const house_model_t& house)
{
    QVector<const house_node_t*> result;
    for (const house_node_t& node : house.nodes()) {
        result << &node;
    }
    const auto place = [](const house_node_t* node) {
        const int role = node->role == role_t::server ? 0 : node->role == role_t::client ? 1 : 2;
        return std::make_tuple(node->presence == presence_t::gone && role != 0, role, std::cref(node->id));
    };
    std::sort(result.begin(), result.end(), [&](auto* one, auto* other) { return place(one) < place(other); });
    return result;
}

QStringList tableOf(const house_model_t& house, const QVector<const house_node_t*>& nodes, moment_t now, int width)
{
    QVector<QStringList> cells;
    QVector<int> widths;
    for (const column_t& column : columns) {
        QStringList texts{QString::fromLatin1(column.title)};
        for (const house_node_t* const node : nodes) {
            texts << harmless(column.text(*node, house, now));
        }
        const auto longest = std::max_element(texts.begin(), texts.end(), [](const QString& one, const QString& other) {
            return one.size() < other.size();
        });
        widths << longest->size();
        cells << texts;
    }
    const auto total = [&] {
        int sum = -2;
        for (const int one : qAsConst(widths)) {
            sum += one > 0 ? one + 2 : 0;
        }
        return sum;
    };
    // What matters least goes, then long names are cut.
    for (int rank = 6; rank > 1 && total() > width; --rank) {
        for (int i = 0; i < widths.size(); ++i) {
            widths[i] = columns[i].rank == rank ? 0 : widths[i];
        }
    }
    constexpr int shortest = 8;
    for (const int column : {4, 0}) { // whose names they are
        widths[column] = std::max(std::min(widths[column], shortest), widths[column] - std::max(0, total() - width));
    }
    QStringList lines;
    for (int row = 0; row <= nodes.size(); ++row) {
        QString line;
        for (int i = 0; i < widths.size(); ++i) {
            if (widths[i] == 0) {
                continue;
            }
            QString text = cells[i][row];
            if (text.size() > widths[i]) {
                text = text.left(widths[i] - 1) + QLatin1Char('~');
            }
            line += (columns[i].toTheRight ? text.rightJustified(widths[i]) : text.leftJustified(widths[i])) +
                    QStringLiteral("  ");
        }
        while (line.endsWith(QLatin1Char(' '))) {
            line.chop(1);
        }
        lines << line;
    }
    return lines;
}

QString mastersLine(const house_model_t& house, moment_t now)
{
    const QStringList masters = house.masters();
    if (masters.size() == 1) {
        return QStringLiteral("Master   %1, for %2")
            .arg(harmless(masters[0]), ageOf(house.node(masters[0])->masterSince, now));
    }
    if (masters.isEmpty()) {
        return house.mastersSince() == house::never
                   ? QStringLiteral("Master   none heard yet; a node is known from the first packet that it sends")
                   : QStringLiteral("!Master   NONE, for %1").arg(ageOf(house.mastersSince(), now));
    }
    return QStringLiteral("!Master   %1 SERVERS ARE MASTER, for %2: %3")
        .arg(masters.size())
        .arg(ageOf(house.mastersSince(), now), harmless(masters.join(QStringLiteral(", "))));
}

QString bridgesLine(const house_model_t& house, moment_t now)
{
    QStringList down;
    QStringList up;
    for (const house_bridge_t& bridge : house.bridges()) {
        (bridge.up ? up : down) << harmless(bridge.name) +
                                       (bridge.up ? QStringLiteral(" up ") : QStringLiteral(" DOWN ")) +
                                       ageOf(bridge.since, now);
    }
    // A broker that says nothing of itself does not tell of its bridges either.
    const QString none = house.brokerVersion().isEmpty() ? QStringLiteral("not told by this broker")
                                                         : QStringLiteral("none at this broker");
    return (down.isEmpty() ? QString() : QStringLiteral("!")) + QStringLiteral("Bridges  ") +
           (house.bridges().isEmpty() ? none : (down + up).join(QStringLiteral(", ")));
}

QString trafficLine(const house_model_t& house, moment_t now)
{
    QStringList parts{
        QStringLiteral("Packets  %1 a second, %2 in all").arg(house.rate(now), 0, 'f', 1).arg(house.packets())};
    if (house.foreign() > 0) {
        parts << QStringLiteral("%1 that are not of this house").arg(house.foreign());
    }
    if (!house.otherInstallations().isEmpty()) {
        parts << QStringLiteral("other installations: ") +
                     harmless(house.otherInstallations().join(QStringLiteral(" ")));
    }
    if (house.brokerClients() > 0) { // it counts every ten seconds, this one too
        parts << QStringLiteral("%1 clients at the broker").arg(house.brokerClients());
    }
    return parts.join(QStringLiteral("; "));
}

QJsonValue timeOf(moment_t moment)
{
    return moment == house::never
               ? QJsonValue()
               : QJsonValue(
                     QDateTime::fromMSecsSinceEpoch(moment.count()).toOffsetFromUtc(0).toString(Qt::ISODateWithMs));
}

QString wordOf(presence_t presence)
{
    return presence == presence_t::here   ? QStringLiteral("here")
           : presence == presence_t::gone ? QStringLiteral("gone")
                                          : QStringLiteral("unknown");
}

} // namespace

QStringList pictureOf(const house_model_t& house, moment_t now, const frame_t& frame)
{
    QStringList lines{frame.title + QStringLiteral("  ") + clockOf(now)};
    if (!frame.problem.isEmpty()) {
        lines << QStringLiteral("!Link     ") + harmless(frame.problem);
    }
    lines << mastersLine(house, now) << bridgesLine(house, now) << trafficLine(house, now) << QString();

    QVector<const house_node_t*> nodes = sorted(house);
    const QVector<house_event_t>& events = house.events();
    const bool bounded = frame.rows > 0;
    const int eventLines = std::min<int>(events.size(), fewestEvents) + 2;
    const int room = bounded ? std::max<int>(1, frame.rows - lines.size() - 2 - eventLines) : nodes.size();
    const int left = nodes.size() - room;
    nodes.resize(std::min<int>(nodes.size(), room));
    if (!nodes.isEmpty()) {
        lines << tableOf(house, nodes, now, frame.columns);
    }
    if (left > 0) {
        lines << QStringLiteral("... and %1 more").arg(left);
    }
    if (bounded && !events.isEmpty()) {
        lines << QString();
        const int fit = std::max(0, std::min<int>(events.size(), frame.rows - lines.size()));
        for (int i = events.size() - fit; i < events.size(); ++i) {
            lines << lineOf(events[i]);
        }
    }
    return lines;
}

QString lineOf(const house_event_t& event)
{
    return clockOf(event.moment) + QLatin1Char(' ') + harmless(event.text());
}

QJsonObject jsonOf(const house_event_t& event)
{
    static const char* const words[] = {"came",        "gone",     "master",     "master no more", "two masters",
                                        "one master",  "follows",  "ready",      "not ready",      "bridge up",
                                        "bridge down", "encoding", "incoherent", "crowded"};
    return {{QStringLiteral("event"), QString::fromLatin1(words[event.kind])},
            {QStringLiteral("time"), timeOf(event.moment)},
            {QStringLiteral("subject"), event.subject},
            {QStringLiteral("other"), event.other},
            {QStringLiteral("text"), event.text()}};
}

QJsonObject jsonOf(const house_model_t& house, moment_t now)
{
    QJsonArray nodes;
    for (const house_node_t& node : house.nodes()) {
        nodes << QJsonObject{{QStringLiteral("id"), node.id},
                             {QStringLiteral("installation"), node.installation},
                             {QStringLiteral("role"), wordOf(node.role)},
                             {QStringLiteral("presence"), wordOf(node.presence)},
                             {QStringLiteral("is_master"), node.isMaster()},
                             {QStringLiteral("master"), node.master},
                             {QStringLiteral("master_since"), timeOf(node.masterSince)},
                             {QStringLiteral("ready"), node.ready},
                             {QStringLiteral("encoded"), node.encoded},
                             {QStringLiteral("since"), timeOf(node.since)},
                             {QStringLiteral("heard"), timeOf(node.heard)},
                             {QStringLiteral("packets"), node.sent},
                             {QStringLiteral("rate"), node.rate.perSecond(now)},
                             {QStringLiteral("prefixes"), QJsonArray::fromStringList(node.prefixes())},
                             {QStringLiteral("record"), node.record}};
    }
    QJsonArray bridges;
    for (const house_bridge_t& bridge : house.bridges()) {
        bridges << QJsonObject{{QStringLiteral("name"), bridge.name},
                               {QStringLiteral("up"), bridge.up},
                               {QStringLiteral("since"), timeOf(bridge.since)},
                               {QStringLiteral("servers"), QJsonArray::fromStringList(bridge.servers)}};
    }
    return {{QStringLiteral("event"), QStringLiteral("state")},
            {QStringLiteral("time"), timeOf(now)},
            {QStringLiteral("masters"), QJsonArray::fromStringList(house.masters())},
            {QStringLiteral("nodes"), nodes},
            {QStringLiteral("bridges"), bridges},
            {QStringLiteral("packets"), house.packets()},
            {QStringLiteral("rate"), house.rate(now)},
            {QStringLiteral("foreign"), house.foreign()},
            {QStringLiteral("other_installations"), QJsonArray::fromStringList(house.otherInstallations())},
            {QStringLiteral("broker"), house.brokerVersion()}};
}

} // namespace tools
} // namespace comunication
