// SPDX-License-Identifier: MIT
// What happens to a server becomes events of the rules, and what the rules order is carried out through the server.
#include <flotrofobul/house/keeper.h>

#include <flotrofobul/house/mastership.h>
#include <flotrofobul/house/settings.h>
#include <flotrofobul/protobase_shared.h>
#include <flotrofobul/protoserver_t.h>
#include <flotrofobul/referee.h>

#include <QtCore/QElapsedTimer>
#include <QtCore/QPointer>
#include <QtCore/QRandomGenerator>
#include <QtCore/QTimer>

namespace comunication {
namespace house {

using namespace ::utility::logs;
using utility::destination_publish_client_t;
using utility::destination_publish_server_t;

namespace {

constexpr const char logSource[] = "libscomunication/libmosquittohouse/keeper";
constexpr int mostPresentations = 256; // a node with an id of its own at each start must not fill the memory

const QString houseValue = QStringLiteral("connection/house");
const QString requestStart = QStringLiteral("request/");
const QString readyValue = commandOf(topicOf(pkgClientReady));

// <any>-<any>-<server>-<server>, where one is this server: a bridge to the cloud may have as many hyphens.
bool isServerBridge(const QString& name, const QString& ownId)
{
    const QStringList pieces = name.split(u'-');
    const QString number = ownId.section(u'-', -1);
    return pieces.size() > 3 && (pieces[2] == number || pieces[3] == number);
}

QString houseFilter(const protoserver_t& server)
{
    return REMOTE_PREFIX + "/local/"_l1 + shared_t::installationId(server) + "/+/"_l1 +
           destination_publish_server_t::all_servers.ToString() + u'/' + houseValue;
}

settings_t settingsOf(const protoserver_t& server)
{
    settings_t settings;
    if (server.isDefaultMaster()) {
        settings.rank = bestRank;
    }
    readSettings(shared_t::hostSection(server, "house"_l1), &settings);
    return settings;
}

advertisement_t advertisementIn(const QJsonObject& packet)
{
    return {packet.value("rank"_l1).toInt(), packet.value("master"_l1).toString(), packet.value("asks"_l1).toBool(),
            packet.value("since"_l1).toInt(), packet.value("requests"_l1).toInt()};
}

QJsonObject deeds(qint64 since, qint64 requests)
{
    return {{"since"_l1, since}, {"requests"_l1, requests}};
}

} // namespace

struct keeper_t::inside_t final : referee_t {
    inside_t(protoserver_t& givenServer, keeper_t& givenFace, const settings_t& settings)
        : server(&givenServer), face(givenFace), rank(settings.rank),
          rules(settings.rank, settings.times, QRandomGenerator::global()->generate())
    {
        clock.start();
        turn.setSingleShot(true);
        QObject::connect(&turn, &QTimer::timeout, &face, [this] { act(); });
    }

    moment_t now() const { return moment_t(clock.elapsed()); }

    bool admits(const topic_t& topic, const QJsonValue& payload) override;
    void claimed() override
    {
        rules.claimed(now());
        schedule();
    }

    void linkUp();
    bool isForThisOne(const topic_t& topic) const;
    bool presented(const topic_t& topic, const QJsonObject& packet);
    void countRequest(const topic_t& topic);
    void schedule();
    void act();
    void settleEngine();
    void advertise(const mastership_t::orders_t& orders);
    void tell(const notice_t& notice);

    const QPointer<protoserver_t> server;
    keeper_t& face;
    const int rank;
    mastership_t rules;
    QElapsedTimer clock;
    QTimer turn;
    QHash<QString, QJsonObject> presentations; ///< the last one of each server
    qint64 requests = 0;                       ///< since this server is master
};

// Nothing is done in here but to take note: the server is in the middle of its own work.
bool keeper_t::inside_t::admits(const topic_t& topic, const QJsonValue& payload)
{
    const QString value = topic.getValue();
    const QString sender = topic.getSender();
    bool admitted = true;
    if (value == houseValue) {
        const advertisement_t what = advertisementIn(payload.toObject());
        if (what.rank >= bestRank && what.rank <= lastRank) { // else it is none
            rules.advertised(now(), sender, what);
        }
        admitted = false;
    } else if (isPresentation(topic)) {
        admitted = presented(topic, payload.toObject());
    } else if (isElection(topic)) {
        // A server that yields takes leave of its panels in words that other servers take for an election of itself.
        admitted = false;
    } else if (value == readyValue) {
        if (topic.getDestination() == server->getClientId() && payload.toString() == "1"_l1) {
            rules.panelFollows(now(), server->getClientId());
        }
    } else {
        rules.heard(now(), sender);
        countRequest(topic);
    }
    schedule();
    return admitted;
}

bool keeper_t::inside_t::isForThisOne(const topic_t& topic) const
{
    const QString destination = topic.getDestination();
    return destination == server->getClientId() || destination == destination_publish_client_t::own_server.ToString() ||
           destination == destination_publish_server_t::all.ToString();
}

bool keeper_t::inside_t::presented(const topic_t& topic, const QJsonObject& packet)
{
    const QString sender = topic.getSender();
    const QString named = packet.value("masterid"_l1).toString();
    if (packet.value("type"_l1).toString() != service_t::server.ToString()) {
        if (packet.value("connected"_l1).toBool()) {
            rules.panelFollows(now(), named);
        }
        // Every server that listens to the bridges would answer what a panel answers to the master.
        return face.isMaster() || isForThisOne(topic);
    }
    // Servers meet through the remote bridge only.
    if (topic.getOrigin() != REMOTE_PREFIX) {
        return true;
    }
    if (!packet.value("connected"_l1).toBool()) {
        presentations.remove(sender);
        rules.left(now(), sender);
        return true;
    }
    if (presentations.size() >= mostPresentations && !presentations.contains(sender)) {
        presentations.clear(); // the record of a master can be made without
    }
    presentations.insert(sender, packet);
    return rules.presented(now(), sender, named);
}

void keeper_t::inside_t::countRequest(const topic_t& topic)
{
    requests += topic.getValue().startsWith(requestStart) && topic.getDestination() == server->getClientId();
}

void keeper_t::inside_t::linkUp()
{
    server->subscribe(houseFilter(*server), utility::at_most_once);
    rules.linkUp(now(), server->getClientId(), shared_t::masterId(*server));
    schedule();
}

void keeper_t::inside_t::schedule()
{
    if (const auto rest = rules.remaining(now())) {
        turn.start(*rest);
    } else {
        turn.stop();
    }
}

void keeper_t::inside_t::act()
{
    if (!server) {
        return;
    }
    rules.wake(now());
    const mastership_t::orders_t orders = rules.takeOrders();
    // A server that takes leave must not be believed to live.
    if (server->getConnected() && !shared_t::takesLeave(*server)) {
        settleEngine();
        if (orders.advertise) {
            advertise(orders);
        }
        if (orders.present) {
            server->publish_presentation(destination_publish_server_t::all.ToString());
        }
    }
    schedule();
    const QPointer<keeper_t> alive(&face);
    for (const notice_t& notice : orders.notices) {
        tell(notice);
        if (!alive) {
            return;
        }
    }
}

// The engine adopts by itself only what it has not heard before.
void keeper_t::inside_t::settleEngine()
{
    const QString& master = rules.masterId();
    if (rules.currentState() == mastership_t::away || master.isEmpty() || master == shared_t::masterId(*server)) {
        return;
    }
    if (master == server->getClientId()) {
        server->setMaster();
        return;
    }
    QJsonObject record = presentations.value(master);
    if (record.isEmpty()) {
        record = {{"clientid"_l1, master}, {"type"_l1, service_t::server.ToString()}, {"connected"_l1, true}};
    }
    record.insert("masterid"_l1, master);
    shared_t::storeMaster(*server, master, record);
    server->subscription_presentation(service_t::client, utility::subscribe_topics);
}

// At QoS 0, so that no broker keeps it for a server that is away: it comes now or never.
void keeper_t::inside_t::advertise(const mastership_t::orders_t& orders)
{
    QJsonObject packet = deeds(rules.masterFor(now()).count() / 1000, requests);
    packet.insert("rank"_l1, rank);
    packet.insert("master"_l1, orders.names);
    packet.insert("asks"_l1, orders.ask);
    server->publish(FORWARD_PREFIX + "/local/"_l1 + INSTALLATIONID + u'/' + SENDER + u'/' +
                        destination_publish_server_t::all_servers.ToString() + u'/' + houseValue,
                    packet, utility::at_most_once, false);
}

void keeper_t::inside_t::tell(const notice_t& notice)
{
    FLOTROFOBUL_LOG(notice.kind == notice_t::believed ? info : warning, textOf(notice));
    switch (notice.kind) {
    case notice_t::changed:
        requests = 0;
        Q_EMIT face.masterChanged(notice.server, notice.reason);
        break;
    case notice_t::doubted: Q_EMIT face.masterDoubted(notice.server, notice.reason); break;
    case notice_t::believed: Q_EMIT face.masterBelieved(notice.server); break;
    case notice_t::met:
        Q_EMIT face.twoMasters(notice.server, deeds(notice.seconds, requests),
                               deeds(notice.other.seconds, notice.other.requests));
        break;
    }
}

keeper_t::keeper_t(protoserver_t& server, QObject* parent)
    : QObject(parent), inside(std::make_unique<inside_t>(server, *this, settingsOf(server)))
{
    server.setReferee(inside.get());
    connect(&server, &protoserver_t::onConnection, this, [this] { inside->linkUp(); });
    connect(&server, &protobase_t::onBrokerDisconnection, this, [this] {
        inside->rules.linkDown(inside->now());
        inside->schedule();
    });
    connect(&server, &protobase_t::onBridgeConnectionEvent, this,
            [this](const QString& /*topic*/, const QString& name, const QString& payload) {
                if (isServerBridge(name, inside->server->getClientId())) {
                    inside->rules.bridge(inside->now(), payload == "1"_l1);
                    inside->schedule();
                }
            });
    connect(&server, &protobase_t::onMasterBridgeError, this, [this] {
        inside->rules.bridgeLost(inside->now());
        inside->schedule();
    });
    if (server.isEncoding()) {
        FLOTROFOBUL_LOG(error, QStringLiteral("Encoding is on: no server understands another, so each will be master"));
    }
    if (server.getConnected()) {
        inside->linkUp();
    }
}

keeper_t::~keeper_t()
{
    if (inside->server) {
        inside->server->setReferee(nullptr);
        if (inside->server->getConnected()) {
            inside->server->unsubscribe(houseFilter(*inside->server));
        }
    }
}

QString keeper_t::master() const
{
    return inside->rules.masterId();
}

bool keeper_t::isMaster() const
{
    return inside->rules.currentState() == mastership_t::master;
}

} // namespace house
} // namespace comunication
