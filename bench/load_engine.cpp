// SPDX-License-Identifier: MIT
// The load carried by two engines: a server publishes status packets, a client receives them.
#include "load.h"

#include "bench_host.h"

#include <flotrofobul/protoclient_t.h>
#include <flotrofobul/protoserver_t.h>

#include <QtCore/QElapsedTimer>
#include <QtCore/QEventLoop>
#include <QtCore/QTimer>

#include <chrono>
#include <functional>

namespace {

using namespace comunication;
using namespace std::chrono_literals;

// Publishes the next packet when one is acknowledged.
class publisher_t : public protoserver_t {
public:
    explicit publisher_t(const load_t& givenLoad)
        : protoserver_t(QStringLiteral("1"), benchConfiguration(givenLoad.port), true,
                        QStringLiteral("tarnel-server-1"), false),
          load(givenLoad)
    {}

    void start()
    {
        started = true;
        publishBatch(load.burst > 0 ? load.burst : load.window);
    }

    std::function<void()> onAcknowledged;
    int sent = 0;
    int acknowledged = 0;

    void publishBatch(int count)
    {
        for (int i = 0; i < count && sent < load.messages; ++i) {
            publishOne();
        }
    }

protected:
    void onPublish(int /*mid*/) override
    {
        if (!started) {
            return;
        }
        ++acknowledged;
        if (load.burst == 0 && load.window > 1 && load.qos > 0) {
            publishBatch(1);
        }
        onAcknowledged();
    }

private:
    void publishOne()
    {
        const QJsonObject reading = benchReading(sent++);
        if (load.qos == 2) {
            publish(QJsonObject{{QStringLiteral("topic"), QStringLiteral("status/DB/realtime")},
                                {QStringLiteral("destination"), QStringLiteral("all")},
                                {QStringLiteral("payload"), reading}},
                    comunication::utility::exactly_once, false);
        } else { // packets always go out at QoS 2
            publish(topic, QJsonObject{{QStringLiteral("payload"), reading}},
                    static_cast<comunication::utility::qos_t>(load.qos), false);
        }
    }

    const QString topic = loadTopic();
    load_t load;
    bool started = false;
};

class subscriber_t : public protoclient_t {
public:
    explicit subscriber_t(quint16 port)
        : protoclient_t(QStringLiteral("1"), benchConfiguration(port), QStringLiteral("client@panel"), false)
    {}
};

} // namespace

load_result_t runEngines(const load_t& load)
{
    silenceLog();
    publisher_t server(load);
    subscriber_t client(load.port);
    load_result_t result;
    QEventLoop loop;
    QElapsedTimer clock;
    QElapsedTimer one;
    double cpuBefore = 0;
    int received = 0;

    const auto finishWhenDone = [&] {
        if (received >= load.messages && server.acknowledged >= load.messages) {
            result.seconds = static_cast<double>(clock.nsecsElapsed()) / 1e9;
            result.cpuSeconds = cpuSeconds() - cpuBefore;
            loop.quit();
        }
    };
    server.onAcknowledged = [&] {
        if (load.burst > 0 && server.acknowledged % load.burst == 0) {
            result.microseconds.append(static_cast<double>(one.nsecsElapsed()) / 1e3);
            QTimer::singleShot(burstPause, &server, [&] {
                one.start();
                server.publishBatch(load.burst);
            });
        }
        finishWhenDone();
    };
    QObject::connect(&client, &protobase_t::onDatabaseRealtimeStatus, &loop, [&] {
        ++received;
        if (load.burst == 0 && load.window == 1) {
            result.microseconds.append(static_cast<double>(one.nsecsElapsed()) / 1e3);
            one.start();
            server.publishBatch(1);
        } else if (load.qos == 0) {
            server.publishBatch(1);
        }
        finishWhenDone();
    });
    QObject::connect(&server, &protoserver_t::onClientReady, &loop, [&] {
        QTimer::singleShot(200ms, &server, [&] { // the rest of the client's subscriptions and answers
            cpuBefore = cpuSeconds();
            clock.start();
            one.start();
            server.start();
        });
    });
    QObject::connect(&server, &protoserver_t::onConnection, &loop, [&] { client.connect(); });
    server.connect();
    loop.exec();
    client.disconnection(false);
    server.disconnection(false);
    return result;
}
