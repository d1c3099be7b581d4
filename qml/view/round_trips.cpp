// SPDX-License-Identifier: MIT
#include "round_trips.h"

#include <algorithm>

namespace comunication {
namespace view {

void round_trips_t::ask(moment_t now, const QString& server, QStringView subject)
{
    forget(now);
    // Whoever asks again has waited since the first time.
    const bool isKnown = std::any_of(
        asked.begin(), asked.end(), [&](const asked_t& one) { return one.server == server && subject == one.subject; });
    if (!isKnown) {
        if (asked.size() >= mostPending) {
            asked.pop_front();
        }
        asked.push_back({now, server, subject.toString()});
    }
}

double round_trips_t::answer(moment_t now, QStringView server, QStringView subject)
{
    forget(now);
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

void round_trips_t::forget(moment_t now)
{
    while (!asked.empty() && (now - asked.front().moment > longest || now < asked.front().moment)) {
        asked.pop_front();
    }
}

} // namespace view
} // namespace comunication
