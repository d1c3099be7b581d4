// SPDX-License-Identifier: MIT
// What should have arrived at other brokers: a direction over which nothing comes although one side speaks is missing.
#pragma once

#include "scene.h"

namespace comunication {
namespace view {

class awaited_t {
public:
    static constexpr int enough = 3;          ///< packets of which none has arrived
    static constexpr moment_t patience{5000}; ///< that they may take
    /// Each broker is heard over a connection of its own: a copy may be heard before what it is a copy of.
    static constexpr moment_t disorder{2000};

    explicit awaited_t(int brokers) : count(brokers), pairs(brokers * brokers) {}

    /// A node at a broker has said something that bridges carry.
    void said(moment_t now, int at);
    /// Something that was said at one broker has arrived at another.
    void arrived(moment_t now, int from, int at);
    /// A broker is listened to, or not any more. What was said meanwhile is not awaited there.
    void setListening(int broker, bool on);

    [[nodiscard]] bool isMissing(moment_t now, int from, int at) const;
    /// Whether a direction may be found missing although nothing more is said.
    [[nodiscard]] bool isWaiting(moment_t now) const;

private:
    struct pair_t {
        int packets = 0;               ///< since something arrived, and the disorder after it
        moment_t since = house::never; ///< when there were enough
        moment_t arrived = house::never;
    };
    [[nodiscard]] const pair_t& of(int from, int at) const { return pairs[from * count + at]; }

    const int count;
    QVector<pair_t> pairs;
    QVector<int> listening;
};

} // namespace view
} // namespace comunication
