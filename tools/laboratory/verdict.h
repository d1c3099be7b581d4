// SPDX-License-Identifier: MIT
// What a house owes its people: one master whom all follow, and one answer to each request.
#pragma once

#include "laboratory/laboratory.h"

/// The outcome of waiting for a house to be well.
struct verdict_t {
    QString failure;                     ///< in words; empty when all is well
    std::chrono::milliseconds healed{0}; ///< until the last agreement began
    int answers = 0;                     ///< requests of the last round, each answered once
    int rounds = 0;                      ///< of requests; more than one when the role moved meanwhile

    bool isGood() const { return failure.isEmpty(); }
};

/// Waits until the nodes have agreed for a while.
verdict_t agrees(laboratory_t& laboratory, std::chrono::milliseconds bound, std::chrono::milliseconds calm);
/// The same, and lets every panel ask its master: each request is taken once and answered once, now and in the
/// laboratory's past.
verdict_t isWell(laboratory_t& laboratory, std::chrono::milliseconds bound,
                 std::chrono::milliseconds calm = std::chrono::seconds(1));
/// Time line, thoughts and last words of all nodes, for whoever looks for the cause.
QString testimony(const laboratory_t& laboratory);
/// "3.4 s"
QString seconds(std::chrono::milliseconds time);
