// SPDX-License-Identifier: MIT
// What is known of a house from listening to it: who is there, who is master, which panels follow whom, which bridges
// are up, and what has happened. It is fed with packets; no broker, no clock and no timer in here.
#pragma once

#include <flotrofobul/export.h>

#include <QtCore/QByteArray>
#include <QtCore/QJsonObject>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVector>

#include <chrono>
#include <functional>
#include <memory>

namespace comunication {
namespace house {

/// Milliseconds since any fixed moment; a listener takes those since 1970.
using moment_t = std::chrono::milliseconds;

/// Nothing has been heard yet.
constexpr moment_t never = moment_t::min();

enum class role_t { unknown, server, client };

/// What is known about whether a node is there.
enum class presence_t {
    unknown, ///< only retained packets are known, which say nothing about now
    here,    ///< heard, and not gone since
    gone     ///< it took its leave, or its broker published its last will; nothing tells which
};

/// Ways on which packets reach the broker that is listened to, the shortest first.
enum class way_t {
    forward, ///< forward-bridge: from a node at this broker
    remote,  ///< remote-bridge: over a bridge
    cloud,   ///< cloud-bridge and other-cloud-bridge
    plain,   ///< without a prefix; nodes do not publish so
};
constexpr int wayCount = 4;

/// How many in a second, over the last ten or so.
class FLOTROFOBUL_EXPORT rate_t {
public:
    void add(moment_t now);
    double perSecond(moment_t now) const;

private:
    moment_t begin = never; ///< of the current window
    int current = 0;
    int last = 0; ///< in the window before
};

/// A server or a client, as far as its packets tell.
struct house_node_t {
    QString id;
    QString installation;
    role_t role = role_t::unknown;
    presence_t presence = presence_t::unknown;
    bool presented = false;        ///< it has presented itself, so that role and record are its own words
    QString master;                ///< the server that it takes for its master; itself: a master. Empty: none known
    bool ready = false;            ///< a client that has told its master that it listens
    bool encoded = false;          ///< its payloads are Base64
    QJsonObject record;            ///< its last presentation without the master's
    moment_t since = never;        ///< when it came, or went, or was heard first
    moment_t masterSince = never;  ///< when it became master, by its own words where there are any
    moment_t heard = never;        ///< its last sign of life
    qint64 sent = 0;               ///< packets: one that came over several ways counts once
    rate_t rate;                   ///< of these
    qint64 packets[wayCount] = {}; ///< by the way on which they came, each copy
    quint64 changed = 0;

    struct channel_t {
        int way = wayCount;
        int source = 0;
        moment_t heard = never;
    };
    channel_t channel; ///< its shortest way

    bool isMaster() const { return role == role_t::server && presence == presence_t::here && master == id; }
    /// "forward-bridge" and so on.
    FLOTROFOBUL_EXPORT QStringList prefixes() const;
};

/// A bridge of the broker that is listened to.
struct house_bridge_t {
    QString name;
    bool up = false;
    moment_t since = never;
    QStringList servers; ///< client ids of the servers that it joins, where its name says so
    quint64 changed = 0;
};

/// Something that happened.
struct house_event_t {
    enum kind_t {
        came,         ///< a node is there; "other" is its master
        gone,         ///< took its leave, or its broker published its last will
        masterNow,    ///< a server has become master
        masterNoMore, ///< has handed over, or is gone
        twoMasters,   ///< more than one; "other" lists them all
        oneMaster,    ///< one again
        follows,      ///< a node has another master: "other"; empty: none
        readyNow,     ///< a client listens to "other"
        readyNoMore,
        bridgeUp,
        bridgeDown,
        encoding,   ///< its payloads are Base64, which engines do not decode
        incoherent, ///< a presentation that engines refuse: "other" says why
        crowded     ///< more nodes than are kept
    };
    quint64 number = 0; ///< counts up; the revision of the model at that moment
    moment_t moment = never;
    kind_t kind = came;
    QString subject; ///< node or bridge
    QString other;

    /// In words, without the time.
    FLOTROFOBUL_EXPORT QString text() const;
};

/// The model of one house, as it is seen from one broker or from several. It belongs to whoever makes it and is used on
/// one thread. What strangers send cannot make it grow without end.
///
///     house_model_t house("house1");
///     house.take(now, "forward-bridge/local/house1/tarnel-server-1/all/connection/presentation", payload, 2, false);
///     for (const house_node_t& node : house.nodes()) { ... }
///
/// Packets have to be subscribed with one filter, such as "#", or each copy counts.
class FLOTROFOBUL_EXPORT house_model_t {
public:
    static constexpr int mostNodes = 1000;
    static constexpr int mostBridges = 200;
    static constexpr int mostEvents = 500;

    /// Without an installation id every installation is taken. With one, as an engine does: its characters count, not
    /// their order.
    explicit house_model_t(const QString& installationId = QString());
    ~house_model_t();
    house_model_t(house_model_t&&) noexcept;
    house_model_t& operator=(house_model_t&&) noexcept;

    /// Takes a packet as a broker delivered it, $SYS included. source: which broker, where there are several. What a
    /// node says counts as it comes on its shortest way; later copies are no news.
    void take(moment_t now, const QString& topic, const QByteArray& payload, int qos = 0, bool retain = false,
              int source = 0);
    /// The link to the broker is lost: the states of its bridges are unknown until it tells them anew. Nodes stay as
    /// they were last heard.
    void forgetBridges();

    /// In the order in which they were heard first.
    const QVector<house_node_t>& nodes() const;
    /// Null if there is none.
    const house_node_t* node(const QString& id) const;
    const QVector<house_bridge_t>& bridges() const;
    /// Client ids of all servers that are there and call themselves master; one in a healthy house.
    QStringList masters() const;
    /// Since when masters() is what it is; never as long as nothing was heard of a master.
    moment_t mastersSince() const;
    /// The oldest first, the last mostEvents of them.
    const QVector<house_event_t>& events() const;

    /// Rises with everything that a person would see but signs of life and counts. A node, a bridge or an event that
    /// changed later than a revision has a greater "changed" or "number".
    quint64 revision() const;
    /// Revision at which a node or a bridge was last taken out; whoever knows an older one has to read all again.
    quint64 lastRemoval() const;
    /// Called at the end of take() whenever the revision has risen; it must not call take().
    void setObserver(std::function<void()> changed);

    qint64 packets() const;          ///< of the house, each copy
    qint64 foreign() const;          ///< of other installations, and topics that are none of the protocol's
    double rate(moment_t now) const; ///< of all, $SYS aside
    /// Other installation ids that were heard, a few of them.
    QStringList otherInstallations() const;
    QString brokerVersion() const;
    /// Clients that the broker counts; -1 as long as it has not said.
    int brokerClients() const;

private:
    struct inside_t;
    std::unique_ptr<inside_t> inside;
};

/// The word for a role.
FLOTROFOBUL_EXPORT QString wordOf(role_t role);

} // namespace house
} // namespace comunication
