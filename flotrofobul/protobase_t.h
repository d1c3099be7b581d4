// SPDX-License-Identifier: MIT
// The engine: its public operations, its signals and the hooks of a role. What the two roles add is in protoclient_t.h
// and protoserver_t.h.
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

class advice_t;

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

/// The engine that an application embeds, in the role of a server (protoserver_t) or of a client (protoclient_t).
///
/// An engine lives on the thread of its event loop, and all its operations must be called there. None of them blocks
/// the loop, except connect() with async false. The engine owns its record, configuration model, registry and
/// statistics. In any of its signals the host may call any operation or delete the engine.
///
/// No operation throws. Failures are logged and reported by the result: libmosquitto's integer codes (MOSQ_ERR_*, 0 is
/// success) pass through unchanged. Before the first connect() has created the broker client, an operation that needs
/// it logs one line and does nothing.
///
/// Payloads are wrapped as {"d": value}. With encoding on they are sent as Base64, for consumers that decode it; an
/// engine never decodes what it receives, so engines that talk to each other are built with encoding off.
class FLOTROFOBUL_EXPORT protobase_t : public QObject {
    Q_OBJECT

public:
    /// Builds an engine from a configuration file; one that cannot be read is logged, and the defaults stay.
    /// @param service      role of the node
    /// @param versionApp   version of the host application, presented to the other nodes
    /// @param path         JSON file
    /// @param clientId     MQTT client id, taken as given; if blank, it is made from the role and the host name
    /// @param encoding     whether payloads are sent as Base64
    protobase_t(service_t service, const QString& versionApp, const QString& path, const QString& clientId,
                bool encoding);
    /// Builds an engine from a configuration object; an empty one is logged, and the defaults stay.
    protobase_t(service_t service, const QString& versionApp, const QJsonObject& configuration, const QString& clientId,
                bool encoding);
    /// Deletes what the engine owns. The broker client is deleted by the event loop, which closes the link.
    ~protobase_t() override;

    // Configuration

    /// Reads a configuration file into the model. False if it cannot be opened or is not JSON; the model then stays as
    /// it is.
    bool readConfigFromFile(const QString& path);
    /// Reads a configuration object into the model. False if it is empty; the model then stays as it is.
    bool readConfigFromJson(const QJsonObject& json);
    /// Whether the last configuration that was read was accepted, that is, has an object "mqtt". Otherwise the engine
    /// keeps the previous values, at first the defaults (a broker on this machine, no installation); a host should then
    /// end. The log says why, in its advice at the latest.
    bool isConfigured() const { return configured; }
    /// Writes the configuration to a file, indented. An interrupted save leaves the old file as it was; a file that
    /// holds a password is readable by its owner only. False if it cannot be written.
    bool saveConfigToFile(const QString& path);
    /// Client id of this node.
    QString getClientId() const;
    /// Version of the protocol, which every presentation has. (That of the library is in the package.)
    QString getVersion();
    /// Whether payloads are sent as Base64.
    bool isEncoding() const { return encoding; }
    /// Switches Base64 on or off, for everything that is published from now on.
    void setEncoding(bool on) { encoding = on; }

    // Broker client; called by connect()

    /// Creates and wires the broker client, replacing an earlier one. 0, or 1 if credentials, TLS or last will were
    /// refused.
    int init_comunication();
    /// Sets up TLS as configured. 0 on success and when TLS is off, the broker client's code if it refuses, 1 on an
    /// exception.
    int init_security();
    /// Registers the last will, which takes effect with the next session. The broker client's code, 0 on success; -1 on
    /// an exception.
    int init_lastWillMessage();

    // Link

    /// Whether the broker has accepted the session; logged.
    bool connected();
    /// Whether the broker has accepted the session; false before the first connect().
    bool getConnected() const;
    /// Why there is no link, in words; empty while there is one, before the first connect() and after disconnection().
    QString linkProblem() const;
    /// Switches the logging of libmosquitto's own lines, in the configuration as well.
    void setMosquittoLog(bool on);

    // Broker statistics

    /// Switches the recording of $SYS messages. Switching it on subscribes "$SYS/#" if the link is up and nothing is
    /// subscribed yet; switching it off unsubscribes.
    void setStatusbroker(bool on);
    /// Whether $SYS messages are recorded.
    bool isStatusbroker() const { return statusbroker; }
    /// The recorded statistics, owned by the engine. Its own flags choose what is recorded.
    /// Include <flotrofobul/utility/statusbroker.h> to read them.
    brokerdiagnostic::diagnostic_broker* getStatusBroken() const { return statistics.get(); }

    // Role

    /// Subscribes (1) or unsubscribes (anything else) what comes over the bridges.
    virtual void init_bridge(subscribe_t which) = 0;
    /// Publishes this node's presentation to a destination. A failure is logged; a client disconnects then.
    virtual void publish_presentation(const QString& destination) = 0;
    /// Subscribes the presentations of other nodes.
    virtual void subscription_presentation() = 0;
    /// The topic of this role's last will, made from a template's topic.
    virtual QString topic_lastwillmessage(QString topic) = 0;

    // Publishing and subscribing. These return nothing: a failure is logged, or shows in the missing acknowledgement.

    /// Subscribes (1) or unsubscribes (anything else) what both roles listen to.
    virtual void init_subscription(subscribe_t which);
    /// Subscribes every topic that the placeholders of the given one stand for. What arrives there causes the signals
    /// of the role, or on_Unknown().
    virtual void subscribe(const QString& topic, qos_t qos);
    /// Unsubscribes every topic that the placeholders of the given one stand for. Logs an error and sends nothing if
    /// the registry holds no subscription.
    virtual void unsubscribe(const QString& topic);
    /// Publishes {"d": payload}, with the placeholders of sender and installation id replaced.
    virtual void publish(QString topic, const QJsonObject& payload, qos_t qos, bool retain);
    virtual void publish(QString topic, const QJsonValue& payload, qos_t qos, bool retain);
    /// Publishes a packet of the host over the forward bridge. "topic" (the levels of the value) and "payload" are
    /// required, or it is refused and logged; "destination" defaults to the master. The QoS is always 2, whatever is
    /// asked for.
    virtual void publish(const QJsonObject& packet, qos_t qos, bool retain);
    /// Fills in the own client id as the sender.
    virtual void topic_publish_resolution_sender(QString& topic);
    /// Fills in sender and destination.
    void topic_resolution(QString& topic, const QString& sender, const QString& destination);
    /// Fills in the destination, and the own client id as the sender.
    void topic_resolution_destination(QString& topic, const QString& destination);
    /// Replaces each topic of the list by those that its placeholders stand for. A placeholder that stands for nothing
    /// stays.
    void topic_subscribe_resolution(QList<QString>& topics);
    /// The topic without the common prefix, which is what topic_t::getValue() returns for it.
    QString getCommandTopic(QString topic);

    /// JSON text of an object; empty on an exception.
    QString JsonObjectToString(const QJsonObject& object, QJsonDocument::JsonFormat format);
    /// The object in a JSON text; empty if there is none.
    QJsonObject StringToJsonObject(const QString& text);
    /// Payload text of an object: compact JSON, as Base64 without padding while encoding is on.
    QString Encode(const QJsonObject& object);
    /// Payload text of a text: the text itself, as Base64 with padding while encoding is on.
    QString Encode(const QString& text);
    /// Payload text of an object or a text (anything else is empty), as Base64 without padding while encoding is on.
    QString Encode(const QJsonValue& value);

public Q_SLOTS:
    /// Connects to the configured broker. While the configuration's autoconnect is on, an attempt that fails and a link
    /// that is lost are tried again. Returns libmosquitto's code, combined with that of init_comunication() on first
    /// use; -1 on an exception. onBrokerConnection() follows with the broker's answer, or onBrokerDisconnection() if
    /// none comes; an attempt that fails at once is told by the result only.
    /// @param _clientid  unless empty, becomes the node's client id (role + "@" + its letters, digits and "-")
    /// @param async      false: waits for the broker's answer, but no longer than the configured timeout
    int connect(const QString& _clientid = QString(), bool async = true);
    /// Ends the session until the next connect(). With _sendLastWill, publishes the last will to the other nodes,
    /// closes the link one second later and returns 0. Without, closes the link at once and returns libmosquitto's
    /// code. -1 on an exception. If there was a link, onBrokerDisconnection() follows.
    int disconnection(bool _sendLastWill = true);

Q_SIGNALS:
    /// The broker has answered an attempt to connect: rc is the return code of MQTT 3.1.1's CONNACK (0 accepted, 1 to 5
    /// refused), bit 0 of flags tells whether the broker kept the session. The role has handled it already.
    void onBrokerConnection(int rc, int flags);
    /// The link is down: rc is 0 if the engine closed it, otherwise libmosquitto's code (7 is a lost connection). All
    /// pending requests are forgotten.
    void onBrokerDisconnection(int rc);
    /// Why there is no link, in words for the person before the panel, whenever that changes: linkProblem() says the
    /// same. Empty when the link is up again, and after disconnection().
    void onLinkProblem(QString reason);
    /// A bridge came up (payload "1") or went down ("0").
    void onBridgeConnectionEvent(QString _topic, QString bridge, QString payload);
    /// The cloud bridge with the bridge key came up or went down; clients only.
    void onBridgeConnectionCloudEvent(QString _topic, QString bridge, QString payload, bool connected);
    /// A packet was not published because no master is known; clients only.
    void onMasterIdError(QJsonObject _packet);
    /// A bridge to the master went down. Recognised for masters whose client id is "tarnel-server-" followed by the
    /// third or fourth hyphen-separated part of the bridge's name.
    void onMasterBridgeError();
    /// A node came or went. At a client: its master. At a master: a client that came or went, a server that went, and
    /// the server whose presentation made this one the master.
    void on_Presentation(QString sender, QString destination, bool status, QJsonObject payload);
    /// A status packet, with "topic" (from "status" onwards), "sender" and "destination" added; clients only.
    void onDatabasePersistentStatus(QJsonObject _package);
    /// The same for measured values.
    void onDatabaseRealtimeStatus(QJsonObject _package);
    /// The same for the simulation of presence.
    void onDatabasePresenceSimulationStatus(QJsonObject _package);
    /// A packet that matches the topic grammar, but that the role does not handle.
    void on_Unknown(QString topic, QJsonValue payload, int qos, bool retain);

protected Q_SLOTS:
    // What the broker client reports; each calls its hook below.
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
    using QObject::connect; // beside the engine's own, for subclasses

    // Hooks of a role, called by the slots above when the base has done its part.
    virtual void onConnect(int rc) = 0;
    virtual void onConnect_with_flags(int rc, int flags) = 0;
    virtual void onDisconnect(int rc) = 0;
    virtual void onPublish(int mid) = 0;
    /// A message from another node whose topic matches the grammar. value is what the payload holds under "d",
    /// undefined if it holds none.
    virtual void onMessage(int mid, topic_t topic, QJsonValue value, int qos, bool retain) = 0;
    virtual void onSubscribe(int mid, int qos_count, const int* granted_qos, QString topic) = 0;
    virtual void onUnsubscribe(int mid, QString topic) = 0;
    virtual void onLog(int level, QString str) = 0;
    virtual void onError() = 0;
    /// A message from the broker about itself ($SYS).
    virtual void onChangeStausBroker(int mid, QString topic, QString payload, int payloadlen, int qos, bool retain) = 0;

    const QString dataKey = QStringLiteral("d");
    std::unique_ptr<brokerdiagnostic::diagnostic_broker> statistics;
    mosquittopp::mosquittoqt* client = nullptr; ///< created by the first connect()
    bool logging = false;
    bool encoding = true;
    bool statusbroker = false;
    std::unique_ptr<QRecursiveMutex> configMutex;
    QString configPath;
    std::unique_ptr<jsonserializer::QJsonSerializer> serializer;
    QMap<QString, QList<QString>> placeholders; ///< texts that replace each placeholder in subscriptions
    std::unique_ptr<message::classmessages> messages;
    QPointer<config::mosquittocnf> configuration;
    QPointer<system_t> system;

private:
    friend struct shared_t; // what the engine's files share with the roles

    protobase_t(service_t service, const QString& versionApp, const QString& clientId, bool encoding);

    bool applyConfiguration(const QJsonObject& json, const QString& source);
    int endSession();
    void forgetRequests();
    void noteSessionOf(int mid);

    std::unique_ptr<advice_t> advice;
    bool configured = false;
    QTimer* closeDelay;           ///< gives the last will time to leave before the link is closed
    QList<int> lastWills;         ///< message ids of last wills on their way
    QMap<int, int> laterRequests; ///< message ids, and how many ends of earlier sessions are still to be reported
};

} // namespace comunication
