// SPDX-License-Identifier: MIT
// The other nodes of a house, for a test of one: real engines that do what they are told. They live in the test's
// process and on its event loop, at a broker of this machine. All signals and operations of an engine are there as
// well, connect() and disconnection() among them; to let one fall silent or die, give it the port of a proxy_t.
#pragma once

#include <flotrofobul/protoclient_t.h>
#include <flotrofobul/protoserver_t.h>

#include <QtCore/QJsonObject>
#include <QtCore/QList>
#include <QtCore/QMap>

#include <functional>

namespace comunication {
namespace testkit {

/// A configuration for a host at a port of this machine. All nodes of a process belong to one installation.
inline QJsonObject houseAt(int port, const QString& installation = QStringLiteral("house1"))
{
    const QJsonObject global{{QStringLiteral("installation_id"), installation}, {QStringLiteral("port"), port}};
    return {{QStringLiteral("mqtt"), QJsonObject{{QStringLiteral("global"), global}}}};
}

/// A master that notes every request to it and answers by a table, for tests of panels. Present, and master, from
/// connect() on.
class master_t : public protoserver_t {
public:
    /// Makes the payload of an answer from the packet of the request.
    using reply_t = std::function<QJsonValue(const QJsonObject& request)>;

    explicit master_t(const QJsonObject& givenConfiguration, const QString& id = QStringLiteral("server-1"))
        : protoserver_t(QStringLiteral("1.0.0"), givenConfiguration, true, id, false)
    {
        QObject::connect(this, &protoserver_t::onConnection, this,
                         [this] { init_subscription(utility::subscribe_topics); });
        for (const auto request : {&protoserver_t::onRequestPersistentRequest, &protoserver_t::onRequestRealtimeRequest,
                                   &protoserver_t::onRequestPresenceSimulationRequest, &protoserver_t::onRequestCmd}) {
            QObject::connect(this, request, this, &master_t::hear);
        }
    }

    /// From now on a request, such as "request/DB/persistent", and all below it that have no answer of their own are
    /// answered on the status topic of the same name: to all, retained, as a master tells what has changed, or to the
    /// one who asks.
    void answer(const QString& request, const reply_t& reply, bool toAll = true)
    {
        answers.insert(request, {reply, toAll});
    }
    void answer(const QString& request, const QJsonObject& payload, bool toAll = true)
    {
        answer(
            request, [payload](const QJsonObject&) { return payload; }, toAll);
    }
    /// From now on it is only noted.
    void ignore(const QString& request) { answers.insert(request, {}); }

    /// Publishes a packet that nobody has asked for.
    void say(const QString& topic, const QJsonValue& payload, const QString& destination = QStringLiteral("all"),
             bool retain = false)
    {
        eventPublish({{QStringLiteral("topic"), topic},
                      {QStringLiteral("destination"), destination},
                      {QStringLiteral("payload"), payload}},
                     utility::exactly_once, retain);
    }

    QList<QJsonObject> requests; ///< packets, each with "topic", "sender" and "payload"

private:
    struct answer_t {
        reply_t reply;
        bool toAll = true;
    };

    void hear(const QJsonObject& request)
    {
        // One that has lost its role hears the new master's requests as well.
        if (request[u"destination"].toString() != getClientId()) {
            return;
        }
        requests << request;
        const QString topic = request[u"topic"].toString();
        for (QString name = topic; !name.isEmpty(); name = name.section(u'/', 0, -2)) {
            const auto found = answers.constFind(name);
            if (found != answers.constEnd()) {
                if (const answer_t answer = *found; answer.reply) { // a reply may change the table
                    say(QStringLiteral("status") + topic.mid(topic.indexOf(u'/')), answer.reply(request),
                        answer.toAll ? QStringLiteral("all") : request[u"sender"].toString(), answer.toAll);
                }
                return;
            }
        }
    }

    QMap<QString, answer_t> answers; ///< by request
};

/// A panel that asks when it is told to and notes every status that it hears, for tests of servers. It follows the
/// master from connect() on; getServerId() names it.
class panel_t : public protoclient_t {
public:
    explicit panel_t(const QJsonObject& givenConfiguration, const QString& id = QStringLiteral("panel-1"))
        : protoclient_t(QStringLiteral("1.0.0"), givenConfiguration, id, false)
    {
        for (const auto status : {&protobase_t::onDatabasePersistentStatus, &protobase_t::onDatabaseRealtimeStatus,
                                  &protobase_t::onDatabasePresenceSimulationStatus}) {
            QObject::connect(this, status, this, [this](const QJsonObject& packet) { statuses << packet; });
        }
    }

    /// Sends a request, such as "request/DB/persistent", to the master; without one, onMasterIdError() is emitted.
    void ask(const QString& request, const QJsonValue& payload = QJsonObject())
    {
        publish({{QStringLiteral("topic"), request}, {QStringLiteral("payload"), payload}});
    }

    QList<QJsonObject> statuses; ///< packets, each with "topic", "sender" and "payload"
};

} // namespace testkit
} // namespace comunication
