// SPDX-License-Identifier: MIT
#include "bridges/bridge_report.h"

#include "house_plan/bridge_lines.h"

#include <flotrofobul/define/define.h>

#include <QtCore/QJsonArray>

#include <algorithm>

namespace comunication {
namespace tools {

namespace {

QString nameOf(const node_t& node)
{
    return node.name.isEmpty() ? QStringLiteral("the cloud broker") : QStringLiteral("box ") + node.name;
}

QString addressOf(const QString& host, int port)
{
    return (host.contains(u':') ? QStringLiteral("[%1]:%2") : QStringLiteral("%1:%2")).arg(host).arg(port);
}

QString join(QStringList words)
{
    if (words.size() < 2) {
        return words.join(QString());
    }
    const QString last = words.takeLast();
    return words.join(QStringLiteral(", ")) + QStringLiteral(" and ") + last;
}

QString times(int count)
{
    return count == 1   ? QStringLiteral("once")
           : count == 2 ? QStringLiteral("twice")
                        : QStringLiteral("%1 times").arg(count);
}

bool carries(lane_t lane, const QString& kind)
{
    const bool presence = kind == QLatin1String("connection") || kind == QLatin1String("status");
    return lane == lane_t::everything || (lane == lane_t::presence) == presence;
}

class judge_t {
public:
    judge_t(const house_plan_t& givenPlan, const check_result_t& givenResult)
        : plan(givenPlan), result(givenResult), bridges(bridgesOf(givenPlan))
    {}

    QVector<finding_t> run()
    {
        for (int i = 0; i < result.nodes.size(); ++i) {
            judgeNode(i);
        }
        for (const direction_t& direction : result.directions) {
            if (result.nodes[direction.from].ready && result.nodes[direction.to].ready) {
                judgeCopies(direction);
            }
        }
        return findings;
    }

private:
    void add(const char* kind, const direction_t& direction, const QString& text, const QStringList& help)
    {
        findings << finding_t{QLatin1String(kind), result.nodes[direction.from].name, result.nodes[direction.to].name,
                              text, help};
    }

    const direction_t& at(int from, int to) const { return result.directions[from * result.nodes.size() + to]; }

    // Whether a node hears itself, without any bridge.
    bool hearsItself(int node) const
    {
        const copies_t echo = at(node, node).arrived.value(FORWARD_PREFIX);
        return !echo.isEmpty() && !echo.contains(0);
    }

    void judgeNode(int index)
    {
        const node_t& node = result.nodes[index];
        if (!node.ready) {
            findings << finding_t{QStringLiteral("broker"),
                                  node.name,
                                  QString(),
                                  nameOf(node) + QStringLiteral(": ") + node.problem,
                                  {QStringLiteral("nothing to or from it could be tried")}};
        } else if (!hearsItself(index)) {
            findings << finding_t{
                QStringLiteral("deaf"),
                node.name,
                QString(),
                QStringLiteral("%1: what is published on forward-bridge/ does not come back from its own broker")
                    .arg(nameOf(node)),
                {QStringLiteral("its access lists have to let this user publish and read")}};
        }
    }

    void judgeCopies(const direction_t& direction)
    {
        const QString expected = expectedPrefix(result, direction);
        const bool itself = direction.from == direction.to;
        if (!itself && hearsItself(direction.from) && hearsItself(direction.to)) {
            judgeMissing(direction, direction.arrived.value(expected));
        }
        for (auto it = direction.arrived.begin(); it != direction.arrived.end(); ++it) {
            const int most = *std::max_element(it->begin(), it->end());
            if (it.key() == expected && most > 1) {
                judgeDoubled(direction, *it, most);
            } else if (it.key() != expected) {
                judgeStray(direction, it.key(), most);
            }
        }
    }

    QString way(const direction_t& direction) const
    {
        return QStringLiteral("%1 to %2").arg(nameOf(result.nodes[direction.from]), nameOf(result.nodes[direction.to]));
    }

    void judgeMissing(const direction_t& direction, const copies_t& copies)
    {
        QStringList missing;
        for (int i = 0; i < probedKinds().size(); ++i) {
            if (copies.value(i) == 0) {
                missing << probedKinds()[i];
            }
        }
        if (missing.isEmpty()) {
            return;
        }
        const QString what = missing.size() == probedKinds().size() ? QStringLiteral("nothing arrives")
                             : missing.size() == 1                  ? missing[0] + QStringLiteral(" does not arrive")
                                                                    : join(missing) + QStringLiteral(" do not arrive");
        QStringList help;
        for (const bridge_t& bridge : bridgesBetween(direction.from, direction.to)) {
            const bool concerned = std::any_of(missing.begin(), missing.end(),
                                               [&](const QString& kind) { return carries(bridge.lane, kind); });
            if (concerned) {
                help << stateOf(bridge);
            }
        }
        add("missing", direction, way(direction) + QStringLiteral(": ") + what, help);
    }

    int nodeOf(int end) const { return end == bridge_t::cloud ? result.nodes.size() - 1 : end; }

    // The planned bridges on the way from one node to another.
    QVector<bridge_t> bridgesBetween(int from, int to) const
    {
        QVector<int> stations{from};
        const bool toCloud = result.nodes[to].name.isEmpty();
        const int gate = plan.cloudIndex();
        const auto passThrough = [&](int station) {
            if (station >= 0 && !stations.contains(station)) {
                stations << station;
            }
        };
        if (result.nodes[from].name.isEmpty()) {
            passThrough(gate);
        }
        const int beforeLast = toCloud ? gate : to;
        if (plan.shape == shape_t::star && stations.last() != beforeLast) {
            passThrough(plan.indexOf(plan.hub));
        }
        passThrough(beforeLast);
        passThrough(to);

        QVector<bridge_t> found;
        for (int i = 1; i < stations.size(); ++i) {
            for (const bridge_t& bridge : bridges) {
                const int dialling = bridge.from;
                const int dialled = nodeOf(bridge.to);
                if ((dialling == stations[i - 1] && dialled == stations[i]) ||
                    (dialling == stations[i] && dialled == stations[i - 1] && plan.shape != shape_t::outOnly) ||
                    (dialling == stations[i] && bridge.to == bridge_t::cloud && dialled == stations[i - 1])) {
                    found << bridge;
                }
            }
        }
        return found;
    }

    QString stateOf(const bridge_t& bridge) const
    {
        const node_t& dialling = result.nodes[bridge.from];
        const QString subject = QStringLiteral("the bridge %1 at %2").arg(bridge.remoteClientId, nameOf(dialling));
        if (!dialling.ready) {
            return subject + QStringLiteral(" would carry it");
        }
        if (!dialling.bridges.contains(bridge.remoteClientId)) {
            return subject +
                   QStringLiteral(" is not known there: are its lines in place, and was its mosquitto restarted?");
        }
        const endpoint_t endpoint = plannedEndpoint(plan, bridge);
        return dialling.bridges.value(bridge.remoteClientId)
                   ? subject + QStringLiteral(" is up: are its topic lines as written, and do the access lists of both "
                                              "brokers let it publish and read?")
                   : subject + QStringLiteral(" is down: can that box reach %1, and are the user name and the password "
                                              "right?")
                                   .arg(addressOf(endpoint.host, endpoint.port));
    }

    // Bridges that the description does not have.
    QStringList strangers() const
    {
        QStringList words;
        for (const node_t& node : result.nodes) {
            for (auto it = node.bridges.begin(); it != node.bridges.end(); ++it) {
                const bool planned = std::any_of(bridges.begin(), bridges.end(), [&](const bridge_t& bridge) {
                    return bridge.remoteClientId == it.key() || bridge.localClientId == it.key();
                });
                if (!planned) {
                    words << QStringLiteral("%1 reports the bridge %2, which the description does not have")
                                 .arg(nameOf(node), it.key());
                }
            }
        }
        return words;
    }

    void judgeDoubled(const direction_t& direction, const copies_t& copies, int most)
    {
        QStringList doubled;
        for (int i = 0; i < copies.size(); ++i) {
            if (copies[i] > 1) {
                doubled << probedKinds()[i];
            }
        }
        const QString what = doubled.size() == probedKinds().size() ? QStringLiteral("everything") : join(doubled);
        add("doubled", direction,
            QStringLiteral("%1: %2 arrive%3 %4")
                .arg(way(direction), what, QLatin1String(what.contains(QLatin1Char(' ')) ? "" : "s"), times(most)),
            strangers() << QStringLiteral("is there a bridge at both ends, or an older one that stayed?"));
    }

    void judgeStray(const direction_t& direction, const QString& prefix, int most)
    {
        const node_t& to = result.nodes[direction.to];
        if (direction.from == direction.to) {
            add("loop", direction,
                QStringLiteral("%1: what it says comes back to it, %2, under %3/").arg(nameOf(to), times(most), prefix),
                strangers() << QStringLiteral(
                    "only the hub of a star passes on what it has heard under remote-bridge/"));
        } else if (prefix == FORWARD_PREFIX) {
            add("stray", direction,
                way(direction) + QStringLiteral(": it arrives under forward-bridge/, as it was said"),
                strangers() << QStringLiteral("are both one broker, or does a bridge leave the prefix as it is?"));
        } else {
            add("stray", direction,
                QStringLiteral("%1: it also arrives under %2/, %3").arg(way(direction), prefix, times(most)),
                strangers());
        }
    }

    const house_plan_t& plan;
    const check_result_t& result;
    const QVector<bridge_t> bridges;
    QVector<finding_t> findings;
};

// What a person reads in the table.
QString cellOf(const check_result_t& result, const direction_t& direction)
{
    if (!result.nodes[direction.from].ready || !result.nodes[direction.to].ready) {
        return QStringLiteral("?");
    }
    if (direction.from == direction.to) {
        return QStringLiteral(".");
    }
    const copies_t copies = direction.arrived.value(expectedPrefix(result, direction));
    const int arrived =
        static_cast<int>(std::count_if(copies.begin(), copies.end(), [](int count) { return count > 0; }));
    if (arrived == 0) {
        return QStringLiteral("none");
    }
    const int most = *std::max_element(copies.begin(), copies.end());
    return arrived < copies.size() ? QStringLiteral("part") : most > 1 ? times(most) : QStringLiteral("once");
}

QString headOf(const node_t& node)
{
    return node.name.isEmpty() ? QStringLiteral("cloud") : node.name;
}

} // namespace

QVector<finding_t> findingsOf(const house_plan_t& plan, const check_result_t& result)
{
    return judge_t(plan, result).run();
}

QStringList wordsOf(const check_result_t& result, const QVector<finding_t>& findings)
{
    int width = 5;
    for (const node_t& node : result.nodes) {
        width = std::max<int>(width, headOf(node).size());
    }
    QStringList lines{QStringLiteral("from \\ to").leftJustified(width + 4)};
    for (const node_t& node : result.nodes) {
        lines[0] += QStringLiteral("  ") + headOf(node).leftJustified(std::max(width, 8));
    }
    for (const direction_t& direction : result.directions) {
        if (direction.to == 0) {
            lines << headOf(result.nodes[direction.from]).leftJustified(std::max(width + 4, 9));
        }
        lines.last() += QStringLiteral("  ") + cellOf(result, direction).leftJustified(std::max(width, 8));
    }
    for (QString& line : lines) {
        while (line.endsWith(QLatin1Char(' '))) {
            line.chop(1);
        }
    }
    lines << QString();
    for (const finding_t& finding : findings) {
        lines << finding.text;
        for (const QString& help : finding.help) {
            lines << QStringLiteral("    ") + help;
        }
    }
    if (findings.isEmpty()) {
        const int count = result.nodes.size() * (result.nodes.size() - 1);
        lines << QStringLiteral("Fine: %1 brokers, %2 directions, each of %3 kinds of packets arrived once.")
                     .arg(result.nodes.size())
                     .arg(count)
                     .arg(probedKinds().size());
    }
    return lines;
}

QJsonObject jsonOf(const check_result_t& result, const QVector<finding_t>& findings)
{
    QJsonArray brokers;
    for (const node_t& node : result.nodes) {
        QJsonObject bridges;
        for (auto it = node.bridges.begin(); it != node.bridges.end(); ++it) {
            bridges.insert(it.key(), *it ? QStringLiteral("up") : QStringLiteral("down"));
        }
        brokers << QJsonObject{{QStringLiteral("name"), headOf(node)},
                               {QStringLiteral("cloud"), node.name.isEmpty()},
                               {QStringLiteral("address"), addressOf(node.broker.host, node.broker.port)},
                               {QStringLiteral("ready"), node.ready},
                               {QStringLiteral("problem"), node.problem},
                               {QStringLiteral("bridges"), bridges}};
    }
    QJsonArray directions;
    for (const direction_t& direction : result.directions) {
        QJsonObject arrived;
        for (auto it = direction.arrived.begin(); it != direction.arrived.end(); ++it) {
            QJsonObject kinds;
            for (int i = 0; i < it->size(); ++i) {
                kinds.insert(probedKinds()[i], it->at(i));
            }
            arrived.insert(it.key(), kinds);
        }
        directions << QJsonObject{{QStringLiteral("from"), headOf(result.nodes[direction.from])},
                                  {QStringLiteral("to"), headOf(result.nodes[direction.to])},
                                  {QStringLiteral("arrived"), arrived}};
    }
    QJsonArray list;
    for (const finding_t& finding : findings) {
        list << QJsonObject{{QStringLiteral("kind"), finding.kind},
                            {QStringLiteral("from"), finding.from},
                            {QStringLiteral("to"), finding.to},
                            {QStringLiteral("text"), finding.text},
                            {QStringLiteral("help"), QJsonArray::fromStringList(finding.help)}};
    }
    return {{QStringLiteral("ok"), findings.isEmpty()},
            {QStringLiteral("brokers"), brokers},
            {QStringLiteral("directions"), directions},
            {QStringLiteral("findings"), list}};
}

} // namespace tools
} // namespace comunication
