// SPDX-License-Identifier: MIT
// The engine of a panel as QML sees it: properties to bind to, and questions that have an end.
#pragma once

#include "request.h"

#include <flotrofobul/protoclient_t.h>

#include <QtCore/QDateTime>
#include <QtCore/QMap>
#include <QtCore/QTimer>
#include <QtCore/QVariant>
#include <QtQml/QQmlParserStatus>

#include <memory>

namespace comunication {
namespace qml {

/// A client that also tells when its master changes without a signal of the engine (an election takes it away), and
/// whether the broker had kept the packet that is handled at this moment.
class panel_engine_t : public protoclient_t {
    Q_OBJECT
public:
    using protoclient_t::protoclient_t;
    [[nodiscard]] bool isKept() const { return kept; }

Q_SIGNALS:
    void masterChanged();

protected:
    void onMessage(int mid, topic_t topic, QJsonValue value, int qos, bool retain) override;

private:
    bool kept = false;
};

/// What was published of one kind of status.
struct status_t {
    QJsonObject value;
    QDateTime time;    ///< when the last of it arrived; invalid: nothing yet
    bool kept = false; ///< the broker had kept that, so that it may be of any age
    QString sender;
    QMap<QString, QJsonValue> parts; ///< by the levels of the topic that follow the kind
};

/// A wall panel in QML.
///
///     Panel { id: house; configuration: "house.json"; clientId: "panel-1" }
///     Text { text: house.state === Panel.Following ? house.persistent.temperatures.kitchen : house.problem }
///
/// The state follows from what is known, in this order:
///
/// | active | link | reason known | master | state      |
/// |--------|------|--------------|--------|------------|
/// | no     |      |              |        | Offline    |
/// | yes    | no   | yes          |        | Offline    | an attempt goes on, unless autoconnect is off
/// | yes    | no   | no           |        | Connecting |
/// | yes    | yes  |              | no     | Searching  |
/// | yes    | yes  |              | yes    | Following  |
///
/// What was received stays when link or master are lost: its time says how old it is.
class panel_t : public QObject, public QQmlParserStatus {
    Q_OBJECT
    Q_INTERFACES(QQmlParserStatus)
    /// A file or an object. A change of it, or of the two that follow, leaves the broker and begins anew.
    Q_PROPERTY(QVariant configuration READ configuration WRITE setConfiguration NOTIFY configurationChanged)
    Q_PROPERTY(QString clientId READ clientId WRITE setClientId NOTIFY clientIdChanged)
    /// Of the host; presented to the other nodes.
    Q_PROPERTY(QString version READ version WRITE setVersion NOTIFY versionChanged)
    Q_PROPERTY(bool active READ isActive WRITE setActive NOTIFY activeChanged)
    /// Milliseconds that a request may take, where it names no other time.
    Q_PROPERTY(int timeLimit READ timeLimit WRITE setTimeLimit NOTIFY timeLimitChanged)

    Q_PROPERTY(comunication::qml::panel_t::state_t state READ state NOTIFY stateChanged)
    /// Client id of the master; empty unless Following.
    Q_PROPERTY(QString master READ master NOTIFY masterChanged)
    /// Why it is not Following, in words; empty when it is.
    Q_PROPERTY(QString problem READ problem NOTIFY problemChanged)

    Q_PROPERTY(QJsonObject persistent READ persistent NOTIFY persistentChanged)
    Q_PROPERTY(QDateTime persistentTime READ persistentTime NOTIFY persistentChanged)
    Q_PROPERTY(bool persistentKept READ isPersistentKept NOTIFY persistentChanged)
    Q_PROPERTY(QJsonObject realtime READ realtime NOTIFY realtimeChanged)
    Q_PROPERTY(QDateTime realtimeTime READ realtimeTime NOTIFY realtimeChanged)
    Q_PROPERTY(bool realtimeKept READ isRealtimeKept NOTIFY realtimeChanged)
    Q_PROPERTY(QJsonObject presenceSimulation READ presenceSimulation NOTIFY presenceSimulationChanged)
    Q_PROPERTY(QDateTime presenceSimulationTime READ presenceSimulationTime NOTIFY presenceSimulationChanged)
    Q_PROPERTY(bool presenceSimulationKept READ isPresenceSimulationKept NOTIFY presenceSimulationChanged)

public:
    enum state_t { Offline, Connecting, Searching, Following };
    Q_ENUM(state_t)

    explicit panel_t(QObject* parent = nullptr);
    ~panel_t() override;

    void classBegin() override {}
    void componentComplete() override;

    [[nodiscard]] const QVariant& configuration() const { return given; }
    void setConfiguration(const QVariant& value);
    /// As the engine has it, which makes one up where none is given.
    [[nodiscard]] QString clientId() const;
    void setClientId(const QString& id);
    [[nodiscard]] const QString& version() const { return hostVersion; }
    void setVersion(const QString& version);
    [[nodiscard]] bool isActive() const { return active; }
    void setActive(bool on);
    [[nodiscard]] int timeLimit() const { return limit; }
    void setTimeLimit(int milliseconds);

    [[nodiscard]] state_t state() const { return now.state; }
    [[nodiscard]] const QString& master() const { return now.master; }
    [[nodiscard]] const QString& problem() const { return now.problem; }

    [[nodiscard]] const QJsonObject& persistent() const { return statuses[0].value; }
    [[nodiscard]] const QDateTime& persistentTime() const { return statuses[0].time; }
    [[nodiscard]] bool isPersistentKept() const { return statuses[0].kept; }
    [[nodiscard]] const QJsonObject& realtime() const { return statuses[1].value; }
    [[nodiscard]] const QDateTime& realtimeTime() const { return statuses[1].time; }
    [[nodiscard]] bool isRealtimeKept() const { return statuses[1].kept; }
    [[nodiscard]] const QJsonObject& presenceSimulation() const { return statuses[2].value; }
    [[nodiscard]] const QDateTime& presenceSimulationTime() const { return statuses[2].time; }
    [[nodiscard]] bool isPresenceSimulationKept() const { return statuses[2].kept; }

    /// Asks the master. kind: "persistent", "realtime" or "presenceSimulation", further levels of a topic may follow
    /// ("persistent/lamps"). The first status of the same topic, or one below, that comes after it is the answer; one
    /// that the broker had kept is none. Without a master, with the loss of it or of the link, and after the time limit
    /// (milliseconds, by default that of the panel) it fails.
    Q_INVOKABLE comunication::qml::request_t* request(const QString& kind, const QJsonValue& payload = QJsonObject(),
                                                      int timeLimit = 0);
    /// Sends a packet to the master, topic from "request" or "command" onwards. False if none is known.
    Q_INVOKABLE bool send(const QString& topic, const QJsonValue& payload = QJsonObject());

Q_SIGNALS:
    void configurationChanged();
    void clientIdChanged();
    void versionChanged();
    void activeChanged();
    void timeLimitChanged();
    void stateChanged();
    void masterChanged();
    void problemChanged();
    void persistentChanged();
    void realtimeChanged();
    void presenceSimulationChanged();

    void masterFound(const QString& master);
    void masterLost(const QString& master);
    /// kind: as for request(); topic: from "status" onwards; kept: the broker had it.
    void statusReceived(const QString& kind, const QString& topic, const QJsonValue& payload, bool kept);
    /// A packet that is no status, such as a notification, with its whole topic.
    void packetReceived(const QString& topic, const QJsonValue& payload);
    void bridgeChanged(const QString& bridge, bool up);

private:
    /// What a binding sees of link and master.
    struct seen_t {
        state_t state = Offline;
        QString master;
        QString problem;
    };
    struct question_t {
        request_t* request;
        QString topic; ///< of its answer
    };

    void beginSoon();
    void begin();
    void leave();
    void makeEngine(const QJsonObject& json);
    [[nodiscard]] seen_t look() const;
    void update();
    void take(int kind, const QJsonObject& packet);
    void failAll(const QString& reason);

    QVariant given;
    QString givenId;
    QString hostVersion;
    bool active = true;
    int limit = 5000;
    bool complete = false;
    QTimer beginning; ///< several changes at once begin anew once
    QString configurationProblem;
    QString lostMaster; ///< since the link is up
    std::unique_ptr<panel_engine_t> engine;
    QPointer<QObject> leaving; ///< the engine before, as long as it takes its leave
    seen_t now;
    status_t statuses[3];
    QVector<question_t> questions;
};

} // namespace qml
} // namespace comunication
