// SPDX-License-Identifier: MIT
// Engines for tests: everything that an engine does, logs and signals stands in one list, in its order.
#pragma once

#include "log_recorder.h"

#include <flotrofobul/messages/messages.h>
#include <flotrofobul/protoclient_t.h>
#include <flotrofobul/protoserver_t.h>
#include <flotrofobul/utility/system_t.h>

#include <QtCore/QJsonArray>

/// An engine whose slots, hooks and members a test reaches.
template <class Role>
class bare_t : public Role {
public:
    using Role::Role;
    using protobase_t = comunication::protobase_t;
    using protobase_t::client;
    using protobase_t::configuration;
    using protobase_t::messages;
    using protobase_t::on_connect;
    using protobase_t::on_connect_with_flags;
    using protobase_t::on_disconnect;
    using protobase_t::on_error;
    using protobase_t::on_log;
    using protobase_t::on_message;
    using protobase_t::on_publish;
    using protobase_t::on_subscribe;
    using protobase_t::on_unsubscribe;
    using protobase_t::placeholders;
    using protobase_t::serializer;
    using protobase_t::system;
    using Role::onSubscribe;
    using Role::onUnsubscribe;
};

namespace probe {

inline QString textOf(const QString& text)
{
    return text;
}
inline QString textOf(bool flag)
{
    return flag ? "true"_s : "false"_s;
}
inline QString textOf(int number)
{
    return QString::number(number);
}
inline QString textOf(const QJsonObject& object)
{
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
}
inline QString textOf(const QJsonValue& value)
{
    const QByteArray array = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
    return value.isUndefined() ? "undefined"_s : QString::fromUtf8(array.mid(1, array.size() - 2));
}

/// Adds "emit name arguments" to a list whenever the signal is emitted.
template <class Class, typename... Arguments>
void record(QStringList& events, Class* engine, void (Class::*signal)(Arguments...), const char* name)
{
    QObject::connect(engine, signal, engine, [&events, name](Arguments... arguments) {
        events << QStringList{"emit "_l1 + QLatin1String(name), textOf(arguments)...}.join(u' ');
    });
}

#define RECORD(Class, name) probe::record<Class>(events, engine, &Class::name, #name)

inline void recordSignals(QStringList& events, comunication::protobase_t* engine)
{
    using comunication::protobase_t;
    RECORD(protobase_t, onBrokerConnection);
    RECORD(protobase_t, onBrokerDisconnection);
    RECORD(protobase_t, onBridgeConnectionEvent);
    RECORD(protobase_t, onBridgeConnectionCloudEvent);
    RECORD(protobase_t, onMasterIdError);
    RECORD(protobase_t, onMasterBridgeError);
    RECORD(protobase_t, on_Presentation);
    RECORD(protobase_t, onDatabasePersistentStatus);
    RECORD(protobase_t, onDatabaseRealtimeStatus);
    RECORD(protobase_t, onDatabasePresenceSimulationStatus);
    RECORD(protobase_t, on_Unknown);
}

inline void recordSignals(QStringList& events, comunication::protoserver_t* engine)
{
    using comunication::protoserver_t;
    recordSignals(events, static_cast<comunication::protobase_t*>(engine));
    RECORD(protoserver_t, onRequestPersistentRequest);
    RECORD(protoserver_t, onRequestRealtimeRequest);
    RECORD(protoserver_t, onRequestPresenceSimulationRequest);
    RECORD(protoserver_t, onRequestCmd);
    RECORD(protoserver_t, onClientReady);
    RECORD(protoserver_t, onConnection);
}

#undef RECORD

} // namespace probe

/// An engine that only notes what it would ask of its broker: "subscribe topic qos", "unsubscribe topic" and
/// "publish topic payload qos retain", as the role asks for it, before the base resolves it.
template <class Role>
class probe_t : public bare_t<Role> {
public:
    template <typename... Arguments>
    explicit probe_t(QStringList& events, Arguments&&... arguments)
        : bare_t<Role>(std::forward<Arguments>(arguments)...), events(events)
    {
        probe::recordSignals(events, static_cast<Role*>(this));
    }

    using Role::publish;
    using qos_t = comunication::utility::qos_t;
    void subscribe(QString const& topic, qos_t qos) override
    {
        events << "subscribe "_l1 + topic + u' ' + QString::number(qos);
    }
    void unsubscribe(QString const& topic) override { events << "unsubscribe "_l1 + topic; }
    void publish(QString topic, QJsonObject const& payload, qos_t qos, bool retain) override
    {
        events << "publish %1 %2 %3 %4"_s.arg(topic, probe::textOf(payload)).arg(qos).arg(retain);
    }

private:
    QStringList& events;
};
