// SPDX-License-Identifier: MIT
#include <flotrofobul/house/house_model.h>

#include <flotrofobul/define/packet.h>
#include <flotrofobul/house/house_book.h>
#include <flotrofobul/platform/text.h>

#include <algorithm>

namespace comunication {
namespace house {

namespace {

constexpr double longestMastership = 1e9; // seconds; whoever says more is not believed
constexpr int longestRecord = 65536;      // bytes of a presentation
constexpr int mostInstallations = 10;

const QString bridgeStates = QStringLiteral("$SYS/broker/connection/");
const QString presentationCommand = commandOf(topicOf(presentation));
const QString electionCommand = commandOf(topicOf(masterelection));
const QString readyCommand = commandOf(topicOf(pkgClientReady));
const QString houseCommand = QStringLiteral("connection/house");

} // namespace

/// Reads packets, and enters into the book what follows from them.
struct house_model_t::inside_t : house_book_t {
    explicit inside_t(const QString& givenInstallationId) : installationId(givenInstallationId) {}

    bool isOurs(QStringView installation) const
    {
        return installationId.isEmpty() || std::all_of(installation.begin(), installation.end(),
                                                       [this](QChar c) { return installationId.contains(c); });
    }
    void broker(const QString& topic, const QByteArray& payload);
    void packet(const parts_t& parts, const QByteArray& payload, bool retain, int source);
    void presented(house_node_t& node, const QJsonObject& record);

    const QString installationId;
    std::function<void()> observer;
    qint64 packets = 0;
    qint64 foreign = 0;
    rate_t rate;
    QStringList otherInstallations;
    QString brokerVersion;
    int brokerClients = -1;
};

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
        node->role = roleOf(kind);
        if (node->role != role_t::unknown) {
            touch(*node);
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
