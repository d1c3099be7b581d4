// SPDX-License-Identifier: MIT
// Engines that try a broker: a server that answers, a panel that notes what it sees, and clients that count.
#pragma once

#include <flotrofobul/define/define.h>
#include <flotrofobul/platform/mosquittopp/mosquittoqt.h>
#include <flotrofobul/protoclient_t.h>
#include <flotrofobul/protoserver_t.h>
#include <flotrofobul/utility/system_t.h>

#include <QtCore/QMap>

/// The default master; every request is answered, the persistent one to all and retained.
class trial_server_t : public comunication::protoserver_t {
public:
    using comunication::protoserver_t::system;

    explicit trial_server_t(const QJsonObject& givenConfiguration,
                            const QString& id = QStringLiteral("tarnel-server-1"))
        : protoserver_t(QStringLiteral("1.0.0"), givenConfiguration, true, id, false)
    {
        QObject::connect(this, &protoserver_t::onConnection, this,
                         [this] { init_subscription(comunication::utility::subscribe_topics); });
        QObject::connect(this, &protoserver_t::on_Presentation, this,
                         [this](const QString& sender, const QString&, bool there) { nodes[sender] = there; });
        QObject::connect(this, &protoserver_t::onRequestPersistentRequest, this, [this](const QJsonObject& request) {
            ++requests;
            say(QStringLiteral("all"), request[u"payload"].toObject(), true);
        });
    }

    void say(const QString& destination, const QJsonObject& payload, bool retain)
    {
        eventPublish({{QStringLiteral("topic"), QStringLiteral("status/DB/persistent")},
                      {QStringLiteral("destination"), destination},
                      {QStringLiteral("payload"), payload}},
                     comunication::utility::exactly_once, retain);
    }

    QMap<QString, bool> nodes; ///< who has presented itself, and whether it is there
    int requests = 0;
};

class trial_panel_t : public comunication::protoclient_t {
public:
    explicit trial_panel_t(const QJsonObject& givenConfiguration, const QString& id = QStringLiteral("panel-1"))
        : protoclient_t(QStringLiteral("1.0.0"), givenConfiguration, id, false)
    {
        QObject::connect(this, &protoclient_t::onDatabasePersistentStatus, this,
                         [this](const QJsonObject& packet) { status << packet[u"payload"].toObject(); });
    }

    void ask(int number)
    {
        publish({{QStringLiteral("topic"), QStringLiteral("request/DB/persistent")},
                 {QStringLiteral("payload"), QJsonObject{{QStringLiteral("number"), number}}}});
    }
    bool follows(const QString& master) const { return system->getMasterId() == master; }
    /// How often a numbered status has come.
    int copies(int number) const { return status.count(QJsonObject{{QStringLiteral("number"), number}}); }

    QList<QJsonObject> status;
};

/// A bare client of one topic, whose session the broker keeps; notes each payload that comes.
class counting_client_t : public comunication::mosquittopp::mosquittoqt {
public:
    counting_client_t(const QString& id, const QJsonObject& connect) : mosquittoqt(id, false, true)
    {
        const QString user = connect[u"username"].toString();
        if (!user.isEmpty()) {
            username_pw_set(user, connect[u"password"].toString());
        }
        QObject::connect(this, &mosquittoqt::onMessage, this,
                         [this](int, const QString&, const QString& payload) { ++heard[payload]; });
        QObject::connect(this, &mosquittoqt::onPublish, this, [this] { ++acknowledged; });
        QObject::connect(this, &mosquittoqt::onSubscribe, this, [this] { listens = true; });
        QObject::connect(this, &mosquittoqt::onDisconnect, this, [this](int rc) { losses += rc != 0; });
    }

    void dial(quint16 port) { connect_async(QStringLiteral("127.0.0.1"), port, 10); }

    QMap<QString, int> heard;
    int acknowledged = 0;
    int losses = 0;
    bool listens = false;
};
