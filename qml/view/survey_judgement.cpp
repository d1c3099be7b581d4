// SPDX-License-Identifier: MIT
// What a survey concludes from all that it has taken in: why nodes and brokers are gone, what is missing, what is
// wrong.
#include "survey_inside.h"

#include <algorithm>
#include <utility>

namespace comunication {
namespace view {

using house::house_bridge_t;

namespace {

constexpr moment_t hindsight{20000}; // in which a reason may turn out to be another one
constexpr int mostAlarms = 3;

} // namespace

// The bridges on the way to a broker that is not listened to, if all of them are down.
QString survey_t::inside_t::bridgeDownTo(int seat, const topology_t& topology) const
{
    QString name;
    for (const scene_line_t& line : topology.lines) {
        if (line.from != seat && line.to != seat) {
            continue;
        }
        if ((line.from == seat ? line.there : line.back) != direction_t::down) {
            return {};
        }
        name = line.down.join(QStringLiteral(", "));
    }
    return name;
}

// Whoever went with others, or with a bridge, is known only when these are gone as well.
void survey_t::inside_t::judgePartings(const topology_t& topology, moment_t now)
{
    isChecking = false;
    const auto& nodes = whole.nodes();
    QHash<QString, int> seats;
    for (int i = 0; i < nodes.size(); ++i) {
        seats.insert(nodes[i].id, topology.seats[i]);
    }
    for (told_t& told : events) {
        if (told.parting.moment != house::never && now - told.event.moment <= hindsight && told.seat < 0) {
            told.seat = seats.value(told.event.subject, -1);
        }
    }
    for (told_t& told : events) {
        if (now - told.event.moment > hindsight) {
            continue;
        }
        QString why;
        if (told.parting.moment != house::never && told.seat >= 0) {
            parting_t& parting = told.parting;
            parting.broker = topology.brokers.value(told.seat);
            parting.together = 0;
            for (const told_t& other : qAsConst(events)) {
                if (other.parting.moment != house::never && other.seat == told.seat &&
                    std::chrono::abs(other.event.moment - told.event.moment) <= sameTime) {
                    ++parting.together;
                }
            }
            parting.wereAll = true;
            for (int i = 0; i < nodes.size(); ++i) {
                parting.wereAll =
                    parting.wereAll && (topology.seats[i] != told.seat || nodes[i].presence == presence_t::gone);
            }
            parting.bridge.clear();
            if (told.seat >= names.size()) {
                for (const scene_line_t& line : topology.lines) {
                    for (const QString& bridge : line.down) {
                        const moment_t fell = bridgeFell.value(bridge, house::never);
                        if ((line.from == told.seat || line.to == told.seat) && fell != house::never &&
                            std::chrono::abs(fell - told.event.moment) <= sameTime) {
                            parting.bridge = bridge;
                        }
                    }
                }
            }
            parting.brokerIsLost = told.seat < names.size() && links[told.seat].hearing == hearing_t::lost &&
                                   std::chrono::abs(links[told.seat].since - told.event.moment) <= sameTime;
            why = whyGone(parting);
        } else if (told.lost >= 0 && links[told.lost].hearing == hearing_t::lost &&
                   links[told.lost].since == told.event.moment) {
            broker_loss_t loss;
            loss.problem = links[told.lost].problem;
            for (const scene_line_t& line : topology.lines) {
                if (line.from == told.lost || line.to == told.lost) {
                    loss.bridgesDown << line.down;
                }
            }
            for (int i = 0; i < nodes.size(); ++i) {
                loss.isHeardElsewhere =
                    loss.isHeardElsewhere || (topology.seats[i] == told.lost && nodes[i].presence == presence_t::here &&
                                              nodes[i].heard - told.event.moment > moment_t(1000));
            }
            why = whyLost(loss);
        } else {
            continue;
        }
        isChecking = true;
        if (told.event.why != why) {
            told.event.why = why;
            told.isNew = true;
        }
    }
}

void survey_t::inside_t::judgeLines(const topology_t& topology, moment_t now)
{
    const QVector<QPair<int, int>> before = std::exchange(missing, topology.missing);
    for (const auto& direction : qAsConst(missing)) {
        if (!before.contains(direction)) {
            const QString& from = names[direction.first];
            const QString& to = names[direction.second];
            tell(now, QStringLiteral("nothing goes from %1 to %2").arg(from, to), tone_t::bad, to,
                 QStringLiteral(
                     "Thought so because nodes at %1 have spoken and nothing of it arrived at %2: look at the "
                     "topic lines of the bridge")
                     .arg(from, to));
        }
    }
    for (const auto& direction : before) {
        if (!missing.contains(direction) && links[direction.second].isHeard() && links[direction.first].isHeard() &&
            !awaited.isMissing(now, direction.first, direction.second)) {
            tell(now,
                 QStringLiteral("packets go from %1 to %2 again").arg(names[direction.first], names[direction.second]),
                 tone_t::good, names[direction.second]);
        }
    }
}

QPair<presence_t, QString> survey_t::inside_t::presenceOf(const house_node_t& node, int seat,
                                                          const topology_t& topology, moment_t now) const
{
    if (node.presence == presence_t::gone) {
        for (auto told = events.crbegin(); told != events.crend(); ++told) {
            if (told->parting.moment != house::never && told->event.subject == node.id) {
                return {node.presence, told->event.why};
            }
        }
        return {node.presence, {}};
    }
    if (node.presence == presence_t::unknown) {
        return {node.presence, QStringLiteral("Only retained packets of it are known, which say nothing about now")};
    }
    static_cast<void>(now);
    if (seat >= 0 && seat < names.size()) {
        const link_t& link = links[seat];
        if (link.hearing == hearing_t::lost && node.heard - link.since <= moment_t(1000)) {
            return {presence_t::unknown, whyUnheard(names[seat])};
        }
    } else if (seat >= 0) {
        const QString bridge = bridgeDownTo(seat, topology);
        if (!bridge.isEmpty()) {
            return {presence_t::unknown, whyUnreachable(bridge)};
        }
    }
    return {node.presence, {}};
}

std::shared_ptr<const scene_facts_t> survey_t::inside_t::factsOf(const house_node_t& node, int seat, const QString& why,
                                                                 presence_t presence)
{
    known_facts_t& one = known[node.id];
    if (!one.facts || one.changed != node.changed || one.facts->broker != seat || one.facts->why != why ||
        one.facts->presence != presence) {
        auto facts = std::make_shared<scene_facts_t>();
        facts->id = node.id;
        facts->installation = node.installation;
        facts->role = node.role;
        facts->presence = presence;
        facts->isMaster = node.isMaster();
        facts->master = node.master;
        facts->ready = node.ready;
        facts->encoded = node.encoded;
        facts->since = node.since;
        facts->masterSince = node.masterSince;
        facts->record = node.record;
        facts->broker = seat;
        facts->why = why;
        one = {facts, node.changed};
    }
    return one.facts;
}

QString survey_t::inside_t::alarmOf(const topology_t& topology) const
{
    QStringList alarms;
    const bool isHeard = std::any_of(links.begin(), links.end(), [](const link_t& link) { return link.isHeard(); });
    for (const link_t& link : links) {
        if (!isHeard && !link.problem.isEmpty()) {
            alarms << QStringLiteral("no broker: ") + link.problem;
            break;
        }
    }
    const QStringList masters = whole.masters();
    if (masters.size() > 1) {
        alarms << QStringLiteral("more than one master: ") + masters.join(QStringLiteral(", "));
    } else if (masters.isEmpty() && isHeard && whole.mastersSince() != house::never) {
        alarms << QStringLiteral("no master");
    }
    for (int i = 0; i < links.size() && isHeard; ++i) {
        if (!links[i].isHeard() && !links[i].problem.isEmpty()) {
            alarms << QStringLiteral("broker %1 is not heard: %2").arg(names[i], links[i].problem);
        }
    }
    QStringList down;
    for (const house_model_t& model : models) {
        for (const house_bridge_t& bridge : model.bridges()) {
            if (!bridge.up) {
                down << plainBridgeName(bridge.name);
            }
        }
    }
    down.removeDuplicates();
    if (!down.isEmpty()) {
        alarms << (down.size() == 1 ? QStringLiteral("bridge %1 is down") : QStringLiteral("bridges %1 are down"))
                      .arg(down.mid(0, mostAlarms).join(QStringLiteral(", ")) +
                           (down.size() > mostAlarms ? QStringLiteral(" and %1 more").arg(down.size() - mostAlarms)
                                                     : QString()));
    }
    for (const auto& direction : topology.missing) {
        alarms << QStringLiteral("nothing goes from %1 to %2").arg(names[direction.first], names[direction.second]);
    }
    const int more = alarms.size() - mostAlarms;
    return alarms.mid(0, mostAlarms).join(QStringLiteral("; ")) +
           (more > 0 ? QStringLiteral("; and %1 more").arg(more) : QString());
}

} // namespace view
} // namespace comunication
