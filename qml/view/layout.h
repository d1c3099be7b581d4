// SPDX-License-Identifier: MIT
// Where everything stands on the canvas: a pure function of what there is and how large the canvas is.
#pragma once

#include "scene.h"

#include <QtCore/QLineF>
#include <QtCore/QRectF>
#include <QtCore/QSizeF>

namespace comunication {
namespace view {

struct broker_place_t {
    QRectF area; ///< its region; a strip at its top is left free for the name
    QRectF mark; ///< the broker itself, in the middle of it
};

struct node_place_t {
    QRectF mark;
    QRectF label; ///< beside the mark, or below it for a server; empty where there is no room
};

struct line_place_t {
    QLineF line; ///< from the edge of one broker's mark to that of the other
    QPointF label;
};

struct layout_t {
    QVector<broker_place_t> brokers;
    QVector<node_place_t> nodes;
    QVector<line_place_t> lines;
};

/// Places what a scene holds, in its order. No marks and labels overlap.
[[nodiscard]] layout_t layoutOf(const scene_t& scene, const QSizeF& size);

} // namespace view
} // namespace comunication
