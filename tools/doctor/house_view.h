// SPDX-License-Identifier: MIT
// An examination as those look at it who judge it. Internal to the doctor.
#pragma once

#include "doctor/judgement.h"

#include <algorithm>

namespace comunication {
namespace tools {

struct house_view_t {
    house_view_t(const observations_t& seen, const connection_t& connection, diagnosis_t& diagnosis);

    [[nodiscard]] bool answered(const QString& server) const { return seen.answers.contains(server); }
    /// The bridge that is up and joins two of these servers; null if there is none.
    [[nodiscard]] const house::house_bridge_t* joining(const QStringList& servers) const;

    const observations_t& seen;
    const connection_t& connection;
    diagnosis_t& diagnosis;
    QVector<house::house_node_t> servers; ///< that are there
    QVector<house::house_node_t> panels;
    QStringList near;     ///< servers at this broker
    QStringList masters;  ///< who calls itself so
    QStringList restless; ///< nodes that come and go
};

void judgeBridges(const house_view_t& view);
void judgeClocks(const house_view_t& view);
void judgeKeptStatus(const house_view_t& view);
void judgeBroker(const house_view_t& view);

} // namespace tools
} // namespace comunication
