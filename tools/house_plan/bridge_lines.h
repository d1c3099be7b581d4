// SPDX-License-Identifier: MIT
// The bridges of a house, and the lines for each box's mosquitto that make them.
#pragma once

#include "house_plan/house_plan.h"

#include <QtCore/QStringList>

#include <functional>

namespace comunication {
namespace tools {

/// What a bridge carries.
enum class lane_t {
    everything,
    presence, ///< who is there, who is master, status: kept for a box that is away
    data,     ///< requests, commands, notifications: of no use, or dangerous, when they arrive late
};

/// One bridge, which is one "connection" of mosquitto at the box that dials.
struct bridge_t {
    static constexpr int cloud = -1;

    int from = 0; ///< place of the box that dials
    int to = 0;   ///< place of the box that is dialled, or cloud
    lane_t lane = lane_t::everything;
    QString remoteClientId;
    QString localClientId;
    QStringList topics; ///< what follows the word "topic"
};

/// All bridges of a plan without faults, those of the first box first.
[[nodiscard]] QVector<bridge_t> bridgesOf(const house_plan_t& plan);

/// Where a bridge dials.
struct endpoint_t {
    QString host;
    int port = 0;
};
using endpoint_of_t = std::function<endpoint_t(const bridge_t&)>;

/// Where the plan says that a bridge dials.
[[nodiscard]] endpoint_t plannedEndpoint(const house_plan_t& plan, const bridge_t& bridge);

/// First line of every file that is written.
[[nodiscard]] QString bridgeLinesMark();

/// The bridge lines of one box, with comments; endpointOf replaces the planned endpoints (a proxy, a tunnel).
[[nodiscard]] QString bridgeLines(const house_plan_t& plan, int box, const endpoint_of_t& endpointOf = {});

} // namespace tools
} // namespace comunication
