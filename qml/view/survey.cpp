// SPDX-License-Identifier: MIT
#include "survey.h"

#include "awaited.h"
#include "reasons.h"
#include "topology.h"

#include <flotrofobul/define/define.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace comunication {
namespace view {

using house::house_bridge_t;
using house::house_event_t;
using house::house_model_t;
using house::house_node_t;
using house::moment_t;
using house::presence_t;

namespace {

constexpr moment_t patience{5000};   // as long as copies of a packet may take
constexpr moment_t hindsight{20000}; // in which a reason may turn out to be another one
constexpr double forgetting = 0.8;   // of the silence that is usual, at each packet
constexpr int mostAlarms = 3;
constexpr int mostIds = 2 * house_model_t::mostNodes;

const QString bridgeStates = QStringLiteral("$SYS/broker/connection/");

QLatin1String word(const char* text)
{
    return QLatin1String(text);
}

/// What is needed of a topic, without copies.
struct topic_parts_t {
    int way = house::wayCount;
    QStringView sender;
    QStringView destination;
    QStringView kind;    ///< first level behind the destination
    QStringView subject; ///< what follows
};

QStringView nextLevel(QStringView& rest)
{
    const qsizetype slash = rest.indexOf(u'/');
    const QStringView level = slash < 0 ? rest : rest.left(slash);
    rest = slash < 0 ? QStringView() : rest.mid(slash + 1);
    return level;
}

topic_parts_t partsOf(const QString& topic)
{
    topic_parts_t parts;
    QStringView rest(topic);
    rest = rest.startsWith(u'/') ? rest.mid(1) : rest;
    const QStringView first = nextLevel(rest);
    parts.way = static_cast<int>(first == FORWARD_PREFIX                              ? house::way_t::forward
                                 : first == REMOTE_PREFIX                             ? house::way_t::remote
                                 : first == CLOUD_PREFIX_1 || first == CLOUD_PREFIX_2 ? house::way_t::cloud
                                                                                      : house::way_t::plain);
    if (parts.way != static_cast<int>(house::way_t::plain)) {
        nextLevel(rest); // "local"
    }
    nextLevel(rest); // installation
    parts.sender = nextLevel(rest);
    parts.destination = nextLevel(rest);
    parts.kind = nextLevel(rest);
    parts.subject = rest;
    return parts;
}

// Bridges in two lanes carry these and nothing else.
bool isCarried(QStringView kind)
{
    static const char* const kinds[] = {"connection", "master", "status", "request", "command", "notification"};
    return std::any_of(std::begin(kinds), std::end(kinds), [kind](const char* one) { return kind == word(one); });
}

tone_t toneOf(house_event_t::kind_t kind)
{
    switch (kind) {
    case house_event_t::came:
    case house_event_t::masterNow:
    case house_event_t::oneMaster:
    case house_event_t::readyNow:
    case house_event_t::bridgeUp: return tone_t::good;
    case house_event_t::gone:
    case house_event_t::twoMasters:
    case house_event_t::bridgeDown:
    case house_event_t::encoding:
    case house_event_t::incoherent:
    case house_event_t::crowded: return tone_t::bad;
    case house_event_t::masterNoMore:
    case house_event_t::follows:
    case house_event_t::readyNoMore: break;
    }
    return tone_t::plain;
}

// Rates to a tenth: what nobody sees is no change.
double seen(double rate)
{
    return std::round(rate * 10);
}

bool isSame(const scene_broker_t& one, const scene_broker_t& other)
{
    return one.name == other.name && one.hearing == other.hearing && one.problem == other.problem &&
           one.version == other.version && one.clients == other.clients;
}

bool isSame(const scene_line_t& one, const scene_line_t& other)
{
    return one.from == other.from && one.to == other.to && one.there == other.there && one.back == other.back &&
           one.names == other.names && one.down == other.down;
}

bool isSame(const scene_node_t& one, const scene_node_t& other)
{
    return one.facts == other.facts;
}

/// But for rates, counts and signs of life.
template <typename element_t>
bool areSame(const QVector<element_t>& ones, const QVector<element_t>& others)
{
    return ones.size() == others.size() &&
           std::equal(ones.begin(), ones.end(), others.begin(),
                      [](const element_t& one, const element_t& other) { return isSame(one, other); });
}

bool haveSameSigns(const scene_t& one, const scene_t& other)
{
    return seen(one.rate) == seen(other.rate) &&
           std::equal(one.brokers.begin(), one.brokers.end(), other.brokers.begin(),
                      [](const auto& a, const auto& b) { return seen(a.rate) == seen(b.rate); }) &&
           std::equal(one.lines.begin(), one.lines.end(), other.lines.begin(),
                      [](const auto& a, const auto& b) {
                          return a.countThere == b.countThere && a.countBack == b.countBack &&
                                 seen(a.rateThere) == seen(b.rateThere) && seen(a.rateBack) == seen(b.rateBack);
                      }) &&
           std::equal(one.nodes.begin(), one.nodes.end(), other.nodes.begin(), [](const auto& a, const auto& b) {
               return a.sent == b.sent && a.heard == b.heard && seen(a.rate) == seen(b.rate);
           });
}

} // namespace

struct survey_t::inside_t {
    inside_t(const QString& installationId, const QStringList& brokers, bool isRecording);

    /// An event with what is needed to say why, as long as that may change.
    struct told_t {
        scene_event_t event;
        parting_t parting; ///< of a node that is gone
        int lost = -1;     ///< a broker that was lost
        int seat = -1;
        bool isNew = true;
    };
    struct rhythm_t {
        moment_t last = house::never;
        moment_t before = house::never; ///< the one before the last
        moment_t usual{0};
    };
    struct known_facts_t {
        std::shared_ptr<const scene_facts_t> facts;
        quint64 changed = 0;
    };

    void bridges(moment_t now, int source);
    void packet(moment_t now, int source, const QString& topic, const QByteArray& payload, int qos, bool retain);
    void first(moment_t now, const house_node_t& node, const QString& topic, const QByteArray& payload, int qos,
               bool retain);
    void measure(moment_t now, int source, const topic_parts_t& parts);
    void moveHome(moment_t now, int source, const QString& id);
    void takeEvents();
    told_t& tell(moment_t now, const QString& text, tone_t tone, const QString& subject, const QString& why = {});
    void judgePartings(const topology_t& topology, moment_t now);
    void judgeLines(const topology_t& topology, moment_t now);
    void forgetStrangers();

    [[nodiscard]] evidence_t evidence() const { return {whole, models, names, links, homes, awaited}; }
    [[nodiscard]] std::shared_ptr<const scene_facts_t> factsOf(const house_node_t& node, int seat, const QString& why,
                                                               presence_t presence);
    [[nodiscard]] QPair<presence_t, QString> presenceOf(const house_node_t& node, int seat, const topology_t& topology,
                                                        moment_t now) const;
    [[nodiscard]] QString bridgeDownTo(int seat, const topology_t& topology) const;
    [[nodiscard]] QString alarmOf(const topology_t& topology) const;

    house_model_t whole;
    std::vector<house_model_t> models;
    QStringList names;
    QVector<link_t> links;
    QHash<QString, home_t> homes;
    awaited_t awaited;
    packet_rings_t rings;
    round_trips_t trips;
    double lastTrip = -1;
    QVector<double> newTrips;
    QHash<QString, rhythm_t> rhythms;
    QHash<QString, known_facts_t> known;
    QHash<QString, bool> bridgeState; ///< as it was told
    QHash<QString, moment_t> bridgeFell;
    QVector<quint64> toldOfModel;
    quint64 toldOfWhole = 0;
    QVector<told_t> events;
    quint64 eventCount = 0;
    QVector<QPair<int, int>> missing; ///< as it was told
    bool isChecking = false;          ///< a reason may still change
    std::optional<scene_t> last;
};

survey_t::inside_t::inside_t(const QString& installationId, const QStringList& brokers, bool isRecording)
    : whole(installationId), awaited(brokers.size())
{
    for (const QString& name : brokers) {
        QString own = name;
        for (int i = 2; names.contains(own); ++i) {
            own = name + QStringLiteral(" (%1)").arg(i);
        }
        models.emplace_back(installationId);
        link_t link;
        link.hearing = isRecording ? hearing_t::recording : hearing_t::connecting;
        awaited.setListening(links.size(), isRecording);
        names << own;
        links << link;
        toldOfModel << 0;
    }
}

survey_t::inside_t::told_t& survey_t::inside_t::tell(moment_t now, const QString& text, tone_t tone,
                                                     const QString& subject, const QString& why)
{
    if (events.size() >= mostEvents) {
        events.remove(0, mostEvents / 10);
    }
    told_t told;
    told.event = {++eventCount, now, text, why, tone, subject};
    events << told;
    return events.last();
}

// Both ends report a bridge, and do so again whenever we return.
void survey_t::inside_t::bridges(moment_t now, int source)
{
    const house_model_t& model = models[static_cast<std::size_t>(source)];
    for (const house_event_t& event : model.events()) {
        if (event.number <= toldOfModel[source]) {
            continue;
        }
        toldOfModel[source] = event.number;
        const bool up = event.kind == house_event_t::bridgeUp;
        if (!up && event.kind != house_event_t::bridgeDown) {
            continue;
        }
        const QString name = plainBridgeName(event.subject);
        const auto state = bridgeState.find(name);
        if (state != bridgeState.end() && *state == up) {
            continue;
        }
        const bool isFirst = state == bridgeState.end();
        if (bridgeState.size() < mostIds) {
            bridgeState.insert(name, up);
        }
        if (!up) {
            bridgeFell.insert(name, isFirst ? house::never : now);
        }
        house_event_t words = event;
        words.subject = name;
        tell(now, words.text(), up && isFirst ? tone_t::plain : toneOf(event.kind), name);
    }
}

void survey_t::inside_t::moveHome(moment_t now, int source, const QString& id)
{
    auto home = homes.find(id);
    if (home == homes.end()) {
        homes.insert(id, {source, now});
    } else if (home->source == source || now - home->heard >= patience) {
        *home = {source, now};
    }
}

void survey_t::inside_t::packet(moment_t now, int source, const QString& topic, const QByteArray& payload, int qos,
                                bool retain)
{
    const topic_parts_t parts = partsOf(topic);
    const QString sender = QString::fromRawData(parts.sender.data(), static_cast<int>(parts.sender.size()));
    const house_node_t* node = whole.node(sender);
    const qint64 before = node == nullptr ? 0 : node->sent;
    const quint64 revision = whole.revision();
    whole.take(now, topic, payload, qos, retain, source);
    node = whole.node(sender);
    if (node != nullptr && node->sent > before) {
        first(now, *node, topic, payload, qos, retain);
    }
    if (node != nullptr && !retain) {
        measure(now, source, parts);
        if (parts.way == static_cast<int>(house::way_t::forward)) {
            moveHome(now, source, node->id);
            if (homes[node->id].source == source && isCarried(parts.kind)) {
                awaited.said(now, source);
            }
        } else if (const auto home = homes.constFind(node->id); home != homes.constEnd() && home->source != source) {
            awaited.arrived(now, home->source, source);
        }
    }
    if (whole.revision() != revision) {
        takeEvents();
    }
}

void survey_t::inside_t::first(moment_t now, const house_node_t& node, const QString& topic, const QByteArray& payload,
                               int qos, bool retain)
{
    rings.add(now, node.id, topic, payload, qos, retain);
    if (retain) {
        return;
    }
    rhythm_t& rhythm = rhythms[node.id];
    rhythm.before = rhythm.last;
    rhythm.last = now;
    if (node.presence == presence_t::here) { // the last will says nothing of how often it speaks
        if (rhythm.before != house::never) {
            const moment_t gap = now - rhythm.before;
            rhythm.usual = std::max(gap, moment_t(std::llround(double(rhythm.usual.count()) * forgetting)));
        }
    }
}

// The first copy counts, on whichever way it comes: the answer may overtake the others.
void survey_t::inside_t::measure(moment_t now, int source, const topic_parts_t& parts)
{
    if (parts.kind == word("request")) {
        trips.ask(now, source, parts.sender, parts.destination, parts.subject);
    } else if (parts.kind == word("status")) {
        const double trip = trips.answer(now, source, parts.sender, parts.subject);
        if (trip >= 0) {
            lastTrip = trip;
            newTrips << trip;
        }
    }
}

void survey_t::inside_t::takeEvents()
{
    for (const house_event_t& event : whole.events()) {
        if (event.number <= toldOfWhole) {
            continue;
        }
        toldOfWhole = event.number;
        told_t& told = tell(event.moment, event.text(), toneOf(event.kind), event.subject);
        if (event.kind == house_event_t::gone) {
            const rhythm_t rhythm = rhythms.value(event.subject);
            told.parting.moment = event.moment;
            told.parting.silence = rhythm.before == house::never ? moment_t(-1) : event.moment - rhythm.before;
            told.parting.usual = rhythm.usual;
            isChecking = true;
        }
    }
}

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

// Strangers may come and go without end; what is kept beside the model is for those that it keeps.
void survey_t::inside_t::forgetStrangers()
{
    const auto clean = [this](auto& table) {
        if (table.size() > mostIds) {
            for (auto one = table.begin(); one != table.end();) {
                one = whole.node(one.key()) == nullptr ? table.erase(one) : std::next(one);
            }
        }
    };
    clean(homes);
    clean(rhythms);
    clean(known);
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

survey_t::survey_t(const QString& installationId, const QStringList& brokers, bool isRecording)
    : inside(std::make_unique<inside_t>(installationId, brokers, isRecording))
{}

survey_t::~survey_t() = default;

void survey_t::take(moment_t now, int source, const QString& topic, const QByteArray& payload, int qos, bool retain)
{
    inside->models[static_cast<std::size_t>(source)].take(now, topic, payload, qos, retain);
    if (!topic.startsWith(u'$')) {
        // States of bridges stand beside each other: each end has its own.
        inside->packet(now, source, topic, payload, qos, retain);
    } else if (topic.startsWith(bridgeStates)) {
        inside->bridges(now, source);
    }
}

void survey_t::setLink(moment_t now, int source, hearing_t hearing, const QString& problem)
{
    link_t& link = inside->links[source];
    const hearing_t before = std::exchange(link.hearing, hearing);
    link.problem = problem;
    inside->awaited.setListening(source, link.isHeard());
    if (before == hearing) {
        return;
    }
    link.since = now;
    inside->trips.forgetCopies();
    const QString& name = inside->names[source];
    if (link.isHeard()) {
        inside->tell(now, name + QStringLiteral(" is listened to"),
                     before == hearing_t::lost ? tone_t::good : tone_t::plain, name);
    } else if (hearing == hearing_t::lost) {
        inside->models[static_cast<std::size_t>(source)].forgetBridges();
        inside->tell(now, name + QStringLiteral(" is lost"), tone_t::bad, name, problem).lost = source;
        inside->isChecking = true;
    }
}

scene_t survey_t::scene(moment_t now)
{
    const topology_t topology = topologyOf(inside->evidence(), now);
    inside->judgePartings(topology, now);
    inside->judgeLines(topology, now);
    inside->forgetStrangers();
    scene_t scene;
    scene.moment = now;
    for (int i = 0; i < topology.brokers.size(); ++i) {
        scene_broker_t broker;
        broker.name = topology.brokers[i];
        broker.hearing = hearing_t::unheard;
        if (i < inside->links.size()) {
            const house_model_t& model = inside->models[static_cast<std::size_t>(i)];
            broker.hearing = inside->links[i].hearing;
            broker.problem = inside->links[i].problem;
            broker.version = model.brokerVersion();
            broker.clients = model.brokerClients();
            broker.rate = model.rate(now);
        }
        scene.brokers << broker;
    }
    scene.lines = topology.lines;
    const auto& nodes = inside->whole.nodes();
    scene.nodes.reserve(nodes.size());
    for (int i = 0; i < nodes.size(); ++i) {
        const house_node_t& node = nodes[i];
        const auto [presence, why] = inside->presenceOf(node, topology.seats[i], topology, now);
        scene_node_t shown;
        shown.facts = inside->factsOf(node, topology.seats[i], why, presence);
        shown.rate = node.rate.perSecond(now);
        shown.heard = node.heard;
        shown.sent = node.sent;
        std::copy(std::begin(node.packets), std::end(node.packets), std::begin(shown.packets));
        scene.nodes << shown;
    }
    for (inside_t::told_t& told : inside->events) {
        if (std::exchange(told.isNew, false)) {
            scene.events << told.event;
        }
    }
    scene.alarm = inside->alarmOf(topology);
    scene.rate = inside->whole.rate(now);
    scene.roundTrip = inside->lastTrip;
    scene.roundTrips = std::exchange(inside->newTrips, {});
    return scene;
}

std::optional<scene_t> survey_t::sceneIfChanged(moment_t now)
{
    scene_t next = scene(now);
    if (inside->last) {
        const scene_t& last = *inside->last;
        next.isNews = !next.events.isEmpty() || next.alarm != last.alarm || !areSame(next.brokers, last.brokers) ||
                      !areSame(next.lines, last.lines) || !areSame(next.nodes, last.nodes);
        if (!next.isNews && next.roundTrips.isEmpty() && haveSameSigns(next, last)) {
            return std::nullopt;
        }
    }
    inside->last = next;
    return next;
}

bool survey_t::isMoving(moment_t now) const
{
    return inside->whole.rate(now) > 0 || inside->isChecking || inside->awaited.isWaiting(now);
}

const packet_rings_t& survey_t::rings() const
{
    return inside->rings;
}

} // namespace view
} // namespace comunication
