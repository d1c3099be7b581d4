// SPDX-License-Identifier: MIT
#include <flotrofobul/house/house_model.h>

#include <flotrofobul/define/packet.h>
#include <flotrofobul/platform/jsonserializer/json_text.h>
#include <flotrofobul/platform/secrets.h>
#include <flotrofobul/platform/text.h>

#include <QtCore/QHash>
#include <QtCore/QJsonDocument>

#include <algorithm>

namespace comunication {
namespace house {

namespace {

constexpr moment_t window{10000};
constexpr moment_t patience{5000};        // for copies of a packet
constexpr int longestId = 200;            // characters; longer ones are no node's
constexpr double longestMastership = 1e9; // seconds; whoever says more is not believed
constexpr int longestRecord = 65536;      // bytes of a presentation
constexpr int longestText = 200;          // characters of a value in a record
constexpr int mostInstallations = 10;

const QString dataKey = QStringLiteral("d");
const QString bridgeStates = QStringLiteral("$SYS/broker/connection/");
const QString serverPrefix = QStringLiteral("tarnel-server-");
const QString presentationCommand = commandOf(topicOf(presentation));
const QString electionCommand = commandOf(topicOf(masterelection));
const QString readyCommand = commandOf(topicOf(pkgClientReady));
const QString houseCommand = QStringLiteral("connection/house");

struct wayName_t {
    const QString& name;
    way_t way;
};
const wayName_t wayNames[] = {{FORWARD_PREFIX, way_t::forward},
                              {REMOTE_PREFIX, way_t::remote},
                              {CLOUD_PREFIX_1, way_t::cloud},
                              {CLOUD_PREFIX_2, way_t::cloud}};

/// What the first level after the destination says of who speaks.
struct speaker_t {
    QLatin1String level;
    role_t role;
};
constexpr speaker_t speakers[] = {
    {"status"_l1, role_t::server},  {"notification"_l1, role_t::server}, {"master"_l1, role_t::server},
    {"request"_l1, role_t::client}, {"command"_l1, role_t::client},
};

/// The parts of a topic of the protocol, without copies.
struct parts_t {
    way_t way = way_t::plain;
    QStringView installation;
    QStringView sender;
    QStringView destination;
    QStringView value;
};

QStringView nextLevel(QStringView& rest)
{
    const qsizetype slash = rest.indexOf(u'/');
    const QStringView level = slash < 0 ? rest : rest.left(slash);
    rest = slash < 0 ? QStringView() : rest.mid(slash + 1);
    return level;
}

bool split(const QString& topic, parts_t* parts)
{
    QStringView rest(topic);
    if (rest.startsWith(u'/')) {
        rest = rest.mid(1);
    }
    QStringView level = nextLevel(rest);
    for (const wayName_t& one : wayNames) {
        if (level == one.name) {
            parts->way = one.way;
            level = nextLevel(rest);
            break;
        }
    }
    parts->installation = nextLevel(rest);
    parts->sender = nextLevel(rest);
    parts->destination = nextLevel(rest);
    parts->value = rest;
    return level == LOCAL_PREFIX && !parts->installation.isEmpty() && !parts->sender.isEmpty() &&
           parts->sender.size() <= longestId && !parts->destination.isEmpty() && !parts->value.isEmpty();
}

/// Whether a destination stands for several nodes.
bool isWord(QStringView destination)
{
    return destination == "own_server"_l1 || destination.startsWith("all"_l1);
}

/// The text of a view as a key to look up; valid as long as the view is.
QString borrowed(QStringView view)
{
    return QString::fromRawData(view.data(), static_cast<int>(view.size()));
}

// As "{" begins in Base64, as decodedJson() has it. Cheap enough for every packet.
bool looksEncoded(const QByteArray& payload)
{
    return payload.startsWith('e');
}

QJsonValue valueIn(const QByteArray& payload)
{
    const QByteArray json = looksEncoded(payload) ? decodedJson(textUpToZero(payload)) : payload;
    return documentFromForeignJson(json).object().value(dataKey);
}

QJsonObject shortened(const QJsonObject& record)
{
    static const char* const keys[] = {"clientid", "type",        "os",        "versionLib", "versionApp",
                                       "hostname", "publishDate", "connected", "brokerip",   "masterid"};
    QJsonObject result;
    for (const char* const key : keys) {
        const QJsonValue value = record.value(QLatin1String(key));
        if (value.isBool()) {
            result.insert(QLatin1String(key), value);
        } else if (value.isString()) {
            result.insert(QLatin1String(key), value.toString().left(longestText));
        }
    }
    return result;
}

} // namespace

void rate_t::add(moment_t now)
{
    if (begin == never || now - begin >= 2 * window || now < begin) {
        begin = now;
        current = 0;
        last = 0;
    } else if (now - begin >= window) {
        begin += window;
        last = current;
        current = 0;
    }
    ++current;
}

double rate_t::perSecond(moment_t now) const
{
    if (begin == never || now - begin >= 2 * window) {
        return 0;
    }
    const double seconds = double(window.count()) / 1000;
    const double into = std::max(0.0, double((now - begin).count()) / 1000);
    if (into >= seconds) {
        return current * (2 * seconds - into) / seconds / seconds;
    }
    // The first window is short; afterwards the part of the last one that still counts is added.
    return last == 0 ? current / std::max(1.0, into) : (current + last * (seconds - into) / seconds) / seconds;
}

QStringList house_node_t::prefixes() const
{
    static const QString names[wayCount] = {FORWARD_PREFIX, REMOTE_PREFIX, CLOUD_PREFIX_1, QStringLiteral("plain")};
    QStringList result;
    for (int i = 0; i < wayCount; ++i) {
        if (packets[i] > 0) {
            result << names[i];
        }
    }
    return result;
}

QString wordOf(role_t role)
{
    return role == role_t::server   ? QStringLiteral("server")
           : role == role_t::client ? QStringLiteral("client")
                                    : QStringLiteral("?");
}

QString house_event_t::text() const
{
    switch (kind) {
    case came: return subject + (other.isEmpty() ? QStringLiteral(" is there") : " is there, master "_l1 + other);
    case gone: return subject + " has left, or its last will says so"_l1;
    case masterNow: return subject + " is master now"_l1;
    case masterNoMore: return subject + " is master no more"_l1;
    case twoMasters: return "more than one master: "_l1 + other;
    case oneMaster: return "one master again: "_l1 + other;
    case follows: return other.isEmpty() ? QString(subject + " follows nobody"_l1) : subject + " follows "_l1 + other;
    case readyNow: return subject + " is ready, it listens to "_l1 + other;
    case readyNoMore: return subject + " is not ready any more"_l1;
    case bridgeUp: return "bridge "_l1 + subject + " is up"_l1;
    case bridgeDown: return "bridge "_l1 + subject + " is down"_l1;
    case encoding: return subject + " has encoding on: its payloads are Base64, which engines do not decode"_l1;
    case incoherent: return "a presentation of "_l1 + subject + " that engines refuse: "_l1 + other;
    case crowded: return QStringLiteral("more nodes than are kept: the longest silent ones are forgotten");
    }
    return {};
}

struct house_model_t::inside_t {
    explicit inside_t(const QString& installationId) : installationId(installationId) {}

    bool isOurs(QStringView installation) const
    {
        return installationId.isEmpty() || std::all_of(installation.begin(), installation.end(),
                                                       [this](QChar c) { return installationId.contains(c); });
    }
    void note(house_event_t::kind_t kind, const QString& subject, const QString& other = QString());
    void touch(house_node_t& node) { node.changed = ++revision; }
    house_node_t* find(const parts_t& parts);
    house_node_t* admit(const parts_t& parts, bool presents);
    void reindex();

    void broker(const QString& topic, const QByteArray& payload);
    void bridge(const QString& name, const QByteArray& payload);
    void packet(const parts_t& parts, const QByteArray& payload, bool retain, int source);
    bool isFirst(house_node_t::channel_t& channel, int way, int source) const;
    void presented(house_node_t& node, const QJsonObject& record);
    void arrive(house_node_t& node);
    void leave(house_node_t& node);
    void setMaster(house_node_t& node, const QString& master, moment_t since);
    void setReady(house_node_t& node, bool ready, const QString& master);
    void loseListeners(const QString& master);
    void countMasters();

    const QString installationId;
    moment_t now{0};
    QVector<house_node_t> nodes;
    QHash<QString, int> places;
    QVector<house_bridge_t> bridges;
    QVector<house_event_t> events;
    QStringList masters;
    moment_t mastersSince = never;
    quint64 revision = 0;
    quint64 lastRemoval = 0;
    bool isCrowded = false;
    std::function<void()> observer;
    qint64 packets = 0;
    qint64 foreign = 0;
    rate_t rate;
    QStringList otherInstallations;
    QString brokerVersion;
    int brokerClients = -1;
};

void house_model_t::inside_t::note(house_event_t::kind_t kind, const QString& subject, const QString& other)
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

house_node_t* house_model_t::inside_t::find(const parts_t& parts)
{
    const auto place = places.constFind(borrowed(parts.sender));
    return place == places.constEnd() ? nullptr : &nodes[*place];
}

// Whoever has presented itself comes in, for the longest silent of those that are gone, or have never presented
// themselves, or of all.
house_node_t* house_model_t::inside_t::admit(const parts_t& parts, bool presents)
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

void house_model_t::inside_t::reindex()
{
    places.clear();
    for (int i = 0; i < nodes.size(); ++i) {
        places.insert(nodes[i].id, i);
    }
}

void house_model_t::inside_t::broker(const QString& topic, const QByteArray& payload)
{
    if (topic.startsWith(bridgeStates)) {
        bridge(topic.section(u'/', 3, 3), payload);
    } else if (topic == "$SYS/broker/version"_l1) {
        brokerVersion = textUpToZero(payload.left(longestText));
    } else if (topic == "$SYS/broker/clients/connected"_l1) {
        bool isNumber = false;
        const int count = payload.toInt(&isNumber);
        brokerClients = isNumber ? count : brokerClients;
    }
}

void house_model_t::inside_t::bridge(const QString& name, const QByteArray& payload)
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
bool house_model_t::inside_t::isFirst(house_node_t::channel_t& channel, int way, int source) const
{
    const bool isSame = way == channel.way && source == channel.source;
    if (!isSame && way >= channel.way && now - channel.heard < patience) {
        return false;
    }
    channel = {way, source, now};
    return true;
}

void house_model_t::inside_t::packet(const parts_t& parts, const QByteArray& payload, bool retain, int source)
{
    const bool presents = parts.value == presentationCommand;
    house_node_t* node = find(parts);
    if (node == nullptr) {
        node = admit(parts, presents);
        if (node == nullptr) {
            return;
        }
    }
    ++node->packets[static_cast<int>(parts.way)];
    if (!retain && !isFirst(node->channel, static_cast<int>(parts.way), source)) {
        return;
    }
    ++node->sent;
    node->rate.add(now);
    if (looksEncoded(payload) && !node->encoded && !valueIn(payload).isUndefined()) {
        node->encoded = true;
        touch(*node);
        note(house_event_t::encoding, node->id);
    }
    if (presents) {
        if (payload.size() <= longestRecord) {
            presented(*node, valueIn(payload).toObject());
        }
        return;
    }
    const QStringView first = parts.value.left(std::max<qsizetype>(parts.value.indexOf(u'/'), 0));
    const QStringView kind = first.isEmpty() ? parts.value : first;
    if (node->role == role_t::unknown) {
        for (const speaker_t& speaker : speakers) {
            if (kind == speaker.level) {
                node->role = speaker.role;
                touch(*node);
            }
        }
    }
    if (retain) { // it says nothing about now
        return;
    }
    arrive(*node);
    if (parts.value == readyCommand) {
        const QString text = valueIn(payload).toString();
        setMaster(*node, parts.destination.left(longestId).toString(), never);
        setReady(*node, text == "1"_l1, parts.destination.toString());
    } else if (parts.value == electionCommand) {
        // A master that yields names itself, to all panels. Whoever is named elsewhere presents itself in its turn.
        if (valueIn(payload).toObject().value("masterid"_l1).toString() == node->id && node->master == node->id) {
            setMaster(*node, QString(), never);
        }
    } else if (parts.value == houseCommand) {
        const QJsonObject sign = valueIn(payload).toObject();
        node->role = role_t::server;
        setMaster(*node, sign.value("master"_l1).toString().left(longestId),
                  now -
                      std::chrono::seconds(qint64(qBound(0.0, sign.value("since"_l1).toDouble(), longestMastership))));
    } else if (kind == "request"_l1 && node->role == role_t::client && parts.destination != node->master &&
               !isWord(parts.destination)) {
        setMaster(*node, parts.destination.left(longestId).toString(), never);
    }
}

void house_model_t::inside_t::presented(house_node_t& node, const QJsonObject& record)
{
    const auto refuse = [&](const QString& why) {
        if (node.record.value("refused"_l1).toString() != why) { // once, not at each of its packets
            node.record.insert("refused"_l1, why);
            note(house_event_t::incoherent, node.id, why);
        }
    };
    if (record.value("clientid"_l1).toString() != node.id) {
        refuse(record.isEmpty() ? QStringLiteral("its payload is no presentation")
                                : "it calls itself "_l1 + record.value("clientid"_l1).toString().left(longestText));
        return;
    }
    const QString type = record.value("type"_l1).toString();
    const role_t role = type == utility::service_t::server.ToString()   ? role_t::server
                        : type == utility::service_t::client.ToString() ? role_t::client
                                                                        : role_t::unknown;
    if (role == role_t::unknown || !record.contains("connected"_l1)) {
        refuse(role == role_t::unknown ? "its type is \""_l1 + type.left(longestText) + u'"'
                                       : QStringLiteral("it does not say whether it is connected"));
        return;
    }
    const QJsonObject brief = shortened(record);
    node.presented = true;
    node.role = role;
    if (node.record != brief) {
        node.record = brief;
        touch(node);
    }
    if (!record.value("connected"_l1).toBool()) {
        leave(node);
        return;
    }
    const QString master = record.value("masterid"_l1).toString().left(longestId);
    const bool isNew = node.presence != presence_t::here;
    if (isNew) {
        // Said once, with its master.
        node.presence = presence_t::here;
        node.since = now;
        note(house_event_t::came, node.id, master == node.id ? QString() : master);
        node.changed = revision;
        if (master != node.id) {
            node.master = master;
        }
    }
    node.heard = now;
    setMaster(node, master, never);
}

void house_model_t::inside_t::arrive(house_node_t& node)
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

void house_model_t::inside_t::leave(house_node_t& node)
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

void house_model_t::inside_t::setMaster(house_node_t& node, const QString& master, moment_t since)
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
void house_model_t::inside_t::loseListeners(const QString& master)
{
    for (house_node_t& node : nodes) {
        if (node.ready && node.master == master) {
            node.ready = false;
            touch(node);
        }
    }
}

void house_model_t::inside_t::setReady(house_node_t& node, bool ready, const QString& master)
{
    if (node.ready != ready) {
        node.ready = ready;
        note(ready ? house_event_t::readyNow : house_event_t::readyNoMore, node.id, master);
        node.changed = revision;
    }
}

void house_model_t::inside_t::countMasters()
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

house_model_t::house_model_t(const QString& installationId) : inside(std::make_unique<inside_t>(installationId))
{}

house_model_t::~house_model_t() = default;
house_model_t::house_model_t(house_model_t&&) noexcept = default;
house_model_t& house_model_t::operator=(house_model_t&&) noexcept = default;

void house_model_t::take(moment_t now, const QString& topic, const QByteArray& payload, int, bool retain, int source)
{
    const quint64 before = inside->revision;
    inside->now = now;
    parts_t parts;
    if (topic.startsWith(u'$')) {
        inside->broker(topic, payload);
    } else if (!split(topic, &parts)) {
        inside->rate.add(now);
        ++inside->foreign;
    } else if (!inside->isOurs(parts.installation)) {
        inside->rate.add(now);
        ++inside->foreign;
        if (inside->otherInstallations.size() < mostInstallations && parts.installation.size() <= longestId &&
            !inside->otherInstallations.contains(borrowed(parts.installation))) {
            inside->otherInstallations << parts.installation.toString();
            ++inside->revision;
        }
    } else {
        inside->rate.add(now);
        ++inside->packets;
        inside->packet(parts, payload, retain, source);
    }
    if (inside->revision != before && inside->observer) {
        inside->observer();
    }
}

void house_model_t::forgetBridges()
{
    if (!inside->bridges.isEmpty()) {
        inside->bridges.clear();
        inside->lastRemoval = ++inside->revision;
    }
}

const QVector<house_node_t>& house_model_t::nodes() const
{
    return inside->nodes;
}

const house_node_t* house_model_t::node(const QString& id) const
{
    const int place = inside->places.value(id, -1);
    return place < 0 ? nullptr : &inside->nodes.at(place);
}

const QVector<house_bridge_t>& house_model_t::bridges() const
{
    return inside->bridges;
}

QStringList house_model_t::masters() const
{
    return inside->masters;
}

moment_t house_model_t::mastersSince() const
{
    return inside->mastersSince;
}

const QVector<house_event_t>& house_model_t::events() const
{
    return inside->events;
}

quint64 house_model_t::revision() const
{
    return inside->revision;
}

quint64 house_model_t::lastRemoval() const
{
    return inside->lastRemoval;
}

void house_model_t::setObserver(std::function<void()> changed)
{
    inside->observer = std::move(changed);
}

qint64 house_model_t::packets() const
{
    return inside->packets;
}

qint64 house_model_t::foreign() const
{
    return inside->foreign;
}

double house_model_t::rate(moment_t now) const
{
    return inside->rate.perSecond(now);
}

QStringList house_model_t::otherInstallations() const
{
    return inside->otherInstallations;
}

QString house_model_t::brokerVersion() const
{
    return inside->brokerVersion;
}

int house_model_t::brokerClients() const
{
    return inside->brokerClients;
}

} // namespace house
} // namespace comunication
