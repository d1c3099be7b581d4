// SPDX-License-Identifier: MIT
// The engine of a user-facing application: it follows the one server that is master.
#pragma once

#include <flotrofobul/protobase_t.h>

namespace comunication {

/// A client: a wall panel or a phone.
///
/// It presents itself to the servers when it is connected, adopts the first server that presents itself as
/// master, subscribes that master's packets, and forgets it when its last will arrives, when an election names
/// it, or when the link is lost. In the order of a life: onBrokerConnection(), on_Presentation() of the master,
/// then the status signals; publish() works while getServerId() is not empty.
///
/// Of the signals of protobase_t a client emits all; for ownership, threads and failures see there.
class FLOTROFOBUL_EXPORT protoclient_t : public protobase_t {
    Q_OBJECT

public:
    /// The arguments are those of protobase_t. Use an installation id of letters and digits: with an empty one
    /// no packet is recognised.
    protoclient_t(const QString& versionApp, const QString& configPath, const QString& clientId, bool encoding);
    protoclient_t(const QString& versionApp, const QJsonObject& configuration, const QString& clientId, bool encoding);
    ~protoclient_t() override;

    /// Key that names the cloud bridge of this installation. Setting it subscribes nothing.
    QString getBridge_key() const { return bridge_key; }
    void setBridgeKey(const QString& key);
    /// Follows the cloud bridge of the bridge key while isStatusbroker() is on, else stops following it. For the
    /// host to call after setBridgeKey() on a live link.
    void subscribe_bridge();
    /// Client id of the master; empty when none is known.
    QString getServerId() const;

    void init_bridge(subscribe_t which) override;
    void publish_presentation(const QString& destination) override;
    void subscription_presentation() override;
    QString topic_lastwillmessage(QString topic) override;
    void init_subscription(subscribe_t which) override;

    using protobase_t::publish;

public Q_SLOTS:
    /// Publishes a packet at QoS 2 to its "destination", by default the master (see protobase_t::publish). With
    /// no master known it is not sent and onMasterIdError() tells so.
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

    // Each returns true when the packet was of its kind. A presentation with a value of a
    // wrong type throws QJsonSerializerException, which on_message() logs.
    bool processPresentation(topic_t topic, const QJsonObject& packet);
    bool processMasterElection(topic_t topic, const QJsonObject& packet);
    bool processStatusDB(topic_t topic, const QJsonValue& value);
    /// Whether a presentation repeats the last one of its node: never, so that each is processed in full.
    bool knownClient(const QJsonObject& packet);

private:
    void startUp();
    void subscribeClientTopic(const QJsonObject& entry, subscribe_t which);
    void serverIsOffline(const topic_t& topic, const QString& id, const QJsonObject& packet);
    void serverIsOnline(const topic_t& topic, const system_t& server, const QJsonObject& packet);
    bool adoptMaster(const topic_t& topic, const QString& id, const QJsonObject& packet);
    void forgetMaster();
    void publishReady(const QString& text);
    bool isOwnStatusTopic(const QString& topic, const QString& furtherCharacters) const;

    QString broadcastWord;
    QMap<QString, QJsonObject> serverPresentations;
    bool clientReady = false;
    QString bridge_key;
};

} // namespace comunication
