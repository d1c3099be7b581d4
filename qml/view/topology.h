// SPDX-License-Identifier: MIT
// Who sits at which broker, which brokers there are behind bridges, and how things stand between them: worked out anew
// for each scene from what was heard where.
#pragma once

#include "awaited.h"
#include "scene.h"

#include <QtCore/QHash>

#include <vector>

namespace comunication {
namespace view {

/// The broker at which a node was heard without a bridge.
struct home_t {
    int source = 0;
    moment_t heard = house::never;
};

/// How things stand with the link to a broker.
struct link_t {
    hearing_t hearing = hearing_t::connecting;
    moment_t since = house::never;
    QString problem;
    [[nodiscard]] bool isHeard() const { return hearing == hearing_t::listening || hearing == hearing_t::recording; }
};

/// What there is to go by; it belongs to someone else.
struct evidence_t {
    const house::house_model_t& whole;
    const std::vector<house::house_model_t>& models; ///< for each broker that is listened to
    const QStringList& names;
    const QVector<link_t>& links;
    const QHash<QString, home_t>& homes;
    const awaited_t& awaited;
};

struct topology_t {
    QStringList brokers; ///< those that are listened to, then those behind bridges
    QVector<int> seats;  ///< for each node of the whole, the index of its broker
    QVector<scene_line_t> lines;
    QVector<QPair<int, int>> missing; ///< directions over which nothing comes, also where no bridge joins them directly

    [[nodiscard]] const scene_line_t* line(int one, int other) const;
};

[[nodiscard]] topology_t topologyOf(const evidence_t& evidence, moment_t now);

/// The name of a bridge without what brokers put before it at the end that dials.
[[nodiscard]] QString plainBridgeName(const QString& name);

} // namespace view
} // namespace comunication
