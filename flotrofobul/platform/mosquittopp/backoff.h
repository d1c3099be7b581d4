// SPDX-License-Identifier: MIT
// How long to wait before the next attempt to connect. Internal.
#pragma once

#include <flotrofobul/platform/limits.h>

#include <QtCore/QRandomGenerator>

#include <algorithm>

namespace comunication {
namespace mosquittopp {

class backoff_t {
public:
    static constexpr milliseconds_t shortest{1000};
    static constexpr milliseconds_t longest{30000};

    /// The time to wait now; the next one is twice as long.
    milliseconds_t next()
    {
        const milliseconds_t chosen = delay;
        delay = std::min(delay * 2, longest);
        return jittered(chosen);
    }
    void reset() { delay = shortest; }
    /// A broker that refuses will not change its mind in a second.
    void useLongest() { delay = longest; }

private:
    // Up to a quarter less, so that many panels that lost their broker together do not all come back at the same
    // instant.
    static milliseconds_t jittered(milliseconds_t delay)
    {
        return delay - milliseconds_t(QRandomGenerator::global()->bounded(delay.count() / 4));
    }

    milliseconds_t delay = shortest;
};

} // namespace mosquittopp
} // namespace comunication
