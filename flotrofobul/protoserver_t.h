// SPDX-License-Identifier: MIT
// The engine of a service that owns data, answers requests and may be the master of the installation.
#pragma once

#include <flotrofobul/protobase_t.h>

namespace comunication {

struct known_nodes_t;
class referee_t;

/// A server.
///
/// On every accepted connection it subscribes the presence of the other nodes, takes the master role if it is a default
/// master, presents itself to all and emits onConnection(). The host then calls init_subscription(subscribe_topics) to
/// receive what is addressed to it on its own broker. The requests of clients arrive over the bridges, which the master
/// subscribes, and so does a server that has adopted its master from a presentation: a host answers a request only when
/// its "destination" is getClientId().
///
/// Of the signals of protobase_t, a server emits the three of the link, onBridgeConnectionEvent(),
/// onMasterBridgeError(), on_Unknown() and, while it is master, on_Presentation(); see there for ownership, threads and
/// failures.
class FLOTROFOBUL_EXPORT protoserver_t : public protobase_t {
    Q_OBJECT

public:
    /// The arguments are those of protobase_t; defaultMaster: whether to take the master role at every accepted
    /// connection.
    protoserver_t(const QString& versionApp, const QString& configPath, bool defaultMaster, const QString& clientId,
                  bool encoding);
    protoserver_t(const QString& versionApp, const QJsonObject& configuration, bool defaultMaster,
                  const QString& clientId, bool encoding);
    ~protoserver_t() override;

    /// Like protobase_t::connect(), but returns 1 for every failure.
    int connect(const QString& clientId = QString(), bool async = true);

    /// Whether this server is the master; logged.
    bool isMaster();
    /// Makes this server the master and presents it to all: at once if it is connected, otherwise at the next
    /// connection.
    void setMaster();
    /// Whether this server takes the master role at every accepted connection.
    bool isDefaultMaster() const { return defaultMaster; }
    /// Lets somebody decide which packets this server hears, in order to keep one master; null for nobody. The referee
    /// stays the caller's and outlives the server, or is taken away before it goes. For house::keeper_t.
    void setReferee(referee_t* one) { referee = one; }
    /// Tells the clients, and only them, that this server is no longer the master.
    void publish_undomaster();

    /// The clients that have presented themselves since the link came up, by client id. The records belong to the
    /// engine. One is deleted when its client presents itself again or leaves, when an invalid presentation arrives in
    /// its name, or with the engine.
    /// Include <flotrofobul/utility/system_t.h> to read them.
    QMap<QString, system_t*> getClients() const;

    void init_bridge(subscribe_t which) override;
    void publish_presentation(const QString& destination) override;
    /// Not for servers: only logs that it is not implemented.
    void subscription_presentation() override;
    /// Subscribes (1) or unsubscribes (anything else) presentations, elections and bridge states (service_t::server),
    /// or what comes over the bridges (service_t::client).
    void subscription_presentation(service_t service, subscribe_t mode);
    QString topic_lastwillmessage(QString topic) override;
    /// Subscribes (1) or unsubscribes (anything else) what is addressed to this server on its own broker.
    void init_subscription(subscribe_t mode) override;
    void subscribe(const QString& topic, qos_t qos) override;
    void unsubscribe(const QString& topic) override;
    void publish(QString topic, const QJsonObject& payload, qos_t qos, bool retain) override;
    void publish(QString topic, const QJsonValue& payload, qos_t qos, bool retain) override;
    void publish(const QJsonObject& packet, qos_t qos, bool retain) override;

public Q_SLOTS:
    /// Publishes a packet (see protobase_t::publish()), for hosts that answer by signals.
    void eventPublish(QJsonObject _packet, qos_t qos, bool retain);

Q_SIGNALS:
    /// A request from a client, with "topic" (from "request" onwards), "sender" and "destination" added.
    void onRequestPersistentRequest(QJsonObject _package);
    /// The same for measured values.
    void onRequestRealtimeRequest(QJsonObject _package);
    /// The same for the simulation of presence.
    void onRequestPresenceSimulationRequest(QJsonObject _package);
    /// The same for a command.
    void onRequestCmd(QJsonObject _package);
    /// A client is ready ("payload" is "1") or no longer ready ("0"); with "topic", "sender" and "destination".
    void onClientReady(QJsonObject _package);
    /// The link is up and this server has presented itself; emitted before onBrokerConnection().
    void onConnection();

protected:
    using QObject::connect; // beside the server's own, for subclasses

    void onConnect(int rc) override;
    void onConnect_with_flags(int rc, int flags) override;
    void onDisconnect(int rc) override;
    void onPublish(int mid) override;
    void onMessage(int mid, topic_t topic, QJsonValue payload, int qos, bool retain) override;
    void onSubscribe(int mid, int qos_count, const int* granted_qos, QString topic) override;
    void onUnsubscribe(int mid, QString topic) override;
    void onLog(int level, QString str) override;
    void onError() override;
    void onChangeStausBroker(int mid, QString topic, QString payload, int payloadlen, int qos, bool retain) override;

    // Handlers of incoming packets; each returns whether the packet was of its kind, even if it was then refused. A
    // presentation with a value of the wrong type throws QJsonSerializerException, which on_message() logs.
    bool processPresentation(topic_t topic, const QJsonObject& packet);
    bool processMasterElection(topic_t topic, const QJsonObject& packet);
    bool processRequestDB(topic_t topic, const QJsonValue& payload);
    bool processClientReady(topic_t topic, const QJsonValue& payload);
    /// Whether a presentation says exactly what is already known about its node.
    bool knownClient(const QJsonObject& packet);

private:
    void startUp();
    void becomeMaster(const char* function);
    void processServer(const topic_t& topic, std::unique_ptr<system_t> server, const QJsonObject& packet);
    bool isRefusedOrigin(const topic_t& topic, bool online) const;
    void serverIsOnline(const topic_t& topic, std::unique_ptr<system_t> server, const QJsonObject& packet);
    void serverIsOffline(const topic_t& topic, const QString& id, const QJsonObject& packet);
    void processClient(const topic_t& topic, std::unique_ptr<system_t> node, const QJsonObject& packet);
    void refusePresentation(const QString& sender);
    void logServers() const;
    void logClients() const;

    bool defaultMaster;
    referee_t* referee = nullptr;
    bool listening = false; ///< the host has called init_subscription() on this link
    std::unique_ptr<known_nodes_t> nodes;
};

} // namespace comunication
