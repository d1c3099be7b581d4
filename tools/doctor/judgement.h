// SPDX-License-Identifier: MIT
// What the doctor makes of an examination: step by step, what is fine and what is wrong, why, and what to do.
#pragma once

#include "doctor/diagnosis.h"
#include "doctor/examination.h"

namespace comunication {
namespace tools {

/// The steps of the link. False if there is none, so that nothing else could be seen.
bool judgeLink(const observations_t& seen, const connection_t& connection, diagnosis_t& diagnosis);
/// The steps behind it.
void judgeHouse(const observations_t& seen, const connection_t& connection, diagnosis_t& diagnosis);

} // namespace tools
} // namespace comunication
