// SPDX-License-Identifier: MIT
// The rules by which the servers of a house keep one master. No engine, no clock and no timer in here: whoever uses
// them says what happened and when, and carries out what is ordered. docs/mastership.md explains them. Internal.
#pragma once

#include <QtCore/QHash>
#include <QtCore/QString>

#include <chrono>
#include <optional>
#include <random>
#include <vector>

namespace comunication {
namespace house {

/// Time since any fixed moment.
using moment_t = std::chrono::milliseconds;

struct times_t {
    moment_t advertise{11000}; ///< between two signs of life of a master, give or take a twentieth
    moment_t patience{2000};   ///< how long an answer is waited for
    moment_t start{5000};      ///< how long a server that comes waits for a master
    moment_t present{62000};   ///< between two presentations of a master to all
};

/// What servers of a house tell each other, in a packet of their own.
struct advertisement_t {
    int rank = 0;        ///< of the sender; 1 is the best
    QString master;      ///< whom the sender takes for the master; itself: it is master
    bool asks = false;   ///< every other server is to answer with its own advertisement
    qint64 seconds = 0;  ///< how long the sender has been master
    qint64 requests = 0; ///< how many requests reached it in that time
};

/// What a host is told.
struct notice_t {
    enum kind_t {
        changed,  ///< the master is another one; empty: there is none
        doubted,  ///< the master may be gone and is being asked
        believed, ///< it has answered
        met       ///< two servers were master at the same time, this one and the other
    } kind;
    QString server;
    QString reason;
    advertisement_t other = {}; ///< what the other one did, where two have met
    qint64 seconds = 0;         ///< and how long this one has been master
};

/// The notice as a log line.
QString textOf(const notice_t& notice);

/// State and events of one server:
///
///     state     | link up   | claim of a better | claim of a worse | asked | time is over        | link down
///     away      | searching, doubting or master (as the engine stands)     | -                   | -
///     searching | -         | following         | following        | tells | waiting or master   | away
///     following | -         | follows that one  | doubting         | tells | doubting            | away
///     doubting  | -         | following         | kept for later   | tells | following, waiting or master | away
///     waiting   | -         | following         | following        | tells | master              | away
///     master    | -         | following         | shows itself     | shows itself | shows itself | away
///
/// A claim is an advertisement in which a server names itself. A presentation that does so makes a master where there
/// is none, and is a reason to ask otherwise: it may be old, since brokers keep it for servers that are away, while an
/// advertisement is sent at QoS 0 and comes now or never.
class mastership_t {
public:
    enum state_t { away, searching, following, doubting, waiting, master };

    mastership_t(int rank, const times_t& times, unsigned seed);

    // What happened

    /// The link is up; engineMaster is whom the engine takes for the master.
    void linkUp(moment_t now, const QString& ownId, const QString& engineMaster);
    void linkDown(moment_t now);
    /// The host has made this server master.
    void claimed(moment_t now);
    /// A server presents itself and names a master. True if the engine may take that name over.
    bool presented(moment_t now, const QString& server, const QString& named);
    /// A server has left, or its broker says so.
    void left(moment_t now, const QString& server);
    void advertised(moment_t now, const QString& server, const advertisement_t& what);
    /// Any other packet of a server.
    void heard(moment_t now, const QString& server);
    /// A panel takes this one for its master.
    void panelFollows(moment_t now, const QString& server);
    /// There is a bridge to another server, which is up or down.
    void bridge(moment_t now, bool up);
    /// The bridge to the master is down.
    void bridgeLost(moment_t now);
    /// Time has passed; to be called after remaining().
    void wake(moment_t now);

    // What follows

    /// Whom this server takes for the master; empty while it knows none.
    const QString& masterId() const { return leader; }
    state_t currentState() const { return state; }
    /// How long there is nothing to do unless something happens; nothing while the link is down.
    std::optional<moment_t> remaining(moment_t now);
    /// Since when this server is master, for its advertisements.
    moment_t masterFor(moment_t now) const { return masterSince == never ? moment_t(0) : inOwnTime(now) - masterSince; }

    struct orders_t {
        bool advertise = false; ///< to all servers
        bool ask = false;       ///< the advertisement asks for theirs
        QString names;          ///< the master in the advertisement
        bool present = false;   ///< present the engine to all
        std::vector<notice_t> notices;
    };
    /// What is to be done now, and only once. Beside that, the engine's master is to be made masterId() where the two
    /// differ and that is not empty.
    orders_t takeOrders();

private:
    struct peer_t {
        int rank;
        moment_t heard; ///< its last advertisement
        bool claims;    ///< in that one
    };
    static constexpr moment_t never = moment_t::max();

    moment_t inOwnTime(moment_t now) const { return now + lead; }
    moment_t enter(moment_t now);
    bool hasOrders() const { return orders.advertise || orders.present || !orders.notices.empty(); }
    bool isBetter(const QString& one, const QString& other) const;
    int rankOf(const QString& server) const;
    bool wasHeardJustNow(moment_t now) const;
    moment_t soon(moment_t now, int least, int most);

    void claim(moment_t now, const QString& server);
    void hint(moment_t now, const QString& server);
    void follow(moment_t now, const QString& server, const QString& reason);
    void notAlone(moment_t now);
    void doubt(moment_t now, const QString& reason);
    void believe(moment_t now);
    void search(moment_t now);
    void elect(moment_t now);
    void become(moment_t now, const QString& reason);
    void showSelf(moment_t now);
    void askAll(moment_t now);
    void answer(moment_t now);
    void advertise(moment_t now);
    void scheduleSign(moment_t now);
    void meet(moment_t now, const QString& other, const advertisement_t& what);

    QString id;
    const int rank;
    const times_t times;
    std::minstd_rand random;

    state_t state = away;
    QString leader;
    bool alone = true; ///< nothing was ever seen of another server: then nothing is sent
    QHash<QString, peer_t> peers;
    QString claimant;   ///< the best other claim while the leader is in doubt
    moment_t lead{0};   ///< by how much own time is ahead of a clock that was set back
    moment_t latest{0}; ///< when something last happened
    moment_t leaderHeard{0};
    moment_t askedAt{-1000000};
    moment_t deadline = never;  ///< of searching, doubting and waiting; of silence while following
    moment_t signAt = never;    ///< next advertisement
    moment_t presentAt = never; ///< next presentation to all
    moment_t signedAt{-1000000};
    moment_t presentedAt{-1000000};
    moment_t wrongAt{-1000000}; ///< when this master last seemed to be unknown to somebody
    moment_t masterSince = never;
    orders_t orders;
};

} // namespace house
} // namespace comunication
