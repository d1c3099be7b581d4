// SPDX-License-Identifier: MIT
#include "awaited.h"

#include <algorithm>

namespace comunication {
namespace view {

void awaited_t::said(moment_t now, int at)
{
    for (const int other : qAsConst(listening)) {
        pair_t& pair = pairs[at * count + other];
        const bool counts = pair.arrived == house::never || now - pair.arrived > disorder;
        if (other != at && counts && pair.packets < enough && ++pair.packets == enough) {
            pair.since = now;
        }
    }
}

void awaited_t::arrived(moment_t now, int from, int at)
{
    pairs[from * count + at] = {0, house::never, now};
}

void awaited_t::setListening(int broker, bool on)
{
    listening.removeAll(broker);
    if (on) {
        listening << broker;
    }
    for (int other = 0; other < count; ++other) {
        pairs[other * count + broker] = {};
    }
}

bool awaited_t::isMissing(moment_t now, int from, int at) const
{
    return of(from, at).packets >= enough && now - of(from, at).since >= patience;
}

bool awaited_t::isWaiting(moment_t now) const
{
    return std::any_of(pairs.begin(), pairs.end(), [now](const pair_t& pair) {
        return pair.packets >= enough && now - pair.since < patience + moment_t(1000);
    });
}

} // namespace view
} // namespace comunication
