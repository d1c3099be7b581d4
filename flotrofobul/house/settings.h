// SPDX-License-Identifier: MIT
// The section "house" of the configuration. Internal.
#pragma once

#include <flotrofobul/house/mastership.h>

#include <QtCore/QJsonValue>

namespace comunication {
namespace house {

constexpr int bestRank = 1;
constexpr int lastRank = 255;

struct settings_t {
    int rank = 100;
    times_t times;
};

/// Reads the section; what it does not set stays as given, and what is wrong in it is logged and left.
void readSettings(const QJsonValue& section, settings_t* settings);

} // namespace house
} // namespace comunication
