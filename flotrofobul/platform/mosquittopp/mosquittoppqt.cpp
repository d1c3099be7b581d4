// SPDX-License-Identifier: MIT
#include <flotrofobul/platform/mosquittopp/mosquittoppqt.h>

#include <flotrofobul/platform/logs/log_line.h>
#include <flotrofobul/platform/mosquittopp/link.h>

#include <mosquitto.h>

namespace comunication {
namespace mosquittopp {

int lib_version(int* major, int* minor, int* revision)
{
    return mosquitto_lib_version(major, minor, revision);
}

mosquittoppqt::mosquittoppqt(const QString& clientId, bool cleanSession, bool autoconnect, QObject* parent)
    : QObject(parent), link(std::make_unique<link_t>(this, clientId, cleanSession, autoconnect))
{}

mosquittoppqt::~mosquittoppqt() = default;

int mosquittoppqt::connect_async(const QString& host, int port, int keepalive)
{
    return link->connectAsync(host, port, keepalive);
}

int mosquittoppqt::connect_sync(const QString& host, int port, int keepalive)
{
    return link->connectSync(host, port, keepalive);
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
                           const QString& keyfile, password_callback callback)
{
    tls_settings_t& settings = link->identity.tls;
    settings = {true, settings.insecure, cafile, capath, certfile, keyfile, callback};
    tls_context_t trial;
    const int rc = trial.load(settings, QString());
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

void mosquittoppqt::setLogging(bool on)
{
    link->setLogging(on);
}

} // namespace mosquittopp
} // namespace comunication
