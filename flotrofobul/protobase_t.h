// SPDX-License-Identifier: MIT
// The engine: its public face, its signals, and the hooks of a role. What the two roles add stands in
// protoclient_t.h and protoserver_t.h.
#pragma once

#include <flotrofobul/define/topic_t.h>
#include <flotrofobul/define/types.h>
#include <flotrofobul/export.h>
#include <flotrofobul/platform/jsonserializer/qjsonserializer_fwd.h>

#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QJsonValue>
#include <QtCore/QList>
#include <QtCore/QMap>
#include <QtCore/QObject>
#include <QtCore/QPointer>
#include <QtCore/QString>

#include <memory>

class QRecursiveMutex;
class QTimer;

namespace comunication {

namespace brokerdiagnostic {
struct diagnostic_broker;
}
namespace config {
class mosquittocnf;
}
namespace message {
class classmessages;
}
namespace mosquittopp {
class mosquittoqt;
}
namespace utility {
class system_t;
}

using utility::qos_t;
using utility::service_t;
using utility::state_req_t;
using utility::subscribe_t;
using utility::system_t;
using utility::topic_t;

/// The engine that an application embeds, in the role of a server (protoserver_t) or of a client
/// (protoclient_t).
///
/// It lives on the thread of its event loop and all its operations must be called there; nothing blocks that
/// loop but connect() with async false. It owns its record, configuration model, registry and statistics. The
/// host may call any operation, or delete the engine, from within any of its signals.
///
/// No operation throws. What goes wrong is written to the logger and told by the result: libmosquitto's
/// integer codes (MOSQ_ERR_*, 0 is success) pass through unchanged. An operation that needs the broker client
/// before the first connect() has created it logs one line and does nothing.
///
/// Payloads are wrapped as {"d": value}. With encoding on they are sent as Base64 for consumers that decode;
/// an engine never decodes what it receives, so engines that talk to each other are built with encoding off.
class FLOTROFOBUL_EXPORT protobase_t : public QObject {
    Q_OBJECT

public:
    /// Builds an engine from a configuration file. A file that cannot be read is logged and leaves the
    /// defaults.
    /// @param service      role of the node
    /// @param versionApp   version of the host application, presented to the other nodes
    /// @param configPath   JSON file
    /// @param clientId     MQTT client id, taken as given; when blank it is made from role and host name
    /// @param encoding     whether payloads are sent as Base64
    protobase_t(service_t service, QString const& versionApp, QString const& configPath, QString const& clientId,
                bool encoding);
    /// The same from a configuration object.
    protobase_t(service_t service, QString const& versionApp, QJsonObject const& configuration, QString const& clientId,
                bool encoding);
    /// Hands the broker client to deferred deletion, which closes the link.
    ~protobase_t() override;

    // Configuration

    /// Reads a configuration file into the model; false when it cannot be opened or is no JSON.
    bool readConfigFromFile(QString const& path);
    /// Reads a configuration object into the model; false when it is empty.
    bool readConfigFromJson(QJsonObject const& json);
    /// Writes the configuration to a file, indented. An interrupted save leaves the old file; a file with a
    /// password is readable by its owner only. False when it cannot be written.
    bool saveConfigToFile(QString const& path);
    /// Version of the library and its protocol.
    QString getVersion();
    /// Whether payloads are sent as Base64.
    bool isEncoding() const { return encoding; }
    void setEncoding(bool on) { encoding = on; }

    // Broker client; called by connect()

    /// Creates and wires the broker client. 0, or 1 when credentials, TLS or last will were refused.
    int init_comunication();
    /// Sets TLS up from the configuration; result of the TLS library call, 0 is success.
    int init_security();
    /// Registers the last will; result of the broker client, -1 on an exception.
    int init_lastWillMessage();

    // Link

    /// Whether the broker has accepted the session; connected() writes it to the log too.
    bool connected();
    bool getConnected() const;
    /// Switches the logging of libmosquitto, in the configuration as well.
    void setMosquittoLog(bool on);

    // Broker statistics

    /// Switches the recording of $SYS messages; on a live link "$SYS/#" is subscribed for it.
    void setStatusbroker(bool on);
    bool isStatusbroker() const { return statusbroker; }
    /// The statistics; owned by the engine. Its own flags choose what is recorded.
    brokerdiagnostic::diagnostic_broker* getStatusBroken() const { return statistics.get(); }

    // Role

    /// Sets up (1) or drops (anything else) what comes over the bridges.
    virtual void init_bridge(subscribe_t which) = 0;
    /// Presents this node to a destination.
    virtual void publish_presentation(QString const& destination) = 0;
    /// Subscribes the presentations of other nodes.
    virtual void subscription_presentation() = 0;
    /// Topic of the last will, made from a template.
    virtual QString topic_lastwillmessage(QString topic) = 0;

    // Publishing and subscribing

    /// Subscribes (1) or unsubscribes (anything else) what both roles listen to.
    virtual void init_subscription(subscribe_t which);
    /// Subscribes every topic that the placeholders of the given one stand for.
    virtual void subscribe(QString const& topic, qos_t qos);
    /// Unsubscribes a topic that the registry holds.
    virtual void unsubscribe(QString const& topic);
    /// Publishes {"d": payload}; placeholders of sender and installation id are resolved.
    virtual void publish(QString topic, QJsonObject const& payload, qos_t qos, bool retain);
    virtual void publish(QString topic, QJsonValue const& payload, qos_t qos, bool retain);
    /// Publishes a packet of the host: "topic" (the value levels) and "payload" are required, "destination"
    /// defaults to the master. Sent over the forward bridge; always at QoS 2, whatever is asked for.
    virtual void publish(QJsonObject const& packet, qos_t qos, bool retain);
    /// Puts the own client id in the sender's place.
    virtual void topic_publish_resolution_sender(QString& topic);
    /// Puts sender and destination in their places.
    void topic_resolution(QString& topic, QString const& sender, QString const& destination);
    /// Puts the destination in its place, then the own client id in the sender's.
    void topic_resolution_destination(QString& topic, QString const& destination);
    /// Replaces each topic of the list by those that its placeholders stand for.
    void topic_subscribe_resolution(QList<QString>& topics);
    /// The topic without the common prefix: what topic_t::getValue() gives for it.
    QString getCommandTopic(QString topic);

    /// JSON text of an object; empty on an exception.
    QString JsonObjectToString(QJsonObject const& object, QJsonDocument::JsonFormat format);
    /// The object that a JSON text holds; empty when it holds none.
    QJsonObject StringToJsonObject(QString const& text);
    /// Payload text: compact JSON, as Base64 without padding when encoding is on.
    QString Encode(QJsonObject const& object);
    /// Payload text: the text, as Base64 with padding when encoding is on.
    QString Encode(QString const& text);
    /// Payload text of an object, or of a text (anything else is ""), as Base64 without padding.
    QString Encode(QJsonValue const& value);

public Q_SLOTS:
    /// Connects to the configured broker. Without async it waits for the broker's answer, at most for the
    /// configured deadline. While the configuration's autoconnect is on, a link that fails or is lost is made
    /// again. Returns libmosquitto's code, combined with that of init_comunication() on first use, or -1;
    /// onBrokerConnection() tells the broker's answer.
    /// @param _clientid  when not empty, stored as the node's client id (role + "@" + its plain characters)
    int connect(QString const& _clientid = QString(), bool async = true);
    /// Ends the session, until the next connect(). With _sendLastWill the last will is published to the other
    /// nodes, the link is closed one second later and the result is 0; without, it is closed at once and the
    /// result is libmosquitto's. -1 on an exception.
    int disconnection(bool _sendLastWill = true);

Q_SIGNALS:
    /// The broker has answered a connection attempt: rc is the CONNACK return code of MQTT 3.1.1 (0 accepted, 1
    /// to 5 refused), flags bit 0 tells whether the broker kept the session. The role has been served before.
    void onBrokerConnection(int rc, int flags);
    /// The link is gone: rc is 0 when the engine closed it, else libmosquitto's code (7 connection lost). All
    /// pending requests are forgotten.
    void onBrokerDisconnection(int rc);
    /// A bridge has gone up (payload "1") or down ("0").
    void onBridgeConnectionEvent(QString _topic, QString bridge, QString payload);
    /// The cloud bridge of the bridge key has gone up or down; clients only.
    void onBridgeConnectionCloudEvent(QString _topic, QString bridge, QString payload, bool connected);
    /// A packet was not published because no master is known; clients only.
    void onMasterIdError(QJsonObject _packet);
    /// A bridge that joins the master has gone down; known for masters whose client id is "tarnel-server-" and the
    /// third or fourth piece of the bridge's name (the pieces stand between hyphens).
    void onMasterBridgeError();
    /// A node has come or gone. At a client: its master. At a master: a client that comes or goes, a server that goes,
    /// and the server whose presentation has made this one the master.
    void on_Presentation(QString sender, QString destination, bool status, QJsonObject payload);
    /// A status packet, with "topic" (from "status" on), "sender" and "destination" added; clients only.
    void onDatabasePersistentStatus(QJsonObject _package);
    void onDatabaseRealtimeStatus(QJsonObject _package);
    void onDatabasePresenceSimulationStatus(QJsonObject _package);
    /// A packet of the topic grammar that the role does not handle.
    void on_Unknown(QString topic, QJsonValue payload, int qos, bool retain);

protected Q_SLOTS:
    // What the broker client reports.
    void on_connect(int rc);
    void on_connect_with_flags(int rc, int flags);
    void on_disconnect(int rc);
    void on_publish(int mid);
    void on_message(int mid, QString topic, QString payload, int payloadlen, int qos, bool retain);
    void on_subscribe(int mid, int qos_count, const int* granted_qos);
    void on_unsubscribe(int mid);
    void on_log(int level, QString str);
    void on_error();

protected:
    // Hooks of a role, called by the slots above after the base has done its part.
    virtual void onConnect(int rc) = 0;
    virtual void onConnect_with_flags(int rc, int flags) = 0;
    virtual void onDisconnect(int rc) = 0;
    virtual void onPublish(int mid) = 0;
    /// A message of the topic grammar that another node has sent; value is what stood under "d", undefined when
    /// the payload was no such object.
    virtual void onMessage(int mid, topic_t topic, QJsonValue value, int qos, bool retain) = 0;
    virtual void onSubscribe(int mid, int qos_count, int const* granted_qos, QString topic) = 0;
    virtual void onUnsubscribe(int mid, QString topic) = 0;
    virtual void onLog(int level, QString str) = 0;
    virtual void onError() = 0;
    /// A message of the broker about itself ($SYS).
    virtual void onChangeStausBroker(int mid, QString topic, QString payload, int payloadlen, int qos, bool retain) = 0;

    // What both roles share.

    /// Subscribes (1) or unsubscribes (anything else) a topic.
    void subscribeOrNot(subscribe_t which, QString const& topic, qos_t qos);
    /// Puts the presentation of this node on its way; exceptions pass to the role.
    void sendPresentation(QString const& destination, const char* logSource);
    /// Reports a bridge state topic and whether it concerns the master; nothing for any other topic.
    void reportBridgeState(QString const& topic, QString const& payload, const char* logSource);
    /// Stores the master and its record. The record's signal of it must not be used to delete the engine.
    void storeMaster(QString const& id, QJsonObject const& data);
    /// A record in which the master records nested below the eighth level are cut.
    static QJsonObject withoutDeeperMasters(QJsonObject const& record);
    /// This node's record as a presentation packet holds it.
    QJsonObject serializedSystem() const;
    /// A record out of a presentation packet; throws QJsonSerializerException when a value does not fit.
    std::unique_ptr<system_t> deserializedSystem(QJsonObject const& packet) const;

    const QString dataKey = QStringLiteral("d");
    std::unique_ptr<brokerdiagnostic::diagnostic_broker> statistics;
    mosquittopp::mosquittoqt* client = nullptr; ///< created by the first connect()
    bool logging = false;
    bool encoding = true;
    bool statusbroker = false;
    std::unique_ptr<QRecursiveMutex> configMutex;
    QString configPath;
    std::unique_ptr<jsonserializer::QJsonSerializer> serializer;
    QMap<QString, QList<QString>> placeholders; ///< placeholder to the texts that replace it in subscriptions
    std::unique_ptr<message::classmessages> messages;
    QPointer<config::mosquittocnf> configuration;
    QPointer<system_t> system;

private:
    protobase_t(service_t service, QString const& versionApp, QString const& clientId, bool encoding);
    void takeConfiguration();
    void send(QString& topic, QJsonValue const& payload, qos_t qos, bool retain);
    QString installationId() const;
    mosquittopp::mosquittoqt& brokerClient() const;
    void wireClient();
    void followClientId(QString const& former);
    QString brokerAddress() const;
    QString encoded(QByteArray const& bytes, QByteArray::Base64Options options) const;
    void logPending(const char* function) const;

    QTimer* closeDelay; ///< lets the last will leave before the link is closed
};

} // namespace comunication
