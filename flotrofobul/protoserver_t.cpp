// SPDX-License-Identifier: MIT
// Start-up, bridges and subscriptions of a server.
#include <flotrofobul/protoserver_t.h>

#include <flotrofobul/protobase_shared.h>
#include <flotrofobul/protoserver_nodes.h>

namespace comunication {

using namespace ::utility::logs;
using utility::destination_publish_client_t;
using utility::destination_publish_server_t;
using utility::destination_subscription_t;

namespace {

constexpr const char logSource[] = "libscomunication/libmosquittoproto/protoserver_t";

} // namespace

protoserver_t::protoserver_t(const QString& versionApp, const QString& givenConfigPath, bool givenDefaultMaster,
                             const QString& clientId, bool givenEncoding)
    : protobase_t(service_t::server, versionApp, givenConfigPath, clientId, givenEncoding),
      defaultMaster(givenDefaultMaster), nodes(std::make_unique<known_nodes_t>())
{
    startUp();
}

protoserver_t::protoserver_t(const QString& versionApp, const QJsonObject& givenConfiguration, bool givenDefaultMaster,
                             const QString& clientId, bool givenEncoding)
    : protobase_t(service_t::server, versionApp, givenConfiguration, clientId, givenEncoding),
      defaultMaster(givenDefaultMaster), nodes(std::make_unique<known_nodes_t>())
{
    startUp();
}

void protoserver_t::startUp()
{
    shared_t::logStart(*this, "Init protocol for server "_l1,
                       "Installation id is empty  ... with this configuration it is not possible to communicate with "
                       "the cloud ....."_l1,
                       "protoserver_t", logSource);
    placeholders[DESTINATION] = {CLIENTID, destination_publish_server_t::all_servers.ToString(),
                                 destination_publish_server_t::all.ToString()};
    placeholders[CLIENTID] = {system->getClientid()};
    placeholders[SENDER] = {destination_subscription_t::jolly.ToString()};
    shared_t::adviseOnStart(*this);
}

protoserver_t::~protoserver_t()
{
    FLOTROFOBUL_LOG(info, QStringLiteral("Destroy comunication base ..."));
}

QMap<QString, system_t*> protoserver_t::getClients() const
{
    return nodes->clients.map();
}

int protoserver_t::connect(const QString& clientId, bool async)
{
    const int rc = protobase_t::connect(clientId, async);
    return rc == 0 ? 0 : 1;
}

void protoserver_t::subscribe(const QString& topic, qos_t qos)
{
    protobase_t::subscribe(topic, qos);
}

void protoserver_t::unsubscribe(const QString& topic)
{
    protobase_t::unsubscribe(topic);
}

void protoserver_t::publish(QString topic, const QJsonObject& payload, qos_t qos, bool retain)
{
    protobase_t::publish(topic, payload, qos, retain);
}

void protoserver_t::publish(QString topic, const QJsonValue& payload, qos_t qos, bool retain)
{
    protobase_t::publish(topic, payload, qos, retain);
}

void protoserver_t::publish(const QJsonObject& packet, qos_t qos, bool retain)
{
    protobase_t::publish(packet, qos, retain);
}

void protoserver_t::eventPublish(QJsonObject _packet, qos_t qos, bool retain)
{
    protobase_t::publish(_packet, qos, retain);
}

void protoserver_t::init_subscription(subscribe_t mode)
try {
    listening = listening || mode == utility::subscribe_topics;
    placeholders[CLIENTID] = {system->getClientid()}; // connect() may have changed it
    protobase_t::init_subscription(mode);
    FLOTROFOBUL_LOG(info, QStringLiteral("Init subscription server"));
    const QLatin1String attempt =
        mode == utility::subscribe_topics ? "Try to subscribe server "_l1 : "Try to unsubscribe server "_l1;
    for (const QJsonValue value : subscriptions_server) {
        const QJsonObject entry = value.toObject();
        const QString topic = topicOf(entry);
        if (topic.startsWith(PREFIX_PERFORMANCE) && !isStatusbroker()) {
            continue;
        }
        FLOTROFOBUL_LOG(detail, attempt + topic);
        subscribeOrNot(*this, mode, topic, qosOf(entry));
    }
} catch (...) {
    FLOTROFOBUL_LOG(caught, exceptionText());
}

void protoserver_t::init_bridge(subscribe_t mode)
{
    for (const QJsonObject* const bridge : {&bridge_forward_sub, &bridge_remote_sub, &bridge_cloud_sub}) {
        subscribeOrNot(*this, mode, topicOf(*bridge), qosOf(*bridge));
    }
}

void protoserver_t::subscription_presentation()
{
    FLOTROFOBUL_LOG(fatal, QStringLiteral("Function not implemented"));
}

void protoserver_t::subscription_presentation(service_t service, subscribe_t mode)
try {
    if (service == service_t::client) {
        init_bridge(mode);
        return;
    }
    if (!(service == service_t::server)) {
        return;
    }
    const QString any = destination_subscription_t::jolly.ToString();
    const QString anyOrigin = any + u'/';
    FLOTROFOBUL_LOG(detail, "Try to subcription presentation: "_l1 + resolvedTopic(*this, presentation, any, any));
    for (const QString& destination :
         {destination_publish_client_t::own_server.ToString(), destination_publish_server_t::all.ToString(),
          destination_publish_server_t::all_servers.ToString(), system->getClientid()}) {
        subscribeOrNot(*this, mode, anyOrigin + resolvedTopic(*this, presentation, any, destination),
                       qosOf(presentation));
    }
    const QString election = resolvedTopic(*this, masterelection, any, any);
    FLOTROFOBUL_LOG(detail, "Try to subcription masterelection: "_l1 + election);
    subscribeOrNot(*this, mode, anyOrigin + election, qosOf(masterelection));
    subscribeOrNot(*this, mode, election, qosOf(masterelection));
    subscribeOrNot(*this, mode, topicOf(bridge_state), qosOf(bridge_state));
} catch (...) {
    FLOTROFOBUL_LOG(caught, QStringLiteral("Handling exception"));
}

// Always on the forward bridge: it carries the packet to other brokers, and servers on this one subscribe any origin.
void protoserver_t::publish_presentation(const QString& destination)
try {
    shared_t::sendPresentation(*this, destination, logSource);
} catch (...) {
    FLOTROFOBUL_LOG(caught, QStringLiteral("Handling exception"));
}

QString protoserver_t::topic_lastwillmessage(QString topic)
{
    return FORWARD_PREFIX + u'/' + topic.replace(DESTINATION, destination_publish_server_t::all.ToString());
}

} // namespace comunication
