// SPDX-License-Identifier: MIT
// An undisturbed client beside those under test: plain libmosquitto on its own thread, straight to the broker.
#pragma once

#include <QtCore/QByteArray>

#include <mosquitto.h>

#include <atomic>
#include <functional>

class witness_t {
public:
    /// Receives on the witness' thread.
    using receiver_t = std::function<void(const QByteArray& topic, const QByteArray& payload)>;

    explicit witness_t(receiver_t givenReceiver) : receiver(std::move(givenReceiver))
    {
        mosquitto_lib_init();
        client = mosquitto_new("witness", true, this);
        mosquitto_message_callback_set(client, [](mosquitto*, void* self, const mosquitto_message* message) {
            static_cast<witness_t*>(self)->receiver(
                message->topic, QByteArray(static_cast<const char*>(message->payload), message->payloadlen));
        });
        mosquitto_subscribe_callback_set(
            client, [](mosquitto*, void* self, int, int, const int*) { ++static_cast<witness_t*>(self)->grants; });
        mosquitto_disconnect_callback_set(
            client, [](mosquitto*, void* self, int rc) { static_cast<witness_t*>(self)->lossCount += rc != 0; });
    }
    ~witness_t()
    {
        mosquitto_disconnect(client);
        mosquitto_loop_stop(client, true);
        mosquitto_destroy(client);
        mosquitto_lib_cleanup();
    }
    witness_t(const witness_t&) = delete;
    witness_t& operator=(const witness_t&) = delete;

    bool watch(quint16 port, const char* filter)
    {
        return mosquitto_connect(client, "127.0.0.1", port, 60) == MOSQ_ERR_SUCCESS &&
               mosquitto_subscribe(client, nullptr, filter, 2) == MOSQ_ERR_SUCCESS &&
               mosquitto_loop_start(client) == MOSQ_ERR_SUCCESS;
    }
    bool isWatching() const { return grants > 0; }
    int losses() const { return lossCount; }

    void publish(const char* topic, const QByteArray& payload)
    {
        mosquitto_publish(client, nullptr, topic, payload.size(), payload.constData(), 2, false);
    }

private:
    const receiver_t receiver;
    mosquitto* client = nullptr;
    std::atomic<int> grants{0};
    std::atomic<int> lossCount{0};
};
