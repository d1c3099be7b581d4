// SPDX-License-Identifier: MIT
// The engine of a user-facing application, which follows the one server that is master.
#pragma once

#include <flotrofobul/protobase_t.h>

namespace comunication {

/// A client: a wall panel or a phone.
///
/// Once connected, it presents itself to the servers, adopts the first server that presents itself as master and
/// subscribes that master's packets. It forgets the master when the master's last will arrives, when an election packet
/// names it, or when the link is lost. The usual order of signals: onBrokerConnection(), on_Presentation() of the
/// master, then the status signals. publish() works while getServerId() is not empty.
///
/// A client emits all signals of protobase_t; see there for ownership, threads and failures.
class FLOTROFOBUL_EXPORT protoclient_t : public protobase_t {
    Q_OBJECT

public:
    /// The arguments are those of protobase_t. Use an installation id of letters and digits: without one, no packet is
    /// recognised.
    protoclient_t(const QString& versionApp, const QString& configPath, const QString& clientId, bool encoding);
    protoclient_t(const QString& versionApp, const QJsonObject& configuration, const QString& clientId, bool encoding);
    ~protoclient_t() override;

    /// Key that names the cloud bridge of this installation.
    QString getBridge_key() const { return bridge_key; }
    /// Sets the bridge key, without subscribing anything; an empty key is stored too, and logged as an error.
    void setBridgeKey(const QString& key);
    /// Subscribes the state of the cloud bridge with the bridge key if isStatusbroker() is on, otherwise unsubscribes
    /// it. The host calls it after setBridgeKey() while connected; onBridgeConnectionCloudEvent() follows.
    void subscribe_bridge();
    /// Client id of the master; empty if none is known.
    QString getServerId() const;

    /// Does nothing: only servers deal with bridges.
    void init_bridge(subscribe_t which) override;
    void publish_presentation(const QString& destination) override;
    void subscription_presentation() override;
    QString topic_lastwillmessage(QString topic) override;
    /// Subscribes (1) or unsubscribes (anything else) the packets of the master; without a master, only logs.
    void init_subscription(subscribe_t which) override;

    using protobase_t::publish;

public Q_SLOTS:
    /// Publishes a packet at QoS 2 to its "destination", by default the master (see protobase_t::publish()). If no
    /// master is known, the packet is not sent and onMasterIdError() is emitted.
    void publish(QJsonObject _packet);

protected:
    void onConnect(int rc) override;
    void onConnect_with_flags(int rc, int flags) override;
    void onDisconnect(int rc) override;
    void onPublish(int mid) override;
    void onMessage(int mid, topic_t topic, QJsonValue value, int qos, bool retain) override;
    void onSubscribe(int mid, int qos_count, const int* granted_qos, QString topic) override;
    void onUnsubscribe(int mid, QString topic) override;
    void onLog(int level, QString str) override;
    void onError() override;
    void onChangeStausBroker(int mid, QString topic, QString payload, int payloadlen, int qos, bool retain) override;

    // Handlers of incoming packets; each returns whether the packet was of its kind. A presentation with a value of the
    // wrong type throws QJsonSerializerException, which on_message() logs.
    bool processPresentation(topic_t topic, const QJsonObject& packet);
    bool processMasterElection(topic_t topic, const QJsonObject& packet);
    bool processStatusDB(topic_t topic, const QJsonValue& value);
    /// Whether a presentation repeats the last one from its node. Always false, so that each is processed in full.
    bool knownClient(const QJsonObject& packet);

private:
    void startUp();
    void subscribeClientTopic(const QJsonObject& entry, subscribe_t which);
    void serverIsOffline(const topic_t& topic, const QString& id, const QJsonObject& packet);
    void serverIsOnline(const topic_t& topic, const system_t& server, const QJsonObject& packet);
    bool adoptMaster(const topic_t& topic, const QString& id, const QJsonObject& packet);
    void forgetMaster();
    QStringList serversHeard() const;
    void publishReady(const QString& text);
    bool isOwnStatusTopic(const QString& topic, const QString& furtherCharacters) const;

    QString broadcastWord;
    QMap<QString, QJsonObject> serverPresentations;
    bool clientReady = false;
    QString bridge_key;
};

} // namespace comunication
