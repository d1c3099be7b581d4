// SPDX-License-Identifier: MIT
#include "bridges/bridge_check.h"

#include "connection/dialling.h"

#include <flotrofobul/define/define.h>

#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QUuid>

#include <algorithm>

namespace comunication {
namespace tools {

using std::chrono::milliseconds;

namespace {

constexpr int refused = 0x80;   // in the SUBACK, and above it: some brokers give the reasons of MQTT 5
constexpr int manyCopies = 100; // after which nobody need wait for more
const QString dataKey = QStringLiteral("d");
const QString nodeKey = QStringLiteral("node");
const QString roundKey = QStringLiteral("round");
const QString bridgeStates = QStringLiteral("$SYS/broker/connection/");

} // namespace

const QStringList& probedKinds()
{
    static const QStringList kinds{QStringLiteral("connection"), QStringLiteral("status"), QStringLiteral("request"),
                                   QStringLiteral("command"), QStringLiteral("notification")};
    return kinds;
}

QString expectedPrefix(const check_result_t& result, const direction_t& direction)
{
    const bool cloud = result.nodes[direction.from].name.isEmpty() || result.nodes[direction.to].name.isEmpty();
    return direction.from == direction.to ? FORWARD_PREFIX : cloud ? CLOUD_PREFIX_1 : REMOTE_PREFIX;
}

bridge_check_t::bridge_check_t(const house_plan_t& plan, const QString& givenCaFile, const times_t& givenTimes)
    : times(givenTimes), installationId(plan.installationId),
      sender(QStringLiteral("flotrofobul-check-") + QUuid::createUuid().toString(QUuid::Id128).left(8)),
      caFile(givenCaFile)
{
    for (const box_t& box : plan.boxes) {
        found.nodes << node_t{box.server, box.broker, false, QString(), {}};
    }
    if (plan.cloud) {
        found.nodes << node_t{QString(), plan.cloud->broker, false, QString(), {}};
    }
    for (int from = 0; from < found.nodes.size(); ++from) {
        for (int to = 0; to < found.nodes.size(); ++to) {
            found.directions << direction_t{from, to, {}};
        }
    }
    watch.setInterval(50);
    connect(&watch, &QTimer::timeout, this, &bridge_check_t::look);
}

bridge_check_t::~bridge_check_t() = default;

void bridge_check_t::start()
{
    for (int i = 0; i < found.nodes.size(); ++i) {
        undecided << i;
    }
    for (int i = 0; i < found.nodes.size(); ++i) {
        dial(i);
    }
}

void bridge_check_t::dial(int index)
{
    const access_t& broker = found.nodes[index].broker;
    // An id for each node: two descriptions of one broker must not throw each other out.
    clients.push_back(std::make_unique<mosquittopp::mosquittoqt>(sender + QLatin1Char('-') + QString::number(index),
                                                                 true, false, nullptr));
    auto* const client = clients.back().get();
    connect(client, &mosquittopp::mosquittoqt::onConnect, this, [=](int rc) {
        if (rc == 0) {
            listen(index);
        } else {
            fail(index);
        }
    });
    connect(client, &mosquittopp::mosquittoqt::onDisconnect, this, [=] { fail(index); });
    connect(client, &mosquittopp::mosquittoqt::onMessage, this,
            [=](int, const QString& topic, const QString& payload) { hear(index, topic, payload); });

    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(times.patience).count();
    connection_t connection;
    connection.host = broker.host;
    connection.port = broker.port;
    connection.username = broker.username;
    connection.password = broker.username.isEmpty() ? QString() : broker.password;
    connection.tlsEnable = broker.tlsEnable;
    connection.tlsInsecure = broker.tlsInsecure;
    connection.caFile = caFile.isEmpty() ? broker.caFile : caFile;
    connection.timeout = std::max(1, static_cast<int>(seconds));
    if (!prepare(*client, connection)) {
        settle(index, QStringLiteral("the certificates in \"%1\" cannot be read here").arg(connection.caFile));
    } else if (client->connect_async(broker.host, broker.port, leastKeepalive) != 0) {
        fail(index);
    }
}

void bridge_check_t::listen(int index)
{
    auto* const client = clients[static_cast<std::size_t>(index)].get();
    // One subscription for all prefixes, so that a copy is a copy.
    client->subscribe(nullptr, bridgeStates + QLatin1Char('#'), 1);
    int last = 0;
    client->subscribe(&last, QStringLiteral("+/local/%1/%2/#").arg(installationId, sender), 2);
    connect(client, &mosquittopp::mosquittoqt::onSubscribe, this, [=](int mid, int count, const int* granted) {
        if (mid == last) {
            const bool heard = count == 1 && granted[0] < refused;
            settle(index,
                   heard ? QString() : QStringLiteral("the broker refuses the subscription, see its access lists"));
        }
    });
}

void bridge_check_t::fail(int index)
{
    const QString problem = clients[static_cast<std::size_t>(index)]->linkProblem();
    settle(index, problem.isEmpty() ? QStringLiteral("the link has ended") : problem);
}

// A node is ready, or will not be; that may change when its link ends later.
void bridge_check_t::settle(int index, const QString& problem)
{
    node_t& node = found.nodes[index];
    node.ready = problem.isEmpty();
    node.problem = problem;
    if (undecided.removeOne(index) && undecided.isEmpty()) {
        QTimer::singleShot(0, this, [this] {
            sinceFirst.start();
            startRound();
            watch.start();
        });
    }
}

void bridge_check_t::startRound()
{
    ++round;
    moved = false;
    sinceRound.start();
    sinceComplete.invalidate();
    for (direction_t& direction : found.directions) {
        direction.arrived.clear();
    }
    for (int i = 0; i < found.nodes.size(); ++i) {
        if (!found.nodes[i].ready) {
            continue;
        }
        const QJsonObject payload{{dataKey, QJsonObject{{nodeKey, i}, {roundKey, round}}}};
        const QString text = QString::fromUtf8(QJsonDocument(payload).toJson(QJsonDocument::Compact));
        for (const QString& kind : probedKinds()) {
            clients[static_cast<std::size_t>(i)]->publish(
                nullptr,
                QStringLiteral("%1/local/%2/%3/nobody/%4/check").arg(FORWARD_PREFIX, installationId, sender, kind),
                text, 2, false);
        }
    }
}

void bridge_check_t::hear(int index, const QString& topic, const QString& payload)
{
    if (topic.startsWith(bridgeStates)) {
        QMap<QString, bool>& bridges = found.nodes[index].bridges;
        const QString bridge = topic.section(QLatin1Char('/'), 3, 3);
        const bool up = payload == QLatin1String("1");
        moved = moved || !bridges.contains(bridge) || bridges.value(bridge) != up;
        bridges.insert(bridge, up);
        return;
    }
    const QJsonObject probe = QJsonDocument::fromJson(payload.toUtf8()).object().value(dataKey).toObject();
    const int kind = probedKinds().indexOf(topic.section(QLatin1Char('/'), 5, 5));
    const int from = probe.value(nodeKey).toInt(-1);
    if (probe.value(roundKey).toInt() != round || kind < 0 || from < 0 || from >= found.nodes.size()) {
        return;
    }
    copies_t& copies =
        found.directions[from * found.nodes.size() + index].arrived[topic.section(QLatin1Char('/'), 0, 0)];
    copies.resize(probedKinds().size());
    ++copies[kind];
    endless = endless || copies[kind] >= manyCopies;
}

bool bridge_check_t::complete() const
{
    return std::all_of(found.directions.begin(), found.directions.end(), [&](const direction_t& direction) {
        const copies_t copies = direction.arrived.value(expectedPrefix(found, direction));
        return !found.nodes[direction.from].ready || !found.nodes[direction.to].ready ||
               (!copies.isEmpty() && !copies.contains(0));
    });
}

void bridge_check_t::look()
{
    if (!sinceComplete.isValid() && complete()) {
        sinceComplete.start();
    }
    const bool settled = sinceComplete.isValid() && milliseconds(sinceComplete.elapsed()) >= times.settling;
    const bool late = !sinceComplete.isValid() && milliseconds(sinceRound.elapsed()) >= times.round;
    const milliseconds spent(sinceFirst.elapsed());
    if (late && (moved ? spent <= 2 * times.patience : spent + times.round <= times.patience)) {
        startRound();
    } else if (settled || late || endless) {
        watch.stop();
        for (const auto& client : clients) {
            client->disconnect(this);
            client->disconnect_sync();
        }
        Q_EMIT finished();
    }
}

} // namespace tools
} // namespace comunication
