// SPDX-License-Identifier: MIT
// Start-up, presentation and subscriptions of a client.
#include <flotrofobul/protoclient_t.h>

#include <flotrofobul/protobase_shared.h>
#include <flotrofobul/utility/system_t.h>

namespace comunication {

using namespace ::utility::logs;
using utility::destination_publish_client_t;
using utility::destination_subscription_t;

namespace {

constexpr const char logSource[] = "libscomunication/libmosquittoproto/protoclient_t";
constexpr bridges_t clientBridges{&FORWARD_PREFIX, &CLOUD_PREFIX_1, &CLOUD_PREFIX_2};

} // namespace

protoclient_t::protoclient_t(const QString& versionApp, const QString& givenConfigPath, const QString& clientId,
                             bool givenEncoding)
    : protobase_t(service_t::client, versionApp, givenConfigPath, clientId, givenEncoding)
{
    startUp();
}

protoclient_t::protoclient_t(const QString& versionApp, const QJsonObject& givenConfiguration, const QString& clientId,
                             bool givenEncoding)
    : protobase_t(service_t::client, versionApp, givenConfiguration, clientId, givenEncoding)
{
    startUp();
}

void protoclient_t::startUp()
{
    broadcastWord = QStringLiteral("broadcast");
    shared_t::logStart(*this, "Init protocol for client "_l1, "Installation id is empty  ..."_l1, "protoclient_t",
                       logSource);
    const QString idclient = destination_subscription_t::idclient.ToString();
    const QString idserver = destination_subscription_t::idserver.ToString();
    placeholders[DESTINATION] = {destination_subscription_t::all.ToString(), idclient};
    placeholders[idclient] = {system->getClientid()};
    placeholders[SENDER] = {idserver};
    placeholders[idserver] = {system->getMasterId()};
    shared_t::adviseOnStart(*this);
}

protoclient_t::~protoclient_t()
{
    FLOTROFOBUL_LOG(info, QStringLiteral("Destroy comunication client ..."));
    serverPresentations.clear();
}

void protoclient_t::setBridgeKey(const QString& key)
{
    bridge_key = key;
    if (bridge_key.isEmpty()) {
        FLOTROFOBUL_LOG(error, QStringLiteral("Unable to subrscibe/unsubscribe bridge because bridge_key is empty!"));
    }
}

void protoclient_t::subscribe_bridge()
try {
    const QString up = topicOf(bridge_state_cloud_connection).replace(BRIDGEKEY, bridge_key);
    const QString down = topicOf(bridge_state_cloud_disconnection).replace(BRIDGEKEY, bridge_key);
    if (isStatusbroker()) {
        const qos_t qos = qosOf(bridge_state_cloud_connection); // for both topics
        subscribe(up, qos);
        subscribe(down, qos);
    } else {
        unsubscribe(up);
        unsubscribe(down);
    }
} catch (...) {
    FLOTROFOBUL_LOG(caught, exceptionText());
}

QString protoclient_t::getServerId() const
{
    return system->getMasterId();
}

// Only servers deal with bridges.
void protoclient_t::init_bridge(subscribe_t /*which*/)
{}

void protoclient_t::publish_presentation(const QString& destination)
try {
    shared_t::sendPresentation(*this, destination, logSource);
} catch (...) {
    // A node that cannot present itself is useless to the others: it leaves, and its last will tells them.
    FLOTROFOBUL_LOG(fatal, exceptionText("Handling exception in presentation: disconnect. "_l1,
                                         "Handling exception in presentation "_l1));
    disconnection(true);
}

void protoclient_t::subscription_presentation()
try {
    clientReady = false;
    init_bridge(utility::subscribe_topics);
    const QString jolly = destination_subscription_t::jolly.ToString();
    for (const QString& destination : {destination_subscription_t::all.ToString(), system->getClientid(),
                                       destination_subscription_t::all_clients.ToString()}) {
        subscribeThrough(*this, utility::subscribe_topics, mainBridges,
                         resolvedTopic(*this, presentation, jolly, destination), qosOf(presentation));
    }
    subscribe(topicOf(bridge_state), qosOf(bridge_state));
} catch (...) {
    FLOTROFOBUL_LOG(caught, QStringLiteral("Handling exception"));
}

QString protoclient_t::topic_lastwillmessage(QString topic)
{
    return FORWARD_PREFIX + u'/' + topic.replace(DESTINATION, destination_publish_client_t::own_server.ToString());
}

void protoclient_t::init_subscription(subscribe_t which)
try {
    placeholders[destination_subscription_t::idclient.ToString()] = {system->getClientid()};
    FLOTROFOBUL_LOG(info, QStringLiteral("Init subscription client"));
    const QString server = getServerId();
    if (which == utility::unsubscribe_topics || server.isEmpty()) {
        clientReady = false;
    }
    if (server.isEmpty()) {
        FLOTROFOBUL_LOG(info, QStringLiteral("No init subscription because server id is null"));
        return;
    }
    // Only the banner: subscription_presentation() subscribes these topics.
    FLOTROFOBUL_LOG(info, QStringLiteral("-----------------------------PRESENTATION-----------------------------"));

    FLOTROFOBUL_LOG(info, QStringLiteral("-----------------------------MASTER-----------------------------"));
    subscribeThrough(*this, which, mainBridges,
                     resolvedTopic(*this, masterelection, server, destination_subscription_t::all_clients.ToString()),
                     qosOf(masterelection));

    FLOTROFOBUL_LOG(info, QStringLiteral("-----------------------------ALL BASE-----------------------------"));
    protobase_t::init_subscription(which);

    FLOTROFOBUL_LOG(info, QStringLiteral("-----------------------------ONLY CLIENT-----------------------------"));
    for (const QJsonValue entry : subscriptions_client) {
        subscribeClientTopic(entry.toObject(), which);
    }
} catch (...) {
    FLOTROFOBUL_LOG(caught, QStringLiteral("Handling generic exception."));
}

// The broker's own topics go through the forward, remote and first cloud bridge; all others go through the forward and
// both cloud bridges, never through the remote one.
void protoclient_t::subscribeClientTopic(const QJsonObject& entry, subscribe_t which)
{
    constexpr const char* function = "init_subscription";
    const QString topic = topicOf(entry);
    FLOTROFOBUL_LOG_AS(info, QStringLiteral("-----------------------------SYS-----------------------------"), function);
    if (topic.startsWith(PREFIX_PERFORMANCE)) {
        if (!isStatusbroker()) {
            return;
        }
        for (const QString* const bridge : mainBridges) {
            FLOTROFOBUL_LOG_AS(detail, clientAttempt(which) + *bridge + u'/' + topic, function);
            subscribeOrNot(*this, which, *bridge + u'/' + topic, qosOf(entry));
        }
        return;
    }
    FLOTROFOBUL_LOG_AS(info, QStringLiteral("-----------------------------NON SYS-----------------------------"),
                       function);
    const bool on = which == utility::subscribe_topics;
    FLOTROFOBUL_LOG_AS(detail, clientAttempt(which) + (on ? QString(FORWARD_PREFIX + u'/' + topic) : topic), function);
    subscribeThrough(*this, which, clientBridges, topic, qosOf(entry));
}

void protoclient_t::publish(QJsonObject _packet)
try {
    if (getServerId().isEmpty()) {
        FLOTROFOBUL_LOG(warning, QStringLiteral("No master id"));
        Q_EMIT onMasterIdError(_packet);
        return;
    }
    protobase_t::publish(_packet, utility::exactly_once, false);
} catch (...) {
    FLOTROFOBUL_LOG(caught, exceptionText());
}

} // namespace comunication
