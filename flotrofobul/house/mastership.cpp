// SPDX-License-Identifier: MIT
#include <flotrofobul/house/mastership.h>

#include <flotrofobul/platform/text.h>

#include <algorithm>
#include <utility>

namespace comunication {
namespace house {

namespace {

// A server without a companion has none to tell.
constexpr int worstRank = 1000;
// Who had another id at each start would fill the memory.
constexpr int mostPeers = 256;

// Two signs of life may be lost, each at most a twentieth late.
moment_t longestSilence(const times_t& times)
{
    return times.advertise * 22 / 10;
}

// A panel that hears an old claim of somebody else late follows that one: the master presents itself once more when
// everything old has arrived.
moment_t settling(const times_t& times)
{
    return times.patience * 3 / 2;
}

} // namespace

bool mastership_t::wasHeardJustNow(moment_t now) const
{
    return now - leaderHeard < settling(times);
}

mastership_t::mastership_t(int givenRank, const times_t& givenTimes, unsigned seed)
    : rank(givenRank), times(givenTimes), random(seed)
{}

// Own time never goes back, or a clock that does would make everything wait.
moment_t mastership_t::enter(moment_t clock)
{
    if (inOwnTime(clock) < latest) {
        lead = latest - clock;
    }
    const moment_t now = latest = inOwnTime(clock);
    const moment_t due = std::min({deadline, signAt, presentAt});
    const moment_t late = due == never ? moment_t(0) : now - due;
    if (state == master && late > longestSilence(times) - times.advertise) {
        // It has been replaced by now, so it asks before it goes on.
        doubt(now, QStringLiteral("this server has stood still"));
    } else if (state != master && state != following && due == deadline && late > times.patience / 2) {
        // What was to be waited for may have come and not have been read.
        deadline = now + times.patience;
    }
    return now;
}

int mastership_t::rankOf(const QString& server) const
{
    if (server == id) {
        return rank;
    }
    const auto peer = peers.constFind(server);
    return peer != peers.constEnd() ? peer->rank : worstRank;
}

bool mastership_t::isBetter(const QString& one, const QString& other) const
{
    const int ranks[] = {rankOf(one), rankOf(other)};
    return ranks[0] != ranks[1] ? ranks[0] < ranks[1] : one < other;
}

moment_t mastership_t::soon(moment_t now, int least, int most)
{
    return now + moment_t(std::uniform_int_distribution<int>(least, most)(random));
}

void mastership_t::linkUp(moment_t clock, const QString& ownId, const QString& engineMaster)
{
    const moment_t now = enter(clock);
    id = ownId;
    peers.clear();
    claimant.clear();
    leader = engineMaster;
    alone = alone && (leader.isEmpty() || leader == id);
    if (leader == id) {
        become(now, QStringLiteral("this server takes the role when it connects"));
        askAll(now);
    } else if (leader.isEmpty()) {
        search(now);
        askAll(now);
    } else {
        state = following;
        leaderHeard = now;
        doubt(now, QStringLiteral("the link to the own broker was down"));
    }
}

void mastership_t::linkDown(moment_t clock)
{
    enter(clock);
    state = away;
    deadline = signAt = presentAt = never;
    orders.advertise = orders.ask = orders.present = false;
}

void mastership_t::claimed(moment_t clock)
{
    const moment_t now = enter(clock);
    if (state != away && state != master) {
        become(now, QStringLiteral("the host has asked for it"));
    }
}

bool mastership_t::presented(moment_t clock, const QString& server, const QString& named)
{
    const moment_t now = enter(clock);
    notAlone(now);
    if (named == server) {
        heard(clock, server);
        hint(now, server);
    } else if (server == leader && !named.isEmpty() && (state == following || state == doubting)) {
        doubt(now, QStringLiteral("it follows another"));
    }
    return named.isEmpty() || named == leader;
}

void mastership_t::left(moment_t clock, const QString& server)
{
    const moment_t now = enter(clock);
    peers.remove(server);
    if (server == claimant) {
        claimant.clear();
    }
    if (server == leader && (state == following || state == doubting)) {
        doubt(now, QStringLiteral("its last will has come"));
    }
}

void mastership_t::advertised(moment_t clock, const QString& server, const advertisement_t& what)
{
    const moment_t now = enter(clock);
    notAlone(now);
    const peer_t before = peers.value(server);
    if (peers.size() >= mostPeers && !peers.contains(server)) {
        peers.erase(std::min_element(peers.begin(), peers.end(),
                                     [](const peer_t& one, const peer_t& other) { return one.heard < other.heard; }));
    }
    peers.insert(server, {what.rank, now, what.master == server});
    if (what.master == server) {
        if (state == master && !(before.claims && now - before.heard < longestSilence(times))) {
            meet(now, server, what);
        }
        claim(now, server);
    } else if (server == leader && (state == following || state == doubting)) {
        doubt(now, QStringLiteral("it has given the role away"));
    } else if (state == master && what.master != id) {
        signAt = std::min(signAt, soon(now, 0, 100));
    }
    if (what.asks) {
        answer(now);
        // Who asks while it knows a master has lost that one: the answer is for everybody who follows it.
        if (state == following && what.master == leader && !wasHeardJustNow(now)) {
            askedAt = now; // for all
            doubt(now, server + QStringLiteral(" misses it"));
        }
    }
}

void mastership_t::heard(moment_t clock, const QString& server)
{
    const moment_t now = enter(clock);
    // In doubt only an answer counts, except where there is no companion that could give one.
    if (server == leader && (state == following || (state == doubting && rankOf(server) == worstRank))) {
        believe(now);
    }
}

void mastership_t::panelFollows(moment_t clock, const QString& server)
{
    const moment_t now = enter(clock);
    if (server == leader || server.isEmpty() || now - presentedAt < times.advertise) {
        return;
    }
    if (state == master) {
        showSelf(now);
    } else if (state == following && now - askedAt >= times.advertise) {
        askAll(now);
    }
}

void mastership_t::bridge(moment_t clock, bool up)
{
    const moment_t now = enter(clock);
    if (alone) {
        notAlone(now);
    } else if (up && state == master) {
        showSelf(now);
    } else if (up && state == following) {
        askAll(now);
    }
}

void mastership_t::bridgeLost(moment_t clock)
{
    const moment_t now = enter(clock);
    if (state == following) {
        doubt(now, QStringLiteral("the bridge to it is down"));
    }
}

void mastership_t::wake(moment_t clock)
{
    const moment_t now = enter(clock);
    if (presentAt <= now) {
        orders.present = true;
        presentedAt = now;
        presentAt = wrongAt + settling(times) > now ? wrongAt + settling(times) : now + times.present;
        scheduleSign(now); // it is a sign of life, too
    }
    if (signAt <= now) {
        advertise(now);
    }
    if (deadline > now) {
        return;
    }
    deadline = never;
    switch (state) {
    case following:
        doubt(now, QStringLiteral("it has been silent for %1 s").arg((now - leaderHeard).count() / 1000));
        break;
    case searching:
    case doubting: elect(now); break;
    case waiting: become(now, QStringLiteral("no better one has taken the role")); break;
    case away:
    case master: break;
    }
}

std::optional<moment_t> mastership_t::remaining(moment_t clock)
{
    const moment_t now = enter(clock);
    if (hasOrders()) {
        return moment_t(0);
    }
    const moment_t due = std::min({deadline, signAt, presentAt});
    return due == never ? std::nullopt : std::optional<moment_t>(std::max(moment_t(0), due - now));
}

mastership_t::orders_t mastership_t::takeOrders()
{
    orders.names = state == doubting && leader == id ? QString() : leader;
    return std::exchange(orders, {});
}

// A server says that it is master.
void mastership_t::claim(moment_t now, const QString& server)
{
    switch (state) {
    case away: break;
    case master:
        if (isBetter(server, id)) {
            follow(now, server, QStringLiteral("it is the better of two masters"));
        } else {
            showSelf(now);
        }
        break;
    case following:
    case doubting:
        if (server == leader) {
            believe(now);
        } else if (leader == id) {
            follow(now, server, QStringLiteral("it has taken over meanwhile"));
        } else if (isBetter(server, leader)) {
            follow(now, server, QStringLiteral("it is the better of two masters"));
        } else {
            hint(now, server);
        }
        break;
    case searching:
    case waiting: follow(now, server, QStringLiteral("it is there")); break;
    }
}

// A server that may be master.
void mastership_t::hint(moment_t now, const QString& server)
{
    switch (state) {
    case away: break;
    case searching:
    case waiting: follow(now, server, QStringLiteral("it is there")); break;
    case following:
        if (server != leader && !(wasHeardJustNow(now) && isBetter(leader, server))) {
            doubt(now, server + QStringLiteral(" wants to be master"));
        }
        break;
    case doubting: break;
    case master:
        askAll(now);
        showSelf(now);
        break;
    }
    if (state == doubting && server != leader && (claimant.isEmpty() || isBetter(server, claimant))) {
        claimant = server;
    }
}

void mastership_t::follow(moment_t now, const QString& server, const QString& reason)
{
    state = following;
    leader = server;
    claimant.clear();
    signAt = presentAt = never;
    masterSince = never;
    believe(now);
    if (rankOf(server) == worstRank) {
        // It may believe that it is alone, and be silent.
        askAll(now);
    }
    orders.notices.push_back({notice_t::changed, leader, reason});
}

void mastership_t::doubt(moment_t now, const QString& reason)
{
    if (state != doubting) {
        claimant.clear();
        orders.notices.push_back({notice_t::doubted, leader, reason});
        deadline = now + times.patience;
        state = doubting;
        signAt = presentAt = never;
    }
    askAll(now);
}

// The leader lives.
void mastership_t::believe(moment_t now)
{
    if (state == doubting) {
        orders.notices.push_back({notice_t::believed, leader, QStringLiteral("it has answered")});
        state = following;
    }
    leaderHeard = now;
    deadline = now + longestSilence(times);
}

void mastership_t::search(moment_t now)
{
    state = searching;
    deadline = now + times.start;
}

// The best of those that have answered takes the role; the others wait for it, each a little longer than the one
// before.
void mastership_t::elect(moment_t now)
{
    if (!claimant.isEmpty()) {
        follow(now, claimant, QStringLiteral("the one before does not answer"));
        return;
    }
    int better = 0;
    for (auto peer = peers.constBegin(); peer != peers.constEnd(); ++peer) {
        better += peer.key() != leader && peer->heard >= askedAt && isBetter(peer.key(), id);
    }
    if (leader == id || better == 0) {
        become(now, leader == id       ? QStringLiteral("nobody else has taken the role")
                    : leader.isEmpty() ? QStringLiteral("there was none")
                                       : leader + QStringLiteral(" does not answer"));
        return;
    }
    if (!leader.isEmpty()) {
        orders.notices.push_back({notice_t::changed, QString(), leader + QStringLiteral(" does not answer")});
    }
    leader.clear();
    masterSince = never;
    state = waiting;
    deadline = now + better * times.patience;
}

void mastership_t::become(moment_t now, const QString& reason)
{
    if (state == doubting && leader == id) {
        orders.notices.push_back({notice_t::believed, id, reason});
    } else if (masterSince == never) { // else the link was lost and is back
        orders.notices.push_back({notice_t::changed, id, reason});
    }
    if (masterSince == never) {
        masterSince = now;
    }
    state = master;
    leader = id;
    claimant.clear();
    deadline = never;
    presentedAt = wrongAt = now; // the engine presents itself when it is made master
    presentAt = alone ? never : now + settling(times);
    signAt = alone ? never : now;
}

// Somebody may be there who knows nothing yet.
void mastership_t::notAlone(moment_t now)
{
    if (!alone) {
        return;
    }
    alone = false;
    askAll(now);
    if (state == master) {
        showSelf(now);
    }
}

// Something is wrong where this master is not known for what it is.
void mastership_t::showSelf(moment_t now)
{
    if (alone) {
        return;
    }
    signAt = std::min(signAt, std::max(soon(now, 0, 100), signedAt + times.patience / 4));
    presentAt = std::min(presentAt, std::max(soon(now, 100, 400), presentedAt + times.patience / 4));
    wrongAt = now;
}

void mastership_t::askAll(moment_t now)
{
    if (!alone && state != away && now - askedAt >= times.patience) {
        askedAt = now;
        orders.ask = true;
        advertise(now);
    }
}

void mastership_t::advertise(moment_t now)
{
    orders.advertise = true;
    signedAt = now;
    scheduleSign(now);
}

void mastership_t::answer(moment_t now)
{
    if (state == master) {
        showSelf(now);
    } else if (state != away) {
        signAt = std::min(signAt, std::max(soon(now, 0, 100), signedAt + times.patience / 4));
    }
}

void mastership_t::scheduleSign(moment_t now)
{
    signAt = never;
    if (state == master && !alone) {
        const int usual = int(times.advertise.count());
        signAt = soon(now, usual - usual / 20, usual + usual / 20);
    }
}

void mastership_t::meet(moment_t now, const QString& other, const advertisement_t& what)
{
    orders.notices.push_back({notice_t::met, other, {}, what, (now - masterSince).count() / 1000});
}

QString textOf(const notice_t& notice)
{
    switch (notice.kind) {
    case notice_t::changed:
        return (notice.server.isEmpty() ? QStringLiteral("There is no master")
                                        : QString("Master is "_l1 + notice.server)) +
               ": "_l1 + notice.reason;
    case notice_t::doubted: return "Master "_l1 + notice.server + " is asked whether it lives: "_l1 + notice.reason;
    case notice_t::believed: return "Master "_l1 + notice.server + " lives"_l1;
    case notice_t::met: return "Another master was met: "_l1 + notice.server;
    }
    return {};
}

} // namespace house
} // namespace comunication
