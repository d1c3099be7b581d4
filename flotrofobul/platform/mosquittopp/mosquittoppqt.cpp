// SPDX-License-Identifier: MIT
#include <flotrofobul/platform/mosquittopp/mosquittoppqt.h>

#include <flotrofobul/platform/logs/log_line.h>
#include <flotrofobul/platform/mosquittopp/link.h>

#include <QtCore/QPointer>

#include <mosquitto.h>

namespace comunication {
namespace mosquittopp {

namespace {

constexpr const char logSource[] = "libscomunication/libmosquittoqt/mosquittoqt";

void emitSignal(mosquittoppqt* client, const event_t& event)
{
    switch (event.kind) {
    case event_t::connected: {
        const QPointer<mosquittoppqt> alive(client);
        Q_EMIT client->onConnect(event.number);
        if (alive) {
            Q_EMIT alive->onConnect_with_flags(event.number, event.flags);
        }
        break;
    }
    case event_t::disconnected: Q_EMIT client->onDisconnect(event.number); break;
    case event_t::published: Q_EMIT client->onPublish(event.number); break;
    case event_t::message:
        Q_EMIT client->onMessage(event.number, event.topic, event.text, event.payloadlen, event.flags, event.retain);
        break;
    case event_t::rawMessage:
        Q_EMIT client->onRawMessage(event.number, event.topic, event.bytes, event.flags, event.retain);
        break;
    case event_t::subscribed:
        Q_EMIT client->onSubscribe(event.number, static_cast<int>(event.granted.size()), event.granted.data());
        break;
    case event_t::unsubscribed: Q_EMIT client->onUnsubscribe(event.number); break;
    case event_t::log: Q_EMIT client->onLog(event.number, event.text); break;
    case event_t::problem: Q_EMIT client->onLinkProblem(event.text); break;
    case event_t::error: Q_EMIT client->onError(); break;
    }
}

} // namespace

int lib_version(int* major, int* minor, int* revision)
{
    return mosquitto_lib_version(major, minor, revision);
}

mosquittoppqt::mosquittoppqt(const QString& clientId, bool cleanSession, bool autoconnect, QObject* parent)
    : QObject(parent), link(std::make_unique<link_t>([this](const event_t& event) { emitSignal(this, event); },
                                                     clientId, cleanSession, autoconnect, this))
{}

mosquittoppqt::~mosquittoppqt() = default;

int mosquittoppqt::connect_async(const QString& host, int port, int keepalive)
{
    return link->connectAsync(host, port, seconds_t(keepalive));
}

int mosquittoppqt::connect_sync(const QString& host, int port, int keepalive)
{
    return link->connectSync(host, port, seconds_t(keepalive));
}

int mosquittoppqt::subscribe(int* mid, const QString& topic, int qos)
{
    return link->subscribe(mid, topic, qos);
}

int mosquittoppqt::unsubscribe(int* mid, const QString& topic)
{
    return link->unsubscribe(mid, topic);
}

int mosquittoppqt::publish(int* mid, const QString& topic, const QString& payload, int qos, bool retain)
{
    return link->publish(mid, topic, payload.toUtf8(), qos, retain);
}

int mosquittoppqt::publishRaw(int* mid, const QString& topic, const QByteArray& payload, int qos, bool retain)
{
    return link->publish(mid, topic, payload, qos, retain);
}

int mosquittoppqt::username_pw_set(const QString& username, const QString& password)
{
    const QByteArray name = username.toUtf8();
    const QByteArray secret = password.toUtf8();
    if (username.isNull() && !secret.isEmpty()) {
        return refuse({MOSQ_ERR_INVAL, "it needs a user name"}, "password", QString());
    }
    verdict_t verdict = checkText(name);
    if (verdict.code != MOSQ_ERR_SUCCESS) {
        return refuse(verdict, "user name", username);
    }
    verdict = checkPassword(secret);
    if (verdict.code != MOSQ_ERR_SUCCESS) {
        return refuse(verdict, "password", QString());
    }
    const bool nobody = name.isEmpty() && secret.isEmpty();
    link->identity.username = nobody ? QByteArray() : QByteArray(name.constData(), name.size());
    link->identity.password = secret.isEmpty() ? QByteArray() : secret;
    return MOSQ_ERR_SUCCESS;
}

int mosquittoppqt::tls_set(const QString& cafile, const QString& capath, const QString& certfile,
                           const QString& keyfile, password_callback_t callback)
{
    tls_settings_t& settings = link->identity.tls;
    settings = {true, settings.insecure, cafile, capath, certfile, keyfile, callback};
    tls_context_t trial;
    const int rc = trial.load(settings, QString(), *link->identity.authorities);
    if (rc != MOSQ_ERR_SUCCESS) {
        FLOTROFOBUL_LOG(::utility::logs::error, trial.reason());
    }
    return rc;
}

int mosquittoppqt::tls_insecure_set(bool insecure)
{
    link->identity.tls.insecure = insecure;
    return MOSQ_ERR_SUCCESS;
}

int mosquittoppqt::will_set(const QString& topic, const QString& payload, int qos, bool retain)
{
    verdict_t verdict = checkQos(qos);
    if (verdict.code == MOSQ_ERR_SUCCESS) {
        verdict = checkTopic(topic.toUtf8());
    }
    if (verdict.code == MOSQ_ERR_SUCCESS && payload.toUtf8().size() > longestText) {
        verdict = {MOSQ_ERR_PAYLOAD_SIZE, "its payload is longer than 65535 bytes"};
    }
    if (verdict.code != MOSQ_ERR_SUCCESS) {
        return refuse(verdict, "last will to", topic);
    }
    link->identity.will = {topic, payload, qos, retain};
    link->identity.hasWill = true;
    return MOSQ_ERR_SUCCESS;
}

int mosquittoppqt::will_clear()
{
    link->identity.will = {};
    link->identity.hasWill = false;
    return MOSQ_ERR_SUCCESS;
}

void mosquittoppqt::setRawPayloads(bool on)
{
    link->rawPayloads = on;
}

void mosquittoppqt::setLogging(bool on)
{
    link->setLogging(on);
}

} // namespace mosquittopp
} // namespace comunication
