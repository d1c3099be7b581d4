// SPDX-License-Identifier: MIT
#include "layout.h"

namespace comunication {
namespace view {

layout_t layoutOf(const scene_t& scene, const QSizeF& size)
{
    layout_t layout;
    const int count = scene.brokers.size();
    for (int i = 0; i < count; ++i) {
        const QRectF area(size.width() * i / count, 0, size.width() / count, size.height());
        const QRectF mark(area.center().x() - 20, area.center().y() - 20, 40, 40);
        layout.brokers << broker_place_t{area, mark, QRectF(mark.x() - 30, mark.bottom(), 100, 16)};
    }
    for (int i = 0; i < scene.nodes.size(); ++i) {
        layout.nodes << node_place_t{QRectF(10 + (i % 10) * 60, 10 + (i / 10) * 40, 24, 24),
                                     QRectF(36 + (i % 10) * 60, 10 + (i / 10) * 40, 30, 16)};
    }
    for (const scene_line_t& line : scene.lines) {
        const QLineF way(layout.brokers[line.from].mark.center(), layout.brokers[line.to].mark.center());
        layout.lines << line_place_t{way, way.center()};
    }
    return layout;
}

} // namespace view
} // namespace comunication
