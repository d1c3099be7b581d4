// SPDX-License-Identifier: MIT
// How long to wait before the next attempt to connect. Internal.
#pragma once

#include <QtCore/QRandomGenerator>

#include <algorithm>

namespace comunication {
namespace mosquittopp {

class backoff_t {
public:
    static constexpr int shortest = 1000;
    static constexpr int longest = 30000;

    /// Milliseconds to wait now; doubles for the next time.
    int next()
    {
        const int chosen = delay;
        delay = std::min(delay * 2, longest);
        return jittered(chosen);
    }
    void reset() { delay = shortest; }
    /// A broker that refuses will not change its mind in a second.
    void useLongest() { delay = longest; }

private:
    // Up to a quarter less, so that many panels that lost their broker together do not all come back
    // in one instant.
    static int jittered(int delay) { return delay - QRandomGenerator::global()->bounded(delay / 4); }

    int delay = shortest;
};

} // namespace mosquittopp
} // namespace comunication
