// SPDX-License-Identifier: MIT
// How long a house takes to answer: from a request to a server until its next status of the same.
#pragma once

#include "scene.h"

#include <QtCore/QHash>

#include <deque>

namespace comunication {
namespace view {

/// A packet may be heard at several brokers, in any order: each of them hears it once, which tells copies apart.
class round_trips_t {
public:
    static constexpr int mostPending = 200;
    static constexpr int mostCounted = 2000;
    static constexpr moment_t longest{10000};

    /// source: the broker at which it was heard; subject: what stands behind "request/".
    void ask(moment_t now, int source, QStringView asker, QStringView server, QStringView subject);
    /// subject: what stands behind "status/". Milliseconds since it was asked for; -1: nobody has.
    [[nodiscard]] double answer(moment_t now, int source, QStringView server, QStringView subject);
    /// A broker is listened to anew: it has not heard what others have.
    void forgetCopies() { counts.clear(); }
    [[nodiscard]] int pending() const { return static_cast<int>(asked.size()); }

private:
    struct asked_t {
        moment_t moment;
        QString server;
        QString subject;
    };
    struct count_t {
        QVector<int> heard; ///< by source
        int known = 0;
        moment_t moment = house::never;
    };
    void forget(moment_t now);
    [[nodiscard]] bool isCopy(moment_t now, int source, const QString& packet);

    QHash<QString, count_t> counts;
    std::deque<asked_t> asked; ///< the oldest first
};

} // namespace view
} // namespace comunication
