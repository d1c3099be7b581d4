// SPDX-License-Identifier: MIT
// The same load on libmosquitto alone: a poll loop, the same topics and the same JSON built and parsed by Qt.
#include "load.h"

#include "bench_host.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QJsonDocument>

#include <mosquitto.h>

#include <poll.h>

#include <array>
#include <stdexcept>

namespace {

struct plain_t {
    load_t load;
    load_result_t result;
    mosquitto* publisher = nullptr;
    mosquitto* subscriber = nullptr;
    QByteArray topic = loadTopic().toUtf8();
    QElapsedTimer one;
    QElapsedTimer pause;
    bool pausing = false;
    int sent = 0;
    int acknowledged = 0;
    int received = 0;
    int subscribed = 0;

    void publishBatch(int count)
    {
        for (int i = 0; i < count && sent < load.messages; ++i) {
            const QJsonObject body{{QStringLiteral("payload"), benchReading(sent++)}};
            const QByteArray text =
                QJsonDocument(QJsonObject{{QStringLiteral("d"), body}}).toJson(QJsonDocument::Compact);
            mosquitto_publish(publisher, nullptr, topic.constData(), text.size(), text.constData(), load.qos, false);
        }
    }

    void onAcknowledged()
    {
        ++acknowledged;
        if (load.burst > 0) {
            if (acknowledged % load.burst == 0) {
                result.microseconds.append(static_cast<double>(one.nsecsElapsed()) / 1e3);
                pausing = true;
                pause.start();
            }
        } else if (load.window > 1 && load.qos > 0) {
            publishBatch(1);
        }
    }

    void onReceived(const mosquitto_message* message)
    {
        const QByteArray text =
            QByteArray::fromRawData(static_cast<const char*>(message->payload), message->payloadlen);
        const QJsonObject packet = QJsonDocument::fromJson(text).object().value(QStringLiteral("d")).toObject();
        if (packet.isEmpty()) {
            throw std::runtime_error("no packet");
        }
        ++received;
        if (load.burst == 0 && load.window == 1) {
            result.microseconds.append(static_cast<double>(one.nsecsElapsed()) / 1e3);
            one.start();
            publishBatch(1);
        } else if (load.qos == 0) {
            publishBatch(1);
        }
    }

    void turn()
    {
        std::array<mosquitto*, 2> both{publisher, subscriber};
        std::array<pollfd, 2> sockets{};
        for (std::size_t i = 0; i < both.size(); ++i) {
            sockets[i].fd = mosquitto_socket(both[i]);
            sockets[i].events = static_cast<short>(POLLIN | (mosquitto_want_write(both[i]) ? POLLOUT : 0));
        }
        poll(sockets.data(), sockets.size(), pausing ? 1 : 1000);
        for (std::size_t i = 0; i < both.size(); ++i) {
            if ((sockets[i].revents & POLLIN) != 0) {
                mosquitto_loop_read(both[i], 1);
            }
            if ((sockets[i].revents & POLLOUT) != 0) {
                mosquitto_loop_write(both[i], 1);
            }
            mosquitto_loop_misc(both[i]);
        }
        if (pausing && pause.elapsed() >= burstPause.count()) {
            pausing = false;
            one.start();
            publishBatch(load.burst);
        }
    }
};

mosquitto* makeClient(const char* id, plain_t* plain)
{
    mosquitto* const client = mosquitto_new(id, true, plain);
    mosquitto_int_option(client, MOSQ_OPT_TCP_NODELAY, 1);
    mosquitto_subscribe_callback_set(
        client, [](mosquitto*, void* data, int, int, const int*) { ++static_cast<plain_t*>(data)->subscribed; });
    if (mosquitto_connect(client, "127.0.0.1", plain->load.port, 60) != MOSQ_ERR_SUCCESS) {
        throw std::runtime_error("no broker");
    }
    return client;
}

} // namespace

load_result_t runPlain(const load_t& load)
{
    mosquitto_lib_init();
    plain_t plain;
    plain.load = load;
    plain.publisher = makeClient("plain-publisher", &plain);
    plain.subscriber = makeClient("plain-subscriber", &plain);
    mosquitto_publish_callback_set(plain.publisher,
                                   [](mosquitto*, void* data, int) { static_cast<plain_t*>(data)->onAcknowledged(); });
    mosquitto_message_callback_set(plain.subscriber, [](mosquitto*, void* data, const mosquitto_message* message) {
        static_cast<plain_t*>(data)->onReceived(message);
    });
    // A master listens to its own forward-bridge topics, so what it publishes comes back to it.
    mosquitto_subscribe(plain.publisher, nullptr, "forward-bridge/local/1234/#", 2);
    mosquitto_subscribe(plain.subscriber, nullptr, "forward-bridge/local/1234/tarnel-server-1/all/status/#", 2);
    while (plain.subscribed < 2) {
        plain.turn();
    }
    const double cpuBefore = cpuSeconds();
    QElapsedTimer clock;
    clock.start();
    plain.one.start();
    plain.publishBatch(load.burst > 0 ? load.burst : load.window);
    while (plain.received < load.messages || plain.acknowledged < load.messages) {
        plain.turn();
    }
    plain.result.seconds = static_cast<double>(clock.nsecsElapsed()) / 1e9;
    plain.result.cpuSeconds = cpuSeconds() - cpuBefore;
    mosquitto_disconnect(plain.publisher);
    mosquitto_disconnect(plain.subscriber);
    mosquitto_destroy(plain.publisher);
    mosquitto_destroy(plain.subscriber);
    mosquitto_lib_cleanup();
    return plain.result;
}
