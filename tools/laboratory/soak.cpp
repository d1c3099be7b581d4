// SPDX-License-Identifier: MIT
// Random histories of a house: something happens, peace returns, and the house has to be well.
#include "laboratory/occasions.h"
#include "laboratory/verdict.h"

#include <QtCore/QRandomGenerator>

#include <algorithm>

using namespace std::chrono_literals;
using std::chrono::milliseconds;

namespace {

constexpr auto timeToHeal = 30s;

/// Chooses at random.
class fate_t {
public:
    fate_t(laboratory_t& givenHouse, quint32 seed) : house(givenHouse), random(seed) {}

    int below(int bound) { return random.bounded(bound); }
    int box() { return 1 + below(house.size()); }
    int otherThan(int number) { return 1 + (number + below(house.size() - 1)) % house.size(); }
    node_t& node() { return below(2) == 0 ? *house.box(box()).server : *house.box(box()).panel; }
    power_cut_t powerCut() { return below(2) == 0 ? power_cut_t::noticed : power_cut_t::silent; }
    template <typename Act>
    void link(Act act)
    {
        const int one = box();
        if (house.size() > 1) {
            act(one, otherThan(one));
        }
    }

    laboratory_t& house;

private:
    QRandomGenerator random;
};

void isolate(fate_t& fate, bool silently)
{
    const int one = fate.box();
    for (int other = 1; other <= fate.house.size(); ++other) {
        if (other != one) {
            silently ? fate.house.silence(one, other) : fate.house.cut(one, other);
        }
    }
}

// Of all that happens, each has this share.
const struct {
    int share;
    void (*happen)(fate_t& fate);
} acts[] = {
    {8, [](fate_t& fate) { fate.house.kill(fate.node()); }},
    {8, [](fate_t& fate) { fate.house.restart(fate.node()); }},
    {8, [](fate_t& fate) { fate.house.freeze(fate.node()); }},
    {8,
     [](fate_t& fate) {
         for (node_t* const node : fate.house.nodes()) {
             fate.house.proceed(*node);
         }
     }},
    {4, [](fate_t& fate) { fate.house.killBroker(fate.box()); }},
    {4, [](fate_t& fate) { fate.house.freezeBroker(fate.box()); }},
    {8, [](fate_t& fate) { fate.house.restartBroker(fate.box()); }},
    {8, [](fate_t& fate) { fate.link([&](int one, int other) { fate.house.cut(one, other); }); }},
    {8, [](fate_t& fate) { fate.link([&](int one, int other) { fate.house.silence(one, other); }); }},
    {8, [](fate_t& fate) { fate.link([&](int one, int other) { fate.house.heal(one, other); }); }},
    {6, [](fate_t& fate) { isolate(fate, false); }},
    {6, [](fate_t& fate) { isolate(fate, true); }},
    {10, [](fate_t& fate) { fate.house.powerCut(fate.box(), fate.powerCut()); }},
    {10, [](fate_t& fate) { fate.house.powerOn(fate.box()); }},
    {8,
     [](fate_t& fate) {
         const int box = fate.box();
         fate.house.powerCut(box, fate.powerCut());
         fate.house.wait(milliseconds(fate.below(3000)));
         fate.house.powerOn(box);
     }},
    {8,
     [](fate_t& fate) {
         for (int number = 1; number <= fate.house.size(); ++number) {
             if (fate.below(3) > 0) {
                 fate.house.claim(number);
             }
         }
     }},
    {8, [](fate_t& fate) { fate.house.delay(1 << fate.below(10)); }},
};

void happenOnce(fate_t& fate)
{
    int all = 0;
    for (const auto& act : acts) {
        all += act.share;
    }
    int dice = fate.below(all);
    for (const auto& act : acts) {
        if ((dice -= act.share) < 0) {
            act.happen(fate);
            return;
        }
    }
}

// Not everything can happen at any time.
void happen(fate_t& fate)
{
    const int before = fate.house.events;
    for (int attempts = 0; fate.house.events == before && attempts < 50; ++attempts) {
        happenOnce(fate);
    }
}

void live(fate_t& fate)
{
    // The shortest pauses meet what has just begun, the longest what has settled.
    constexpr int longestPauses[] = {1, 1, 300, 300, 3000, 3000, 8000, 25000};
    for (int count = 2 + fate.below(6); count > 0; --count) {
        happen(fate);
        fate.house.wait(milliseconds(fate.below(longestPauses[fate.below(std::size(longestPauses))])));
    }
}

struct summary_t {
    int histories = 0;
    int failures = 0;
    int acts = 0;
    int answers = 0;
    int repeated = 0; ///< rounds of requests, because the role moved meanwhile
    int roleChanges = 0;
    milliseconds longest{0};
    milliseconds together{0};
    milliseconds severalMasters{0};
    packets_t packets;
    int mostPackets = 0;

    void print() const
    {
        ::print(QStringLiteral("\n%1 histories of %2 events, %3 failures").arg(histories).arg(acts).arg(failures));
        ::print(QStringLiteral("time to heal: at most %1, %2 on average")
                    .arg(seconds(longest), seconds(together / std::max(1, histories))));
        ::print(QStringLiteral("requests answered exactly once: %1; rounds repeated because the role moved: %2")
                    .arg(answers)
                    .arg(repeated));
        ::print(QStringLiteral("changes of role: %1; longest time with several masters: %2")
                    .arg(roleChanges)
                    .arg(seconds(severalMasters)));
        ::print(QStringLiteral("%1; at most %2 in one history").arg(packets.text()).arg(mostPackets));
    }
};

std::unique_ptr<laboratory_t> build(const house_t& house, bool verbose)
{
    auto laboratory = std::make_unique<laboratory_t>(house);
    if (verbose) {
        laboratory->aloud = print;
    }
    if (!laboratory->start()) {
        return nullptr;
    }
    return laboratory;
}

} // namespace

int soak(const house_t& house, const soak_t& how)
{
    const QDeadlineTimer deadline(how.histories > 0 ? QDeadlineTimer(QDeadlineTimer::Forever)
                                                    : QDeadlineTimer(how.time));
    summary_t sum;
    std::unique_ptr<laboratory_t> laboratory;
    while (!deadline.hasExpired() && (how.histories == 0 || sum.histories < how.histories)) {
        const quint32 seed = how.seed + static_cast<quint32>(sum.histories++);
        if (!laboratory) {
            laboratory = build(house, how.verbose);
            if (!laboratory || !isWell(*laboratory, timeToHeal).isGood()) {
                print(QStringLiteral("The house does not even begin."));
                return 1;
            }
        }
        const packets_t packetsBefore = laboratory->packets();
        const int changesBefore = laboratory->roleChanges();
        laboratory->timeline.clear();
        laboratory->events = 0;
        fate_t fate(*laboratory, seed);
        live(fate);
        const int happened = laboratory->events;
        laboratory->peace();
        verdict_t verdict = isWell(*laboratory, timeToHeal);
        if (!laboratory->deserters().isEmpty()) {
            verdict.failure = laboratory->deserters().join(u' ') + QStringLiteral(" ended");
        }

        const packets_t packets = laboratory->packets() - packetsBefore;
        sum.acts += happened;
        sum.answers += verdict.answers;
        sum.repeated += std::max(0, verdict.rounds - 1);
        sum.roleChanges += laboratory->roleChanges() - changesBefore;
        sum.packets += packets;
        sum.mostPackets = std::max(sum.mostPackets, packets.total());
        sum.severalMasters = std::max(sum.severalMasters, laboratory->mostMasters());
        if (verdict.isGood()) {
            sum.longest = std::max(sum.longest, verdict.healed);
            sum.together += verdict.healed;
            print(QStringLiteral("history %1: %2 events, healed in %3 with %4 packets")
                      .arg(seed)
                      .arg(happened)
                      .arg(seconds(verdict.healed))
                      .arg(packets.total()));
        } else {
            ++sum.failures;
            print(QStringLiteral("history %1 FAILED: %2").arg(seed).arg(verdict.failure));
            print(testimony(*laboratory));
            laboratory.reset(); // the next one begins with a new house
        }
    }
    sum.print();
    return sum.failures == 0 ? 0 : 1;
}
