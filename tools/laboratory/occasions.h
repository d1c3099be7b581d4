// SPDX-License-Identifier: MIT
// What the command shows; each returns its exit status.
#pragma once

#include "laboratory/laboratory.h"

/// A house lives, loses its master's box and gets it back.
int showHouse(const house_t& house, int delay);

struct soak_t {
    std::chrono::milliseconds time{0};
    int histories = 0; ///< 0: until the time is over
    quint32 seed = 0;
    bool verbose = false;
};
/// Random histories, each followed by peace and a verdict.
int soak(const house_t& house, const soak_t& how);

/// Measures what a house promises, each row so many times; only: rows with this word.
int measureTargets(const house_t& house, int times, const QString& only, bool verbose);

/// A line on standard output.
void print(const QString& line);
