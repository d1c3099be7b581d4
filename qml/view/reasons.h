// SPDX-License-Identifier: MIT
// Why somebody is gone, as far as it can be told from what was heard; each reason says what it stands on.
#pragma once

#include "scene.h"

namespace comunication {
namespace view {

/// What is known when a node is gone.
struct parting_t {
    moment_t moment = house::never;
    moment_t silence{0};  ///< for how long it had said nothing; negative: it was never heard
    moment_t usual{0};    ///< how long it is silent as a rule
    QString broker;       ///< that it sat at
    int together = 1;     ///< nodes of that broker that went at the same time, itself included
    bool wereAll = false; ///< nobody is left there
    QString bridge;       ///< on the way to it, that went down at the same time; empty: none
    bool brokerIsLost = false;
};

/// A keep-alive is ten seconds at least, and a broker waits half as long again: who was heard later was not missed by
/// it.
constexpr moment_t shortestMissing{15000};
/// What happens within that time has one cause.
constexpr moment_t sameTime{3000};

[[nodiscard]] QString whyGone(const parting_t& parting);
/// Why nothing can be said of nodes at a broker: the bridge on the way to it is down.
[[nodiscard]] QString whyUnreachable(const QString& bridge);
/// The same where the broker itself is lost to us.
[[nodiscard]] QString whyUnheard(const QString& broker);

/// What is known when a broker is lost.
struct broker_loss_t {
    QString problem;
    QStringList bridgesDown; ///< at other brokers, towards it
    bool isHeardElsewhere = false;
};
[[nodiscard]] QString whyLost(const broker_loss_t& loss);

/// "0.4 s", "12 s", "3 min".
[[nodiscard]] QString spanOf(moment_t span);

} // namespace view
} // namespace comunication
