// SPDX-License-Identifier: MIT
// How long a house takes to answer: from a request to a server until its next status of the same.
#pragma once

#include "scene.h"

#include <deque>

namespace comunication {
namespace view {

class round_trips_t {
public:
    static constexpr int mostPending = 200;
    static constexpr moment_t longest{10000};

    /// subject: what stands behind "request/".
    void ask(moment_t now, const QString& server, QStringView subject);
    /// subject: what stands behind "status/". Milliseconds since it was asked for; -1: nobody has.
    [[nodiscard]] double answer(moment_t now, QStringView server, QStringView subject);
    [[nodiscard]] int pending() const { return static_cast<int>(asked.size()); }

private:
    struct asked_t {
        moment_t moment;
        QString server;
        QString subject;
    };
    void forget(moment_t now);
    std::deque<asked_t> asked; ///< the oldest first
};

} // namespace view
} // namespace comunication
