// SPDX-License-Identifier: MIT
// What a client does with incoming packets and broker events.
#include <flotrofobul/protoclient_t.h>

#include <flotrofobul/advice.h>
#include <flotrofobul/protobase_shared.h>
#include <flotrofobul/utility/system_t.h>

#include <QRegExp>

namespace comunication {

using namespace ::utility::logs;
using utility::destination_publish_client_t;
using utility::destination_subscription_t;

namespace {

constexpr const char logSource[] = "libscomunication/libmosquittoproto/protoclient_t";

const QString readyTopic = FORWARD_PREFIX + u'/' + topicOf(pkgClientReady);
const QString statusWord = QStringLiteral("status");

// The kinds of status packets, tried in this order.
const struct {
    QString command;
    void (protobase_t::*report)(QJsonObject);
} statusKinds[] = {
    {commandOf(PREFIX_STATUS_PERSISTENT_DB), &protobase_t::onDatabasePersistentStatus},
    {commandOf(PREFIX_STATUS_REALTIME_DB), &protobase_t::onDatabaseRealtimeStatus},
    {commandOf(PREFIX_STATUS_PRESENCESIMULATION_DB), &protobase_t::onDatabasePresenceSimulationStatus},
};

} // namespace

void protoclient_t::onConnect(int /*rc*/)
{}
void protoclient_t::onPublish(int /*mid*/)
{}
void protoclient_t::onLog(int /*level*/, QString /*str*/)
{}
void protoclient_t::onError()
{}

void protoclient_t::onConnect_with_flags(int rc, int /*flags*/)
{
    if (rc == 0) {
        subscription_presentation();
        publish_presentation(destination_publish_client_t::own_server.ToString());
        shared_t::advice(*this).waitForMaster([this] { return serversHeard(); });
    }
}

// For whoever asks why there is no master.
QStringList protoclient_t::serversHeard() const
{
    constexpr int mostServers = 10;
    constexpr int longestId = 64;
    QStringList servers;
    for (auto server = serverPresentations.begin(); server != serverPresentations.end() && servers.size() < mostServers;
         ++server) {
        const QString master = server.value()["masterid"_l1].toString().left(longestId);
        servers += server.key().left(longestId) + (master.isEmpty() ? QString() : " that follows "_l1 + master);
    }
    return servers;
}

void protoclient_t::onDisconnect(int /*rc*/)
{
    FLOTROFOBUL_LOG(info, QStringLiteral("Clear server id and status"));
    shared_t::advice(*this).stopWaiting();
    forgetMaster();
    serverPresentations.clear();
}

void protoclient_t::forgetMaster()
{
    system->setMaster(QString(), QJsonObject());
}

void protoclient_t::onMessage(int mid, topic_t topic, QJsonValue value, int qos, bool retain)
{
    FLOTROFOBUL_LOG(detail, "Processing message => mid: "_l1 + QString::number(mid) + " topic: "_l1 +
                                topic.getOriginal() + " qos: "_l1 + QString::number(qos) + " retain: "_l1 +
                                QString::number(retain));
    if (processPresentation(topic, value.toObject()) || processMasterElection(topic, value.toObject()) ||
        processStatusDB(topic, value)) {
        return;
    }
    reportUnknown(*this, topic, value, qos, retain, logSource);
}

bool protoclient_t::processPresentation(topic_t topic, const QJsonObject& packet)
{
    if (!isPresentation(topic)) {
        return false;
    }
    const auto node = shared_t::recordOf(*this, packet);
    const QString id = node->getClientid();
    if (!isCompliant(topic, *node, packet)) {
        FLOTROFOBUL_LOG(warning, "Internal error not complient packet for "_l1 + id);
        return true;
    }
    // The text decides: getServiceType() takes every node that is not a server for a client.
    if (node->getType() == service_t::client.ToString()) {
        FLOTROFOBUL_LOG(error, "Anomaly, the client should not receive messages presentation from another client "_l1 +
                                   topic.getOriginal());
        return true;
    }
    if (node->getType() != service_t::server.ToString()) {
        FLOTROFOBUL_LOG(error, "non-compliant type (no client - no server) :"_l1 + node->getTypeStr());
        return false;
    }
    if (knownClient(packet)) {
        FLOTROFOBUL_LOG(info, "Ignored same message as last: "_l1 + topic.getOriginal());
        return true;
    }
    const QPointer<protobase_t> alive(this);
    if (node->getConnected()) {
        serverIsOnline(topic, *node, packet);
    } else {
        serverIsOffline(topic, id, packet);
    }
    if (alive) {
        logNodes("Servers connected: "_l1, serverPresentations, logSource,
                 [](const QString& number, auto server) -> QString { return number + ". server: "_l1 + server.key(); });
    }
    return true;
}

void protoclient_t::serverIsOffline(const topic_t& topic, const QString& id, const QJsonObject& packet)
{
    const QPointer<protobase_t> alive(this);
    FLOTROFOBUL_LOG_AS(info, "Receive last will - The server is OFFLINE id: "_l1 + id, inPresentation);
    if (id == system->getMasterId()) {
        init_subscription(utility::unsubscribe_topics); // while the master is still known
        forgetMaster();
        reportPresentation(*this, topic, false, packet);
    }
    if (alive) {
        serverPresentations.remove(id);
    }
}

void protoclient_t::serverIsOnline(const topic_t& topic, const system_t& server, const QJsonObject& packet)
{
    const QString id = server.getClientid();
    FLOTROFOBUL_LOG_AS(info, "Receive presentation "_l1 + id + " from server is ONLINE - "_l1 + topic.getOriginal(),
                       inPresentation);
    const bool declaresItself = server.getMasterId() == id && !id.isEmpty();
    if (id != system->getMasterId() && declaresItself && !adoptMaster(topic, id, packet)) {
        return;
    }
    serverPresentations[id] = packet;
    // A presentation addressed to this client is an answer; answering that would go on forever.
    if (topic.getDestination() != system->getClientid()) {
        publish_presentation(id);
    }
}

// False if the host deleted the engine when it heard of the new master.
bool protoclient_t::adoptMaster(const topic_t& topic, const QString& id, const QJsonObject& packet)
{
    const QPointer<protobase_t> alive(this);
    FLOTROFOBUL_LOG_AS(info, "My master is online: "_l1 + id, inPresentation);
    init_subscription(utility::unsubscribe_topics);
    FLOTROFOBUL_LOG_AS(info, QStringLiteral("Add/Update backup my server presentation"), inPresentation);
    shared_t::storeMaster(*this, id, packet);
    shared_t::advice(*this).stopWaiting();
    placeholders[destination_subscription_t::idserver.ToString()] = {system->getMasterId()};
    init_subscription(utility::subscribe_topics);
    reportPresentation(*this, topic, system->getMasterData().value("connected"_l1).toBool(), packet);
    return !alive.isNull();
}

// Deliberately not compared with the last presentation: a repeated one still needs an answer.
bool protoclient_t::knownClient(const QJsonObject& /*packet*/)
{
    return false;
}

bool protoclient_t::processMasterElection(topic_t topic, const QJsonObject& packet)
{
    if (!isElection(topic)) {
        return false;
    }
    const std::optional<QString> named = electedMaster(packet, logSource);
    if (!named) {
        return true;
    }
    if (*named == system->getMasterId()) {
        // A master that gives up the role names itself; the next master will present itself.
        init_subscription(utility::unsubscribe_topics);
        forgetMaster();
    } else {
        FLOTROFOBUL_LOG(info, "Ignore my master is "_l1 + system->getMasterId());
    }
    return true;
}

bool protoclient_t::processStatusDB(topic_t topic, const QJsonValue& value)
{
    const auto* const kind = kindOf(statusKinds, topic);
    if (kind == nullptr) {
        return false;
    }
    FLOTROFOBUL_LOG(info, QStringLiteral("Status Message"));
    Q_EMIT(this->*kind->report)(withAddress(value.toObject(), topic, statusWord));
    return true;
}

// This client tells the master that it is ready once the broker has confirmed the subscription of its status topic.

void protoclient_t::onSubscribe(int /*mid*/, int /*qos_count*/, const int* /*granted_qos*/, QString topic)
{
    if (!clientReady && isOwnStatusTopic(topic, QStringLiteral("/"))) {
        clientReady = true;
        publishReady(QStringLiteral("1"));
    }
}

void protoclient_t::onUnsubscribe(int /*mid*/, QString topic)
{
    // Unlike above, without "/" among the characters: only a topic with a single level before the destination ends the
    // readiness.
    if (clientReady && isOwnStatusTopic(topic, QString())) {
        clientReady = false;
        publishReady(QStringLiteral("0"));
    }
}

bool protoclient_t::isOwnStatusTopic(const QString& topic, const QString& furtherCharacters) const
{
    const QRegExp pattern("^["_l1 + topic_t::getAdmitedword() + furtherCharacters + "]+/("_l1 +
                              destination_subscription_t::all.ToString() + u'|' + system->getClientid() +
                              ")/status/#$"_l1,
                          Qt::CaseSensitive, QRegExp::RegExp);
    return pattern.exactMatch(topic);
}

void protoclient_t::publishReady(const QString& text)
{
    QString topic = readyTopic;
    topic_resolution_destination(topic, system->getMasterId());
    protobase_t::publish(topic, QJsonValue(text), utility::exactly_once, false);
}

void protoclient_t::onChangeStausBroker(int /*mid*/, QString topic, QString payload, int /*payloadlen*/, int /*qos*/,
                                        bool /*retain*/)
{
    const QString cloud = "/clients/"_l1 + bridge_key;
    if (topic.endsWith(cloud + "/connected"_l1)) {
        Q_EMIT onBridgeConnectionCloudEvent(topic, bridge_key, payload, true);
    } else if (topic.endsWith(cloud + "/disconnected"_l1)) {
        Q_EMIT onBridgeConnectionCloudEvent(topic, bridge_key, payload, false);
    } else {
        shared_t::reportBridgeState(*this, topic, payload, logSource);
    }
}

} // namespace comunication
