// SPDX-License-Identifier: MIT
// A model of what the broker publishes about itself under $SYS: the records, and the one operation that fills them.
// Subscribing $SYS is up to the engine.
#pragma once

#include <flotrofobul/export.h>

#include <QtCore/QDateTime>
#include <QtCore/QList>
#include <QtCore/QMap>
#include <QtCore/QString>

namespace comunication {
namespace brokerdiagnostic {

// Every value is the text that the broker published, and null until then. A record owns the records it points to.

/// Bytes received and sent.
struct FLOTROFOBUL_EXPORT diagnostic_bytes {
    QString received;
    QString sent;
};

/// Memory of the broker process, in bytes.
struct FLOTROFOBUL_EXPORT diagnostic_heap {
    QString current;
    QString maximum;
};

/// How many subscriptions and retained messages the broker holds.
struct FLOTROFOBUL_EXPORT diagnostic_storage {
    QString subscriptions;
    QString retained;
};

/// How many clients the broker has in each state.
struct FLOTROFOBUL_EXPORT diagnostic_clients {
    QDateTime lastUpdate; ///< for the host's own use
    QString total;
    QString maximum;
    QString inactive;
    QString disconnected;
    QString active;
    QString connected;
    QString expired;
};

/// All MQTT messages.
struct FLOTROFOBUL_EXPORT diagnostic_message {
    QString stored;
    QString received;
    QString sent;
};

/// PUBLISH messages only.
struct FLOTROFOBUL_EXPORT diagnostic_publish_message {
    QString dropped;
    QString received;
    QString sent;
};

/// Messages in the broker's store.
struct FLOTROFOBUL_EXPORT diagnostic_messages_store {
    QString count;
    QString bytes;
};

/// The message counters.
struct FLOTROFOBUL_EXPORT diagnostic_messages {
    diagnostic_messages();
    ~diagnostic_messages();

    QDateTime lastUpdate; ///< for the host's own use
    diagnostic_message* message = nullptr;
    diagnostic_publish_message* publish = nullptr;
    diagnostic_bytes* publishBytes = nullptr;
    diagnostic_messages_store* store = nullptr;

private:
    Q_DISABLE_COPY(diagnostic_messages)
};

/// One load average over the last 1, 5 and 15 minutes.
struct FLOTROFOBUL_EXPORT diagnostic_average {
    QString min1;
    QString min5;
    QString min15;
};

/// Load averages of bytes.
struct FLOTROFOBUL_EXPORT diagnostic_average_bytes {
    diagnostic_average_bytes();
    ~diagnostic_average_bytes();

    diagnostic_average* received = nullptr;
    diagnostic_average* sent = nullptr;

private:
    Q_DISABLE_COPY(diagnostic_average_bytes)
};

/// Load averages of PUBLISH messages.
struct FLOTROFOBUL_EXPORT diagnostic_avarage_publish {
    diagnostic_avarage_publish();
    ~diagnostic_avarage_publish();

    diagnostic_average* dropped = nullptr;
    diagnostic_average* received = nullptr;
    diagnostic_average* sent = nullptr;

private:
    Q_DISABLE_COPY(diagnostic_avarage_publish)
};

/// The load averages.
struct FLOTROFOBUL_EXPORT diagnostic_load {
    diagnostic_load();
    ~diagnostic_load();

    QDateTime lastUpdate; ///< for the host's own use
    diagnostic_average* connections = nullptr;
    diagnostic_average_bytes* bytes = nullptr;
    diagnostic_average* sockets = nullptr;
    diagnostic_avarage_publish* publish = nullptr;
    diagnostic_average* messagesSent = nullptr;
    diagnostic_average* messagesReceived = nullptr;
    diagnostic_average* messagesStored = nullptr;

private:
    Q_DISABLE_COPY(diagnostic_load)
};

/// The broker's own log.
struct FLOTROFOBUL_EXPORT diagnostic_logging {
    diagnostic_logging();
    ~diagnostic_logging();

    QList<QString>* lines = nullptr; ///< in order of arrival; grows until the host trims it

private:
    Q_DISABLE_COPY(diagnostic_logging)
};

/// Last known state of one bridge of the broker.
struct FLOTROFOBUL_EXPORT diagnostic_bridges {
    diagnostic_bridges() = default;
    diagnostic_bridges(const QString& bridge, bool up) : name(bridge), connected(up) {}

    QString name;
    bool connected = false;
};

/// The whole model. An engine owns one and fills it; a host reads the fields on the engine's thread.
///
/// Values are overwritten, never cleared, and a bridge that was seen once stays. Nothing is recorded until a flag is
/// set; a flag takes effect with the next message.
struct FLOTROFOBUL_EXPORT diagnostic_broker {
    diagnostic_broker();
    ~diagnostic_broker();

    QDateTime lastUpdate; ///< local time of the last statistics value or bridge state
    QString version;
    QString timestamp;
    QString uptime;
    diagnostic_bytes* bytes = nullptr;
    diagnostic_heap* heap = nullptr;
    diagnostic_clients* clients = nullptr;
    diagnostic_messages* messages = nullptr;
    diagnostic_load* load = nullptr;
    diagnostic_storage* storage = nullptr;
    diagnostic_logging* logging = nullptr;
    QMap<QString, QString> rawMessages;                   ///< last payload of every topic
    QMap<QString, diagnostic_bridges>* bridges = nullptr; ///< by connection name
    bool storeBrokerLogs = false;
    bool storeBrokerMessage = false;
    bool storeBrokerStatistics = false;
    bool storeBrokerBridgeConnection = false;

    /// Whether the broker's log lines are kept.
    [[nodiscard]] bool getStoreBrokerLogs() const noexcept { return storeBrokerLogs; }
    void setStoreBrokerLogs(bool on) noexcept { storeBrokerLogs = on; }

    /// Whether every message is kept unchanged.
    [[nodiscard]] bool getStoreBrokerMessage() const noexcept { return storeBrokerMessage; }
    void setStoreBrokerMessage(bool on) noexcept { storeBrokerMessage = on; }

    /// Whether the statistics are kept.
    [[nodiscard]] bool getStoreBrokerStatistics() const noexcept { return storeBrokerStatistics; }
    void setStoreBrokerStatistics(bool on) noexcept { storeBrokerStatistics = on; }

    /// Whether the states of bridges are kept.
    [[nodiscard]] bool getStoreBrokerBridgeConnection() const noexcept { return storeBrokerBridgeConnection; }
    void setStoreBrokerBridgeConnection(bool on) noexcept { storeBrokerBridgeConnection = on; }

    /// Records one message of the broker, as far as the flags ask for it. Topics outside $SYS/broker/, and those that
    /// are neither a recorded statistics value nor a bridge state, are logged at level 3. Throws nothing: an exception
    /// is logged at level 1, and what was stored before it stays.
    void updateMessage(const QString& topic, const QString& payload);

private:
    Q_DISABLE_COPY(diagnostic_broker)
};

} // namespace brokerdiagnostic
} // namespace comunication
