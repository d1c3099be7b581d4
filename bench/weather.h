// SPDX-License-Identifier: MIT
// A proxy whose network is good and bad by turns, at random from a seed.
#pragma once

#include <flotrofobul/testkit/proxy.h>

using comunication::testkit::cut_t;
using comunication::testkit::proxy_t;
using comunication::testkit::way_t;

class weather_t : public QObject {
public:
    weather_t(quint16 broker, quint32 seed) : proxy(broker, seed), random(seed), change(this)
    {
        proxy.setParent(this);
        change.setSingleShot(true);
        connect(&change, &QTimer::timeout, this, &weather_t::begin);
    }

    quint16 port() const { return proxy.port(); }
    void begin()
    {
        int dice = random.bounded(100);
        for (const spell_t& spell : spells) {
            if ((dice -= spell.share) < 0) {
                proxy.heal();
                enter(spell);
                break;
            }
        }
        change.start(random.bounded(200, 4000));
    }
    void calm()
    {
        change.stop();
        proxy.heal();
        proxy.sweep();
    }

private:
    // Of a hundred, this share of spells; bounds of what is chosen at random.
    struct spell_t {
        int share;
        int longestDelay;
        int mostBytesPerSecond;
        int farthestCut; // in bytes, as a power of two
        bool silentToBroker;
        bool silentToClient; // alone: messages arrive and their acknowledgements do not
        bool cutsNow;
        bool refuses;
    };
    static constexpr spell_t spells[] = {
        {20, 0, 0, 0, false, false, false, false},      {15, 300, 0, 0, false, false, false, false},
        {10, 0, 200000, 0, false, false, false, false}, {24, 100, 0, 13, false, false, false, false},
        {18, 50, 0, 0, false, false, true, false},      {2, 0, 0, 0, true, false, false, false},
        {2, 0, 0, 0, false, true, false, false},        {4, 0, 0, 0, true, true, false, false},
        {5, 0, 0, 0, false, false, true, true},
    };

    void enter(const spell_t& spell)
    {
        way_t toBroker = choose(spell);
        way_t toClient = choose(spell);
        toBroker.silent = spell.silentToBroker;
        toClient.silent = spell.silentToClient;
        if (spell.farthestCut > 0) {
            // Short distances as often as long ones.
            (random.bounded(2) ? toBroker : toClient).bytesUntilCut =
                random.bounded(1 << random.bounded(1, spell.farthestCut));
        }
        proxy.refuse(spell.refuses);
        if (spell.cutsNow) {
            proxy.cut(toBroker.cut);
        }
        proxy.set(toBroker, toClient);
    }

    way_t choose(const spell_t& spell)
    {
        way_t way;
        way.longestDelay = random.bounded(spell.longestDelay + 1);
        way.bytesPerSecond = spell.mostBytesPerSecond > 0 ? random.bounded(5000, spell.mostBytesPerSecond) : 0;
        way.cut = static_cast<cut_t>(random.bounded(3));
        return way;
    }

    proxy_t proxy;
    QRandomGenerator random;
    QTimer change;
};
