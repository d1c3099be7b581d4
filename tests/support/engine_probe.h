// SPDX-License-Identifier: MIT
// Engines for tests: everything that an engine does, logs and signals stands in one list, in its order.
#pragma once

#include "log_recorder.h"

#include <flotrofobul/messages/messages.h>
#include <flotrofobul/platform/mosquittopp/mosquittoqt.h>
#include <flotrofobul/platform/qt.h>
#include <flotrofobul/protoclient_t.h>
#include <flotrofobul/protoserver_t.h>
#include <flotrofobul/utility/system_t.h>

#include <QtCore/QJsonArray>
#include <QtCore/QMetaMethod>

#include <functional>

inline QJsonObject parse(QByteArray text)
{
    return QJsonDocument::fromJson(text.replace('\'', '"')).object();
}

/// A configuration for the installation 1234; "global" members may follow.
inline QJsonObject installation(const QByteArray& more = QByteArray())
{
    return parse("{'mqtt':{'global':{'installation_id':'1234'" + more + "}}}");
}

/// An engine whose members a test reaches.
template <class Role>
class bare_t : public Role {
public:
    using Role::Role;
    using protobase_t = comunication::protobase_t;
    using protobase_t::client;
    using protobase_t::configuration;
    using protobase_t::messages;
    using protobase_t::on_message;
    using protobase_t::on_subscribe;
    using protobase_t::placeholders;
    using protobase_t::system;
    using Role::onSubscribe;
    using Role::onUnsubscribe;
};

/// A value as it stands in recorded lines.
inline QString textOf(const QVariant& value)
{
    if (value.userType() != QMetaType::QJsonValue && value.userType() != QMetaType::QJsonObject) {
        return value.toString();
    }
    const QByteArray array = QJsonDocument(QJsonArray{value.toJsonValue()}).toJson(QJsonDocument::Compact);
    return value.toJsonValue().isUndefined() ? "undefined"_s : QString::fromUtf8(array.mid(1).chopped(1));
}

/// Says "emit name arguments" whenever an engine emits one of its signals, and deletes the engine in the signal whose
/// number, counted from one, is the fuse.
class signal_recorder_t : public QObject {
public:
    using say_t = std::function<void(const QString&)>;
    signal_recorder_t(say_t givenSay, QObject* givenEngine) : say(std::move(givenSay)), engine(givenEngine)
    {
        for (int i = staticMetaObject.methodCount(); i < engine->metaObject()->methodCount(); ++i) {
            if (engine->metaObject()->method(i).methodType() == QMetaMethod::Signal) {
                QMetaObject::connect(engine, i, this, i);
            }
        }
    }
    int qt_metacall(QMetaObject::Call /*call*/, int method, void** arguments) override
    {
        const QMetaMethod signal = engine->metaObject()->method(method);
        QStringList words{"emit"_s, QString::fromLatin1(signal.name())};
        for (int i = 0; i < signal.parameterCount(); ++i) {
            words << textOf(comunication::qt::variantOf(signal.parameterType(i), arguments[i + 1]));
        }
        say(words.join(u' '));
        if (--fuse == 0) {
            delete engine; // and this recorder with it
        }
        return -1;
    }

    int fuse = 0;

private:
    const say_t say;
    QObject* const engine;
};

/// An engine that only notes what it would ask of its broker and of itself, as the role asks for it, before the base
/// resolves it, and which hooks the base calls. It has its broker client, whose signals a test may emit.
template <class Role>
class probe_t : public bare_t<Role> {
public:
    template <typename... Arguments>
    explicit probe_t(QStringList& givenEvents, Arguments&&... arguments)
        : bare_t<Role>(std::forward<Arguments>(arguments)...),
          recorder([&givenEvents](const QString& line) { givenEvents << line; }, this), events(givenEvents)
    {
        this->init_comunication();
        events.clear();
    }

    using qos_t = comunication::utility::qos_t;
    using subscribe_t = comunication::utility::subscribe_t;
    using Role::publish;
    void subscribe(const QString& topic, qos_t qos) override { note("subscribe", topic, int(qos)); }
    void unsubscribe(const QString& topic) override { note("unsubscribe", topic); }
    void publish(QString topic, const QJsonObject& payload, qos_t qos, bool retain) override
    {
        note("publish", topic, payload, int(qos), retain);
    }
    void publish_presentation(const QString& destination) override { note("present to", destination); }
    void init_bridge(subscribe_t which) override { note("init_bridge", int(which)); }
    void init_subscription(subscribe_t which) override
    {
        note("init_subscription", int(which), QJsonValue(this->system->getMasterId()));
    }

    signal_recorder_t recorder;

protected:
    void onConnect(int rc) override { note("onConnect", rc); }
    void onPublish(int mid) override { note("onPublish", mid); }
    void onLog(int level, QString text) override { note("onLog", level, text); }
    void onError() override { note("onError"); }

private:
    template <class... Values>
    void note(const char* what, const Values&... values)
    {
        events << QStringList{QLatin1String(what), textOf(QVariant(values))...}.join(u' ');
    }

    QStringList& events;
};
