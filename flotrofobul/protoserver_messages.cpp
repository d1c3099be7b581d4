// SPDX-License-Identifier: MIT
// What a server does with incoming packets and broker events.
#include <flotrofobul/protoserver_t.h>

#include <flotrofobul/advice.h>
#include <flotrofobul/protobase_shared.h>
#include <flotrofobul/protoserver_nodes.h>
#include <flotrofobul/referee.h>

#include <utility>

namespace comunication {

using namespace ::utility::logs;
using utility::destination_publish_server_t;

namespace {

constexpr const char logSource[] = "libscomunication/libmosquittoproto/protoserver_t";

const QString readyCommand = commandOf(topicOf(pkgClientReady));
const QString requestWord = QStringLiteral("request");

// The kinds of requests, tried in this order.
const struct {
    QString command;
    QString announcement;
    void (protoserver_t::*report)(QJsonObject);
} requestKinds[] = {
    {commandOf(PREFIX_REQUEST_PERSISTENT_DB), QStringLiteral("Request Message for Database Persistent "),
     &protoserver_t::onRequestPersistentRequest},
    {commandOf(PREFIX_REQUEST_REALTIME_DB), QStringLiteral("Request Message for Database Realtime "),
     &protoserver_t::onRequestRealtimeRequest},
    {commandOf(PREFIX_REQUEST_PRESENCESIMULATION_DB),
     QStringLiteral("Request Message for Database Presence simulation "),
     &protoserver_t::onRequestPresenceSimulationRequest},
    {commandOf(PREFIX_REQUEST_COMMAND_DB), QStringLiteral("Request Message for Database command "),
     &protoserver_t::onRequestCmd},
};

} // namespace

void protoserver_t::onConnect(int /*rc*/)
{}
void protoserver_t::onPublish(int /*mid*/)
{}
void protoserver_t::onSubscribe(int /*mid*/, int /*qos_count*/, const int* /*granted_qos*/, QString /*topic*/)
{}
void protoserver_t::onUnsubscribe(int /*mid*/, QString /*topic*/)
{}
void protoserver_t::onLog(int /*level*/, QString /*str*/)
{}
void protoserver_t::onError()
{}

void protoserver_t::onConnect_with_flags(int rc, int /*flags*/)
{
    if (rc != 0) {
        return;
    }
    if (defaultMaster) {
        FLOTROFOBUL_LOG(info, QStringLiteral("I'm default master"));
        shared_t::storeMaster(*this, system->getClientid(), shared_t::ownRecord(*this));
    }
    if (system->getMasterId().isEmpty()) {
        FLOTROFOBUL_LOG(info, QStringLiteral("Master is not assigned"));
    }
    FLOTROFOBUL_LOG(detail, QStringLiteral("Subscribe presentation and my client for all other servers"));
    subscription_presentation(service_t::server, utility::subscribe_topics);
    if (isMaster()) {
        subscription_presentation(service_t::client, utility::subscribe_topics);
    }
    publish_presentation(destination_publish_server_t::all.ToString());
    Q_EMIT onConnection();
}

void protoserver_t::onDisconnect(int /*rc*/)
{
    FLOTROFOBUL_LOG(info, QStringLiteral("Clear all client"));
    // The records are kept: the host may hold the map that getClients() returned.
    nodes->formerClients.takeAll(nodes->clients);
    listening = false;
}

void protoserver_t::onMessage(int mid, topic_t topic, QJsonValue payload, int qos, bool retain)
{
    if (referee != nullptr && !referee->admits(topic, payload)) {
        return;
    }
    FLOTROFOBUL_LOG(detail, "Processing message => mid: "_l1 + QString::number(mid) + " _topic: "_l1 +
                                topic.getOriginal() + " qos: "_l1 + QString::number(qos) + " retain: "_l1 +
                                QString::number(retain));
    if (processPresentation(topic, payload.toObject()) || processMasterElection(topic, payload.toObject()) ||
        processRequestDB(topic, payload) || processClientReady(topic, payload)) {
        return;
    }
    reportUnknown(*this, topic, payload, qos, retain, logSource);
}

bool protoserver_t::knownClient(const QJsonObject& packet)
{
    return nodes->know(*shared_t::recordOf(*this, packet));
}

bool protoserver_t::processPresentation(topic_t topic, const QJsonObject& packet)
{
    if (!isPresentation(topic)) {
        return false;
    }
    auto node = shared_t::recordOf(*this, packet);
    const QString sender = topic.getSender();
    if (!isCompliant(topic, *node, packet)) {
        refusePresentation(sender);
    } else if (isServer(*node)) {
        processServer(topic, std::move(node), packet);
    } else if (node->getType() == service_t::client.ToString()) {
        processClient(topic, std::move(node), packet);
    } else {
        FLOTROFOBUL_LOG(error, "non-compliant type (no client - no server) from: "_l1 + sender);
    }
    return true;
}

void protoserver_t::refusePresentation(const QString& sender)
{
    FLOTROFOBUL_LOG_AS(error, "Internal error not complient packet from: "_l1 + sender, inPresentation);
    nodes->clients.remove(sender);
    nodes->servers.remove(sender);
    if (sender != system->getClientid()) {
        publish_presentation(sender);
    }
    logClients();
}

void protoserver_t::processServer(const topic_t& topic, std::unique_ptr<system_t> server, const QJsonObject& packet)
{
    if (nodes->know(*server)) {
        FLOTROFOBUL_LOG_AS(info, "Ignored same message as last: "_l1 + topic.getOriginal(), inPresentation);
        return;
    }
    if (isRefusedOrigin(topic, server->getConnected())) {
        return;
    }
    const QPointer<protobase_t> alive(this);
    // Presentations from any other origin are not stored.
    if (topic.getOrigin() == REMOTE_PREFIX) {
        if (server->getConnected()) {
            serverIsOnline(topic, std::move(server), packet);
        } else {
            serverIsOffline(topic, server->getClientid(), packet);
        }
    }
    if (alive) {
        logServers();
    }
}

// Servers may meet through the remote bridge only. The blanks before the topics differ on purpose.
bool protoserver_t::isRefusedOrigin(const topic_t& topic, bool online) const
{
    const QString origin = topic.getOrigin();
    QLatin1String refusal;
    if (origin == FORWARD_PREFIX) {
        refusal = online ? "Many server on same broker: "_l1 : "Many server on same broker:"_l1;
    } else if (origin == CLOUD_PREFIX_1 || origin == CLOUD_PREFIX_2) {
        refusal = "Run server on cloud broker:"_l1;
    } else if (origin.isEmpty()) {
        refusal = "Presentation from another server non-compliant:"_l1;
    } else {
        return false;
    }
    FLOTROFOBUL_LOG_AS(error, refusal + topic.getOriginal(), inPresentation);
    return true;
}

void protoserver_t::serverIsOnline(const topic_t& topic, std::unique_ptr<system_t> server, const QJsonObject& packet)
{
    const QString id = server->getClientid();
    FLOTROFOBUL_LOG_AS(info, "Receive presentation "_l1 + id + " server is ONLINE - "_l1 + topic.getOriginal(),
                       inPresentation);
    FLOTROFOBUL_LOG_AS(detail, QStringLiteral("Add/Update server presentation"), inPresentation);
    const QString master = server->getMasterId();
    const bool online = server->getConnected();
    nodes->servers.put(id, std::move(server));
    if (master.isEmpty() || master == system->getMasterId()) {
        publish_presentation(destination_publish_server_t::all_servers.ToString());
        return;
    }
    FLOTROFOBUL_LOG_AS(info, QStringLiteral("Update masterid"), inPresentation);
    shared_t::storeMaster(*this, master, packet);
    subscription_presentation(service_t::client, utility::subscribe_topics);
    if (isMaster()) {
        publish_presentation(destination_publish_server_t::all.ToString());
        reportPresentation(*this, topic, online, packet);
    }
}

void protoserver_t::serverIsOffline(const topic_t& topic, const QString& id, const QJsonObject& packet)
{
    FLOTROFOBUL_LOG_AS(info, "Receive last will from "_l1 + id + " server is OFFLINE"_l1, inPresentation);
    const QPointer<protobase_t> alive(this);
    if (isMaster()) {
        FLOTROFOBUL_LOG_AS(detail, QStringLiteral("E' master allora aggiorno il payload"), inPresentation);
        system->setMasterData(withoutDeeperMasters(packet));
        reportPresentation(*this, topic, false, packet);
    }
    if (alive) {
        nodes->servers.remove(id);
    }
}

// A client that presents itself again is answered again, whatever is known about it: it may have missed the answer.
void protoserver_t::processClient(const topic_t& topic, std::unique_ptr<system_t> node, const QJsonObject& packet)
{
    const QString id = node->getClientid();
    const bool online = node->getConnected();
    if (online) {
        FLOTROFOBUL_LOG_AS(info,
                           "Receive presentation from local: "_l1 + id + " client is ONLINE "_l1 + topic.getOriginal(),
                           inPresentation);
        FLOTROFOBUL_LOG_AS(detail, QStringLiteral("Add/Update client presentation"), inPresentation);
        nodes->formerClients.remove(id);
        nodes->clients.put(id, std::move(node));
        if (topic.getDestination() != system->getClientid()) {
            publish_presentation(id);
        }
    } else {
        FLOTROFOBUL_LOG_AS(info, "Receive last will from "_l1 + id + " client is OFFLINE"_l1, inPresentation);
        FLOTROFOBUL_LOG_AS(detail, QStringLiteral("Remove client presentation"), inPresentation);
        nodes->clients.remove(id);
        nodes->formerClients.remove(id);
    }
    const QPointer<protobase_t> alive(this);
    if (isMaster()) {
        reportPresentation(*this, topic, online, packet);
    }
    if (alive) {
        logClients();
    }
    if (alive && online && !listening) {
        shared_t::advice(*this).nobodyListens(id);
    }
}

void protoserver_t::logServers() const
{
    logNodes("Server known: "_l1, nodes->servers.map(), logSource, [](const QString& number, auto server) -> QString {
        return number + ". "_l1 + server.key() + " - master id-"_l1 + server.value()->getMasterId() + u'-';
    });
}

void protoserver_t::logClients() const
{
    logNodes("Client connected: "_l1, nodes->clients.map(), logSource,
             [](const QString& number, auto panel) -> QString { return number + ". "_l1 + panel.key(); });
}

bool protoserver_t::processRequestDB(topic_t topic, const QJsonValue& payload)
{
    const auto* const kind = kindOf(requestKinds, topic);
    if (kind == nullptr) {
        return false;
    }
    FLOTROFOBUL_LOG(detail, kind->announcement);
    const QJsonObject packet = withAddress(payload.toObject(), topic, requestWord);
    FLOTROFOBUL_LOG(detail, "Request Message "_l1 + topicOf(packet));
    FLOTROFOBUL_LOG(detail, "Payload "_l1 + payload.toString());
    Q_EMIT(this->*kind->report)(packet);
    return true;
}

bool protoserver_t::processClientReady(topic_t topic, const QJsonValue& payload)
{
    if (topic.getValue() != readyCommand) {
        return false;
    }
    FLOTROFOBUL_LOG(info, QStringLiteral("Client ready message"));
    Q_EMIT onClientReady(withAddress({{QStringLiteral("payload"), payload}}, topic, requestWord));
    return true;
}

void protoserver_t::onChangeStausBroker(int /*mid*/, QString topic, QString payload, int /*payloadlen*/, int /*qos*/,
                                        bool /*retain*/)
{
    shared_t::reportBridgeState(*this, topic, payload, logSource);
}

} // namespace comunication
