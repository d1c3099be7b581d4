// SPDX-License-Identifier: MIT
#include "connection/listener.h"

#include "connection/dialling.h"

#include <flotrofobul/platform/limits.h>

#include <QtCore/QAbstractEventDispatcher>
#include <QtCore/QDateTime>
#include <QtCore/QMetaMethod>
#include <QtCore/QTimer>
#include <QtCore/QUuid>

#include <algorithm>
#include <chrono>
#include <thread>
#include <utility>

namespace comunication {
namespace tools {

namespace {

constexpr int refused = 0x80;     // in the SUBACK, and above it: some brokers give the reasons of MQTT 5
constexpr int longestTopic = 120; // in words for people
// Wildcards at the front do not reach $SYS. All of it would be fifty packets every ten seconds.
const QStringList filters{QStringLiteral("$SYS/broker/connection/#"), QStringLiteral("$SYS/broker/version"),
                          QStringLiteral("$SYS/broker/clients/connected"), QStringLiteral("#")};

} // namespace

QString strangerId()
{
    return QStringLiteral("flotrofobul-") + QUuid::createUuid().toString(QUuid::Id128).left(8);
}

QString problemAt(const QString& broker, const QString& words)
{
    const QString why = words.isEmpty() ? QStringLiteral("the link has ended") : words;
    return why.contains(broker) ? why : QString(broker + QStringLiteral(": ") + why);
}

listener_t::listener_t(const connection_t& givenConnection, int givenQos, QObject* parent)
    : QObject(parent), connection(givenConnection), brokerName(givenConnection.name()), qos(givenQos),
      client(strangerId(), true, true)
{
    using mosquittopp::mosquittoqt;
    client.setRawPayloads(true);
    connect(&client, &mosquittoqt::onConnect, this, [this](int rc) {
        if (rc == 0) {
            listen();
        } else {
            lose(client.linkProblem());
        }
    });
    connect(&client, &mosquittoqt::onDisconnect, this, [this] { lose(client.linkProblem()); });
    connect(&client, &mosquittoqt::onSubscribe, this, [this](int mid, int count, const int* granted) {
        if (ended || mid != lastRequest) {
            return;
        }
        if (count > 0 && *std::max_element(granted, granted + count) >= refused) {
            lose(QStringLiteral("the broker refuses the subscription, see its access lists"));
            return;
        }
        listening = true;
        wasReady = true;
        Q_EMIT ready();
    });
    connect(&client, &mosquittoqt::onRawMessage, this,
            [this, limit = connection.maxPacketBytes](int, const QString& topic, const QByteArray& payload,
                                                      int qosOfPacket, bool retain) {
                ++heardInTurn;
                if (!ended && payload.size() > limit) {
                    Q_EMIT tooLong(
                        topic, payload.size(),
                        QStringLiteral("A packet of %1 bytes is left out, since \"max_packet_bytes\" is %2: %3")
                            .arg(payload.size())
                            .arg(limit)
                            .arg(topic.left(longestTopic)));
                } else if (!ended) {
                    Q_EMIT heard({QDateTime::currentMSecsSinceEpoch(), topic, payload, qosOfPacket, retain});
                }
            });
}

void listener_t::start()
{
    if (mayRest) {
        connect(QAbstractEventDispatcher::instance(), &QAbstractEventDispatcher::aboutToBlock, this, &listener_t::rest);
    }
    const bool tells = isSignalConnected(QMetaMethod::fromSignal(&listener_t::tooLong));
    client.setMaxPacketBytes(tells ? limits::packetBytes.highest : connection.maxPacketBytes);
    if (!prepare(client, connection)) {
        QTimer::singleShot(0, this, [this] {
            lose(QStringLiteral("the certificates in \"%1\" cannot be used").arg(connection.caFile));
        });
        return;
    }
    const int keepalive = connection.keepalive == 0 ? 0 : std::max(leastKeepalive, connection.keepalive);
    if (client.connect_async(connection.host, connection.port, keepalive) != 0) {
        QTimer::singleShot(0, this, [this] { lose(client.linkProblem()); });
    }
}

void listener_t::stop()
{
    ended = true;
    listening = false;
    client.disconnect_sync();
}

void listener_t::listen()
{
    for (const QString& filter : filters) {
        client.subscribe(&lastRequest, filter, qos);
    }
}

// A broker has a window of 20 messages as a rule: when much of it is used, nothing may wait for us.
void listener_t::rest()
{
    using std::chrono::milliseconds;
    constexpr milliseconds nap{5};
    constexpr int much = 8;
    const int heardNow = std::exchange(heardInTurn, 0);
    const bool isQuiet = !sinceTurn.isValid() || sinceTurn.hasExpired(nap.count());
    hasMuch = heardNow > much || (heardNow == 0 && hasMuch && !isQuiet);
    if (heardNow == 0 && isQuiet) {
        return;
    }
    if (!isQuiet && !hasMuch) {
        std::this_thread::sleep_for(nap - milliseconds(sinceTurn.elapsed()));
    }
    if (heardNow > 0 || !hasMuch) {
        sinceTurn.start();
    }
}

void listener_t::lose(const QString& words)
{
    if (ended) {
        return;
    }
    listening = false;
    const QString why = problemAt(brokerName, words);
    if (wasReady) {
        Q_EMIT problem(why);
    } else {
        stop();
        Q_EMIT failed(why);
    }
}

} // namespace tools
} // namespace comunication
