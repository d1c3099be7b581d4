// SPDX-License-Identifier: MIT
#include <flotrofobul/platform/mosquittopp/link.h>

#include <mosquitto.h>

namespace comunication {
namespace mosquittopp {

namespace {

QByteArray fileName(const QString& name)
{
    return name.isEmpty() ? QByteArray() : name.toLocal8Bit();
}

} // namespace

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
    return link->connectTo(host, port, keepalive, false);
}

int mosquittoppqt::connect_sync(const QString& host, int port, int keepalive)
{
    return link->connectTo(host, port, keepalive, true);
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
    if (username.isNull() && !password.isEmpty()) {
        return MOSQ_ERR_INVAL;
    }
    link->username = username.toUtf8();
    link->password = password.toUtf8();
    return MOSQ_ERR_SUCCESS;
}

int mosquittoppqt::tls_set(const QString& cafile, const QString& capath, const QString& certfile,
                           const QString& keyfile, password_callback callback)
{
    link->tlsWanted = true;
    link->cafile = fileName(cafile);
    link->capath = fileName(capath);
    link->certfile = fileName(certfile);
    link->keyfile = fileName(keyfile);
    link->passwordCallback = callback;
    ::mosquitto* const probe = mosquitto_new(nullptr, true, nullptr);
    const auto orNull = [](const QByteArray& text) { return text.isNull() ? nullptr : text.constData(); };
    const int rc = mosquitto_tls_set(probe, orNull(link->cafile), orNull(link->capath), orNull(link->certfile),
                                     orNull(link->keyfile), callback);
    mosquitto_destroy(probe);
    return rc;
}

int mosquittoppqt::tls_insecure_set(bool insecure)
{
    link->tlsInsecure = insecure;
    return MOSQ_ERR_SUCCESS;
}

int mosquittoppqt::will_set(const QString& topic, const QString& payload, int qos, bool retain)
{
    if (qos < 0 || qos > 2 || mosquitto_pub_topic_check(topic.toUtf8().constData()) != MOSQ_ERR_SUCCESS) {
        return MOSQ_ERR_INVAL;
    }
    link->will = {topic, payload, qos, retain};
    link->willRegistered = true;
    return MOSQ_ERR_SUCCESS;
}

int mosquittoppqt::will_clear()
{
    link->will = {};
    link->willRegistered = false;
    return MOSQ_ERR_SUCCESS;
}

void mosquittoppqt::setLogging(bool on)
{
    link->logging = on;
}

} // namespace mosquittopp
} // namespace comunication
