// SPDX-License-Identifier: MIT
#include "round_trips.h"

#include <algorithm>

namespace comunication {
namespace view {

void round_trips_t::ask(moment_t now, int source, QStringView asker, QStringView server, QStringView subject)
{
    forget(now);
    if (isCopy(now, source, asker.toString() + u'\n' + server.toString() + u'\n' + subject.toString())) {
        return;
    }
    // Whoever asks again has waited since the first time.
    const bool isKnown = std::any_of(
        asked.begin(), asked.end(), [&](const asked_t& one) { return server == one.server && subject == one.subject; });
    if (!isKnown) {
        if (asked.size() >= mostPending) {
            asked.pop_front();
        }
        asked.push_back({now, server.toString(), subject.toString()});
    }
}

double round_trips_t::answer(moment_t now, int source, QStringView server, QStringView subject)
{
    forget(now);
    if (isCopy(now, source, server.toString() + u'\n' + subject.toString())) {
        return -1;
    }
    const auto one = std::find_if(asked.begin(), asked.end(), [&](const asked_t& question) {
        return server == question.server && subject.startsWith(question.subject) &&
               (subject.size() == question.subject.size() || subject[question.subject.size()] == u'/');
    });
    if (one == asked.end()) {
        return -1;
    }
    const double time = double((now - one->moment).count());
    asked.erase(one);
    return time;
}

bool round_trips_t::isCopy(moment_t now, int source, const QString& packet)
{
    if (counts.size() >= mostCounted && !counts.contains(packet)) {
        counts.clear();
    }
    count_t& count = counts[packet];
    if (count.moment == house::never || now - count.moment > longest || now < count.moment) {
        count = {}; // whoever was behind has caught up, or never will
    }
    count.moment = now;
    if (count.heard.size() <= source) {
        count.heard.resize(source + 1);
    }
    if (++count.heard[source] <= count.known) {
        return true;
    }
    count.known = count.heard[source];
    return false;
}

void round_trips_t::forget(moment_t now)
{
    while (!asked.empty() && (now - asked.front().moment > longest || now < asked.front().moment)) {
        asked.pop_front();
    }
}

} // namespace view
} // namespace comunication
