// SPDX-License-Identifier: MIT
// The model of what a broker says of itself under $SYS: its records and the one operation that fills
// them. Subscribing $SYS is the engine's business.
#pragma once

#include <flotrofobul/export.h>

#include <QtCore/QDateTime>
#include <QtCore/QList>
#include <QtCore/QMap>
#include <QtCore/QString>

namespace comunication {
namespace brokerdiagnostic {

// Every value is the text that the broker published, null until it published one. A record owns the
// records that it points to.

/// Bytes that came in and went out.
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

/// MQTT messages of every kind.
struct FLOTROFOBUL_EXPORT diagnostic_message {
    QString stored;
    QString received;
    QString sent;
};

/// PUBLISH messages alone.
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

    QList<QString>* lines = nullptr; ///< in the order of arrival; only grows, trimming it is up to the host

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

/// The whole model. An engine owns one and fills it; a host reads the fields, on the engine's thread.
///
/// Values are overwritten, never cleared, and a bridge once seen stays. Nothing is recorded until a flag
/// says so; a flag acts from the next message on.
struct FLOTROFOBUL_EXPORT diagnostic_broker {
    diagnostic_broker();
    ~diagnostic_broker();

    QDateTime lastUpdate; ///< local time at which a statistics value or the state of a bridge came last
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
    QMap<QString, QString> rawMessages;                   ///< last payload of every topic that was passed in
    QMap<QString, diagnostic_bridges>* bridges = nullptr; ///< by the name of the connection
    bool storeBrokerLogs = false;
    bool storeBrokerMessage = false;
    bool storeBrokerStatistics = false;
    bool storeBrokerBridgeConnection = false;

    /// Whether the broker's log lines are kept.
    [[nodiscard]] bool getStoreBrokerLogs() const noexcept { return storeBrokerLogs; }
    void setStoreBrokerLogs(bool on) noexcept { storeBrokerLogs = on; }

    /// Whether every message is kept as it came.
    [[nodiscard]] bool getStoreBrokerMessage() const noexcept { return storeBrokerMessage; }
    void setStoreBrokerMessage(bool on) noexcept { storeBrokerMessage = on; }

    /// Whether the statistics are kept.
    [[nodiscard]] bool getStoreBrokerStatistics() const noexcept { return storeBrokerStatistics; }
    void setStoreBrokerStatistics(bool on) noexcept { storeBrokerStatistics = on; }

    /// Whether the states of bridges are kept.
    [[nodiscard]] bool getStoreBrokerBridgeConnection() const noexcept { return storeBrokerBridgeConnection; }
    void setStoreBrokerBridgeConnection(bool on) noexcept { storeBrokerBridgeConnection = on; }

    /// Records one message of the broker, as far as the flags ask for it. A topic outside $SYS/broker/
    /// and one that no statistics value or bridge took are logged with level 3. Nothing is thrown: a
    /// failure is logged with level 1, and what was stored before it stays.
    void updateMessage(const QString& topic, const QString& payload);

private:
    Q_DISABLE_COPY(diagnostic_broker)
};

} // namespace brokerdiagnostic
} // namespace comunication
