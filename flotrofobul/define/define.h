// SPDX-License-Identifier: MIT
// The vocabulary of the protocol: placeholders, bridge names, topic prefixes and packet templates.
// Nothing here is exported: every module that includes this header has its own equal constants, which are created in
// this order when the module is loaded and never change.
#pragma once

#include <flotrofobul/define/types.h>

#include <QtCore/QJsonObject>
#include <QtCore/QString>

namespace comunication {

namespace define_detail {

inline QJsonObject packet(const QString& topic)
{
    return {{QStringLiteral("topic"), topic}, {QStringLiteral("qos"), 2}};
}

inline QJsonObject packet(const QString& topic, bool retain)
{
    QJsonObject object = packet(topic);
    object.insert(QStringLiteral("retain"), retain);
    return object;
}

inline QJsonObject with(QJsonObject object, const QString& key, const QJsonValue& value)
{
    object.insert(key, value);
    return object;
}

} // namespace define_detail

// Placeholders, replaced when a topic is published or subscribed.
inline const QString DESTINATION = QStringLiteral("@destination");        ///< destination level of a topic
inline const QString SENDER = QStringLiteral("@sender");                  ///< client id of the publishing node
inline const QString CLIENTID = QStringLiteral("@clientid");              ///< a client id
inline const QString INSTALLATIONID = QStringLiteral("@installation_id"); ///< installation id of the system
inline const QString BRIDGEKEY = QStringLiteral("@bridgekey");            ///< name of a bridge connection

// Names of the bridges between brokers, and the first level of every local topic.
inline const QString REMOTE_PREFIX = QStringLiteral("remote-bridge");
inline const QString FORWARD_PREFIX = QStringLiteral("forward-bridge");
inline const QString CLOUD_PREFIX_1 = QStringLiteral("cloud-bridge");
inline const QString CLOUD_PREFIX_2 = QStringLiteral("other-cloud-bridge");
inline const QString LOCAL_PREFIX = QStringLiteral("local");

// State of the bridges, as published by the broker.
inline const QJsonObject bridge_state = define_detail::packet(QStringLiteral("$SYS/broker/connection/#"), false);
inline const QJsonObject bridge_state_cloud_connection =
    define_detail::packet(QStringLiteral("$SYS/brokers/+/clients/") + BRIDGEKEY + QStringLiteral("/connected"), false);
inline const QJsonObject bridge_state_cloud_disconnection = define_detail::packet(
    QStringLiteral("$SYS/brokers/+/clients/") + BRIDGEKEY + QStringLiteral("/disconnected"), false);

// What comes over the bridges; these templates have no retain flag.
inline const QJsonObject bridge_forward_sub =
    define_detail::packet(FORWARD_PREFIX + u'/' + LOCAL_PREFIX + u'/' + INSTALLATIONID + QStringLiteral("/#"));
inline const QJsonObject bridge_remote_sub =
    define_detail::packet(REMOTE_PREFIX + u'/' + LOCAL_PREFIX + u'/' + INSTALLATIONID + QStringLiteral("/#"));
inline const QJsonObject bridge_cloud_sub =
    define_detail::packet(CLOUD_PREFIX_1 + u'/' + LOCAL_PREFIX + u'/' + INSTALLATIONID + QStringLiteral("/#"));

// Kinds of database.
inline const QString PREFIX_DB_PERSISTENT = QStringLiteral("DB/persistent");
inline const QString PREFIX_DB_REALTIME = QStringLiteral("DB/realtime");
inline const QString PREFIX_DB_PRESENCESIMULATION = QStringLiteral("DB/presencesimulation");
inline const QString PREFIX_DB_COMAMND = QStringLiteral("DB/command");

// Topic prefixes. The command kind has a request topic, but no status topic.
inline const QString PREFIX = LOCAL_PREFIX + u'/' + INSTALLATIONID + u'/' + SENDER + u'/' + DESTINATION;
inline const QString PREFIX_PERFORMANCE = QStringLiteral("$SYS");
inline const QString PREFIX_CONNECTIONS = PREFIX + QStringLiteral("/connection");
inline const QString PREFIX_MASTER = PREFIX + QStringLiteral("/master");
inline const QString PREFIX_STATUS = PREFIX + QStringLiteral("/status");
inline const QString PREFIX_STATUS_PERSISTENT_DB = PREFIX_STATUS + u'/' + PREFIX_DB_PERSISTENT;
inline const QString PREFIX_STATUS_REALTIME_DB = PREFIX_STATUS + u'/' + PREFIX_DB_REALTIME;
inline const QString PREFIX_STATUS_PRESENCESIMULATION_DB = PREFIX_STATUS + u'/' + PREFIX_DB_PRESENCESIMULATION;
inline const QString PREFIX_REQUEST = PREFIX + QStringLiteral("/request");
inline const QString PREFIX_REQUEST_PERSISTENT_DB = PREFIX_REQUEST + u'/' + PREFIX_DB_PERSISTENT;
inline const QString PREFIX_REQUEST_REALTIME_DB = PREFIX_REQUEST + u'/' + PREFIX_DB_REALTIME;
inline const QString PREFIX_REQUEST_PRESENCESIMULATION_DB = PREFIX_REQUEST + u'/' + PREFIX_DB_PRESENCESIMULATION;
inline const QString PREFIX_REQUEST_COMMAND_DB = PREFIX_REQUEST + u'/' + PREFIX_DB_COMAMND;
inline const QString PREFIX_NOTIFICATION = PREFIX + QStringLiteral("/notification");
inline const QString PREFIX_COMMAND = PREFIX + QStringLiteral("/command");

// Packet templates. The last will goes to the presentation topic; only the status template is retained.
inline const QJsonObject masterelection = define_detail::packet(PREFIX_MASTER, false);
inline const QJsonObject presentation =
    define_detail::packet(PREFIX_CONNECTIONS + QStringLiteral("/presentation"), false);
inline const QJsonObject lastwill = define_detail::packet(presentation[QStringLiteral("topic")].toString(), false);
inline const QJsonObject performance = define_detail::packet(PREFIX_PERFORMANCE + QStringLiteral("/#"), false);
inline const QJsonObject status = define_detail::packet(PREFIX_STATUS + QStringLiteral("/#"), true);
inline const QJsonObject request = define_detail::packet(PREFIX_REQUEST + QStringLiteral("/#"), false);
inline const QJsonObject notification = define_detail::packet(PREFIX_NOTIFICATION + QStringLiteral("/#"), false);
inline const QJsonObject all_packet = define_detail::packet(QStringLiteral("#"), false);

// Subscription sets: common to both roles, added by a server, added by a client.
inline const QJsonObject subscriptions{{QStringLiteral("status"), status}};
inline const QJsonObject subscriptions_server{{QStringLiteral("request"), request},
                                              {QStringLiteral("performance"), performance}};
inline const QJsonObject subscriptions_client{{QStringLiteral("notification"), notification}};

/// Tells the master that a client has made its subscriptions.
inline const QJsonObject pkgClientReady = define_detail::with(
    define_detail::packet(PREFIX_COMMAND + QStringLiteral("/client/ready"), false), QStringLiteral("payload"), true);

} // namespace comunication
