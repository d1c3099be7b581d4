// SPDX-License-Identifier: MIT
#include "panel.h"

#include "configuration.h"

#include <QtCore/QCoreApplication>

#include <algorithm>
#include <utility>

namespace comunication {
namespace qml {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds leaveTime{2000}; // the last will needs one second to go

/// The kinds of status, in the order of panel_t::statuses.
struct kind_t {
    const char* name;
    const char* level; ///< in topics
    void (protobase_t::*arrived)(QJsonObject);
    void (panel_t::*changed)();
};
const kind_t kinds[] = {
    {"persistent", "persistent", &protobase_t::onDatabasePersistentStatus, &panel_t::persistentChanged},
    {"realtime", "realtime", &protobase_t::onDatabaseRealtimeStatus, &panel_t::realtimeChanged},
    {"presenceSimulation", "presencesimulation", &protobase_t::onDatabasePresenceSimulationStatus,
     &panel_t::presenceSimulationChanged},
};

QString topicOf(const char* what, const kind_t& kind)
{
    return QLatin1String(what) + QStringLiteral("/DB/") + QLatin1String(kind.level);
}

/// Puts a value where a path of keys leads.
void put(QJsonObject& object, const QStringList& path, const QJsonValue& value)
{
    if (path.size() == 1) {
        object.insert(path.first(), value);
        return;
    }
    QJsonObject inner = object.value(path.first()).toObject();
    put(inner, path.mid(1), value);
    object.insert(path.first(), inner);
}

QJsonObject merged(const QMap<QString, QJsonValue>& parts)
{
    QJsonObject whole;
    for (auto part = parts.begin(); part != parts.end(); ++part) { // the shortest path first
        const QStringList path = part.key().split(QLatin1Char('/'), Qt::SkipEmptyParts);
        if (!path.isEmpty()) {
            put(whole, path, part.value());
        } else if (part->isObject()) {
            whole = part->toObject();
        } else {
            whole.insert(QStringLiteral("value"), part.value());
        }
    }
    return whole;
}

} // namespace

void panel_engine_t::onMessage(int mid, topic_t topic, QJsonValue value, int qos, bool retain)
{
    const QPointer<panel_engine_t> alive(this);
    const QString before = getServerId();
    kept = retain;
    protoclient_t::onMessage(mid, topic, value, qos, retain);
    if (alive && getServerId() != before) {
        Q_EMIT masterChanged();
    }
}

panel_t::panel_t(QObject* parent) : QObject(parent), hostVersion(QCoreApplication::applicationVersion())
{
    beginning.setSingleShot(true);
    connect(&beginning, &QTimer::timeout, this, &panel_t::begin);
}

panel_t::~panel_t()
{
    leave();
}

void panel_t::componentComplete()
{
    complete = true;
    begin();
}

void panel_t::setConfiguration(const QVariant& value)
{
    const QVariant taken = plain(value);
    if (given == taken) {
        return;
    }
    given = taken;
    Q_EMIT configurationChanged();
    beginSoon();
}

QString panel_t::clientId() const
{
    return engine ? engine->getClientId() : givenId;
}

void panel_t::setClientId(const QString& id)
{
    if (givenId != id) {
        givenId = id;
        Q_EMIT clientIdChanged();
        beginSoon();
    }
}

void panel_t::setVersion(const QString& version)
{
    if (hostVersion != version) {
        hostVersion = version;
        Q_EMIT versionChanged();
        beginSoon();
    }
}

void panel_t::setActive(bool on)
{
    if (active == on) {
        return;
    }
    active = on;
    Q_EMIT activeChanged();
    if (engine && on) {
        engine->connect();
    } else if (engine) {
        engine->disconnection();
    } else if (on) {
        beginSoon();
    }
    update();
}

void panel_t::setTimeLimit(int milliseconds)
{
    if (limit != milliseconds) {
        limit = milliseconds;
        Q_EMIT timeLimitChanged();
    }
}

void panel_t::beginSoon()
{
    if (complete) {
        beginning.start(0);
    }
}

void panel_t::begin()
{
    leave();
    for (int kind = 0; kind < 3; ++kind) {
        if (statuses[kind].time.isValid()) { // of another house, perhaps
            const kind_t& known = kinds[kind];
            statuses[kind] = {};
            (this->*known.changed)();
        }
    }
    if (leaving) {
        // With the same client id, one would throw the other out.
        connect(leaving, &QObject::destroyed, &beginning, [this] { beginning.start(0); });
    } else if (active) {
        const configuration_t configuration = readConfiguration(given, this);
        configurationProblem = configuration.problem;
        if (configurationProblem.isEmpty()) {
            makeEngine(configuration.json);
        }
    }
    update();
}

// The engine that goes tells the other nodes so, in its own time.
void panel_t::leave()
{
    if (!engine) {
        return;
    }
    panel_engine_t* const old = engine.release();
    old->QObject::disconnect(this);
    if (!old->getConnected()) {
        delete old;
        return;
    }
    leaving = old;
    old->setParent(QCoreApplication::instance()); // where no event loop is left to wait in
    QObject::connect(old, &protobase_t::onBrokerDisconnection, old, &QObject::deleteLater);
    QTimer::singleShot(leaveTime, old, &QObject::deleteLater);
    old->disconnection();
}

void panel_t::makeEngine(const QJsonObject& json)
{
    // Encoding is for consumers that decode, and engines do not.
    engine = std::make_unique<panel_engine_t>(hostVersion, json, givenId, false);
    panel_engine_t* const source = engine.get();
    connect(source, &protobase_t::onBrokerConnection, this, &panel_t::update);
    connect(source, &protobase_t::onBrokerDisconnection, this, &panel_t::update);
    connect(source, &protobase_t::onLinkProblem, this, &panel_t::update);
    connect(source, &panel_engine_t::masterChanged, this, &panel_t::update);
    for (int kind = 0; kind < 3; ++kind) {
        connect(source, kinds[kind].arrived, this, [=](const QJsonObject& packet) { take(kind, packet); });
    }
    connect(source, &protobase_t::on_Unknown, this,
            [this](const QString& topic, const QJsonValue& payload) { Q_EMIT packetReceived(topic, payload); });
    connect(source, &protobase_t::onBridgeConnectionEvent, this,
            [this](const QString&, const QString& bridge, const QString& payload) {
                Q_EMIT bridgeChanged(bridge, payload == QLatin1String("1"));
            });
    source->connect();
    Q_EMIT clientIdChanged();
}

panel_t::seen_t panel_t::look() const
{
    seen_t seen;
    if (!active) {
        return seen;
    }
    if (!engine) {
        seen.problem = configurationProblem;
        seen.state = configurationProblem.isEmpty() ? Connecting : Offline;
    } else if (!engine->getConnected()) {
        seen.problem = engine->linkProblem();
        seen.state = seen.problem.isEmpty() ? Connecting : Offline;
    } else {
        seen.master = engine->getServerId();
        seen.state = seen.master.isEmpty() ? Searching : Following;
        if (seen.master.isEmpty()) {
            seen.problem = lostMaster.isEmpty()
                               ? QStringLiteral("No server has presented itself as master.")
                               : QStringLiteral("The master %1 is gone, and no other has come.").arg(lostMaster);
        }
    }
    return seen;
}

void panel_t::update()
{
    if (!complete) {
        return;
    }
    const bool wasLinked = now.state == Searching || now.state == Following;
    const bool isLinked = active && engine && engine->getConnected();
    if (!isLinked) {
        lostMaster.clear();
    } else if (wasLinked && !now.master.isEmpty()) {
        lostMaster = now.master;
    }
    const seen_t before = std::exchange(now, look());
    const seen_t after = now; // a handler may change it
    if (after.master != before.master && !before.master.isEmpty()) {
        failAll(isLinked ? QStringLiteral("The master %1 is gone.").arg(before.master)
                         : QStringLiteral("The link to the broker is lost."));
    }
    if (after.state != before.state) {
        Q_EMIT stateChanged();
    }
    if (after.master != before.master) {
        Q_EMIT masterChanged();
    }
    if (after.problem != before.problem) {
        Q_EMIT problemChanged();
    }
    if (after.master != before.master && !before.master.isEmpty()) {
        Q_EMIT masterLost(before.master);
    }
    if (after.master != before.master && !after.master.isEmpty()) {
        Q_EMIT masterFound(after.master);
    }
}

void panel_t::take(int kind, const QJsonObject& packet)
{
    if (!active) {
        return; // in the second in which it takes its leave
    }
    QJsonObject rest = packet;
    const QString topic = rest.take(QStringLiteral("topic")).toString();
    const QString sender = rest.take(QStringLiteral("sender")).toString();
    rest.remove(QStringLiteral("destination"));
    // Hosts that publish with an engine have their payload in a member of this name.
    const QString member = QStringLiteral("payload");
    const QJsonValue payload = rest.contains(member) ? rest.value(member) : QJsonValue(rest);

    const kind_t& known = kinds[kind];
    status_t& status = statuses[kind];
    if (status.sender != sender) { // what another master said is no part of it
        status.parts.clear();
        status.sender = sender;
    }
    status.parts[topic.mid(topicOf("status", known).size())] = payload;
    status.value = merged(status.parts);
    status.time = QDateTime::currentDateTime();
    status.kept = engine->isKept();
    const bool kept = status.kept;
    (this->*known.changed)();
    Q_EMIT statusReceived(QLatin1String(known.name), topic, payload, kept);
    if (kept) {
        return;
    }
    const QVector<question_t> all = questions; // which get fewer meanwhile
    for (const question_t& question : all) {
        if (topic == question.topic || topic.startsWith(question.topic + QLatin1Char('/'))) {
            question.request->finish(payload);
        }
    }
}

request_t* panel_t::request(const QString& kind, const QJsonValue& payload, int timeLimit)
{
    auto* const request = new request_t(kind, milliseconds(timeLimit > 0 ? timeLimit : limit), this);
    const auto known = std::find_if(std::begin(kinds), std::end(kinds), [&](const kind_t& one) {
        return kind.section(QLatin1Char('/'), 0, 0) == QLatin1String(one.name);
    });
    QString wrong;
    if (known == std::end(kinds)) {
        wrong = QStringLiteral("There is no kind \"%1\".").arg(kind);
    } else {
        const QString levels = kind.mid(QLatin1String(known->name).size());
        questions << question_t{request, topicOf("status", *known) + levels};
        connect(request, &request_t::ended, this, [=] {
            questions.erase(std::remove_if(questions.begin(), questions.end(),
                                           [&](const question_t& one) { return one.request == request; }),
                            questions.end());
        });
        if (!send(topicOf("request", *known) + levels, payload)) {
            wrong = now.problem.isEmpty() ? QStringLiteral("The panel is not active.") : now.problem;
        }
    }
    if (!wrong.isEmpty()) {
        QTimer::singleShot(0, request, [=] { request->fail(wrong); }); // when the caller listens to it
    }
    return request;
}

bool panel_t::send(const QString& topic, const QJsonValue& payload)
{
    if (now.state != Following) {
        return false;
    }
    engine->publish({{QStringLiteral("topic"), topic},
                     {QStringLiteral("payload"), payload.isUndefined() ? QJsonValue(QJsonObject()) : payload}});
    return true;
}

void panel_t::failAll(const QString& reason)
{
    const QVector<question_t> all = questions;
    for (const question_t& question : all) {
        question.request->fail(reason);
    }
}

} // namespace qml
} // namespace comunication
