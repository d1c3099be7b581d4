// SPDX-License-Identifier: MIT
#include "survey.h"

#include "survey_inside.h"

#include <flotrofobul/define/define.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace comunication {
namespace view {

/// What is needed of a topic, without copies.
struct topic_parts_t {
    int way = house::wayCount;
    QStringView sender;
    QStringView destination;
    QStringView kind;    ///< first level behind the destination
    QStringView subject; ///< what follows
};

namespace {

constexpr moment_t patience{5000}; // as long as copies of a packet may take
constexpr double forgetting = 0.8; // of the silence that is usual, at each packet
constexpr int mostIds = 2 * house_model_t::mostNodes;

const QString bridgeStates = QStringLiteral("$SYS/broker/connection/");

QLatin1String word(const char* text)
{
    return QLatin1String(text);
}

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
