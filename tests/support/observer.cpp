// SPDX-License-Identifier: MIT
#include "observer.h"

#include <QtCore/QSocketNotifier>

#include <mosquitto.h>
#include <mqtt_protocol.h>

observer_t::observer_t(int port)
{
    mosquitto_lib_init();
    handle = mosquitto_new("observer", true, this);
    mosquitto_int_option(handle, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
    mosquitto_int_option(handle, MOSQ_OPT_TCP_NODELAY, 1);
    mosquitto_connect_callback_set(handle, [](mosquitto* client, void*, int) {
        mosquitto_subscribe_v5(client, nullptr, "#", 2, MQTT_SUB_OPT_RETAIN_AS_PUBLISHED, nullptr);
    });
    mosquitto_subscribe_callback_set(
        handle, [](mosquitto*, void* self, int, int, const int*) { static_cast<observer_t*>(self)->ready = true; });
    mosquitto_message_callback_set(handle, [](mosquitto*, void* self, const mosquitto_message* message) {
        static_cast<observer_t*>(self)->messages
            << QStringLiteral("%1 %2 %3 %4")
                   .arg(QString::fromUtf8(message->topic),
                        QString::fromUtf8(static_cast<const char*>(message->payload), message->payloadlen))
                   .arg(message->qos)
                   .arg(message->retain);
    });
    mosquitto_connect(handle, "127.0.0.1", port, 60);
    reader = std::make_unique<QSocketNotifier>(mosquitto_socket(handle), QSocketNotifier::Read);
    QObject::connect(reader.get(), &QSocketNotifier::activated, this, [this] {
        if (mosquitto_loop_read(handle, 1) != MOSQ_ERR_SUCCESS) {
            reader->setEnabled(false); // the broker is gone
        }
        while (mosquitto_want_write(handle)) {
            mosquitto_loop_write(handle, 1);
        }
    });
}

observer_t::~observer_t()
{
    reader.reset();
    mosquitto_destroy(handle);
}

void observer_t::publish(const QString& topic, const QByteArray& payload, bool retain)
{
    mosquitto_publish(handle, nullptr, topic.toUtf8().constData(), payload.size(), payload.constData(), 2, retain);
    while (mosquitto_want_write(handle)) {
        mosquitto_loop_write(handle, 1);
    }
}
