// SPDX-License-Identifier: MIT
#include "layout.h"

#include <algorithm>
#include <cmath>

namespace comunication {
namespace view {

using house::role_t;

namespace {

constexpr qreal margin = 8;      // around a region, and between what stands in it
constexpr qreal gap = 4;         // between marks
constexpr qreal lineHeight = 18; // of a label
constexpr qreal strip = 26;      // at the top of a region, for the name of its broker
constexpr qreal brokerWidth = 64;
constexpr qreal brokerHeight = 36;
constexpr qreal serverLabel = 110; // at least, where nodes have labels
constexpr int mostServers = 4;     // above their broker; more stand beside it, with the panels
constexpr QSizeF lineLabel(56, 22);
constexpr qreal leastHeight = 120; // of a region that is not alone
constexpr int weightStep = 8;      // nodes by which a region grows: not with each
constexpr int leastWeight = 8;

/// How nodes may be drawn, the best first; the first that fits is taken for a whole region.
struct form_t {
    qreal mark;
    qreal label; ///< width; 0: none
};
constexpr form_t forms[] = {{28, 130}, {28, 96}, {24, 84}, {20, 72}, {18, 60}, {24, 0}, {18, 0}, {14, 0},
                            {11, 0},   {9, 0},   {7, 0},   {5, 0},   {4, 0},   {3, 0},  {2, 0}};

struct nodes_of_t {
    QVector<int> servers; ///< above the broker
    QVector<int> others;
};

/// Rows of regions, as square as the canvas allows.
int rowsFor(int count, const QSizeF& size)
{
    int best = 1;
    qreal worst = 0;
    for (int rows = 1; rows <= count; ++rows) {
        const int columns = (count + rows - 1) / rows;
        const qreal width = size.width() / columns;
        const qreal height = size.height() / rows;
        const qreal shape = std::min(width, height * 1.3);
        if (shape > worst + 0.5) {
            worst = shape;
            best = rows;
        }
    }
    // In one row a bridge between the outer ones would run through those in the middle.
    return best == 1 && count > 2 && size.height() >= 2 * leastHeight ? 2 : best;
}

/// Divides a length by weights, each part at least half of an equal one.
QVector<qreal> shares(const QVector<int>& weights, qreal length)
{
    const qreal least = length / weights.size() / 2;
    int sum = 0;
    for (const int weight : weights) {
        sum += weight;
    }
    QVector<qreal> result;
    for (const int weight : weights) {
        result << least + (length - least * weights.size()) * weight / sum;
    }
    return result;
}

QVector<QRectF> regions(const QVector<int>& weights, const QSizeF& size)
{
    const int count = weights.size();
    const int rows = rowsFor(count, size);
    QVector<QVector<int>> weightsOfRow(rows);
    QVector<int> rowWeights;
    // The first rows are the fuller ones.
    int next = 0;
    for (int row = 0; row < rows; ++row) {
        const int columns = (count - next + rows - row - 1) / (rows - row);
        weightsOfRow[row] = weights.mid(next, columns);
        rowWeights << *std::max_element(weightsOfRow[row].begin(), weightsOfRow[row].end());
        next += columns;
    }
    const QVector<qreal> heights = shares(rowWeights, size.height());
    QVector<QRectF> result;
    qreal y = 0;
    for (int row = 0; row < rows; ++row) {
        qreal x = 0;
        for (const qreal width : shares(weightsOfRow[row], size.width())) {
            result << QRectF(x, y, width, heights[row]);
            x += width;
        }
        y += heights[row];
    }
    return result;
}

class region_t {
public:
    region_t(const QRectF& givenArea, const nodes_of_t& givenNodes) : area(givenArea), nodes(givenNodes)
    {
        inner = area.adjusted(margin, strip, -margin, -margin);
    }

    broker_place_t place(QVector<node_place_t>* places)
    {
        const nodes_of_t all = nodes;
        for (const form_t& form : forms) {
            // Servers for whom there is no room above their broker stand with the panels.
            nodes = all;
            placeMiddle(form);
            while (middle.width() > inner.width() && nodes.servers.size() > 1) {
                nodes.others.prepend(nodes.servers.takeLast());
                placeMiddle(form);
            }
            if (placeOthers(form, nullptr)) {
                placeServers(form, places);
                placeOthers(form, places);
                break;
            }
        }
        return broker;
    }

private:
    static qreal serverSideOf(const form_t& form) { return form.mark * 1.25; }
    static qreal serverWidthOf(const form_t& form)
    {
        return (form.label > 0 ? std::max(form.label, serverLabel) : serverSideOf(form)) + gap;
    }

    // Lines come to the first row of regions from below, to the others from above.
    bool isLower() const { return area.top() > 0; }

    // The broker with its servers above or below, in the middle.
    void placeMiddle(const form_t& form)
    {
        const int servers = nodes.servers.size();
        const qreal serverHeight = servers == 0 ? 0 : serverSideOf(form) + (form.label > 0 ? lineHeight : 0) + 2 * gap;
        const QSizeF size(std::max(servers * serverWidthOf(form), brokerWidth), serverHeight + brokerHeight);
        middle = QRectF(inner.center() - QPointF(size.width(), size.height()) / 2, size);
        broker.area = area;
        broker.mark = QRectF(inner.center().x() - brokerWidth / 2, middle.top() + (isLower() ? 0 : serverHeight),
                             brokerWidth, brokerHeight);
    }

    void placeServers(const form_t& form, QVector<node_place_t>* places) const
    {
        const int servers = nodes.servers.size();
        const qreal side = serverSideOf(form);
        const qreal width = serverWidthOf(form);
        for (int i = 0; i < servers; ++i) {
            const qreal x = middle.center().x() + (i - servers / 2.0) * width;
            node_place_t place;
            const qreal y = isLower() ? broker.mark.bottom() + 2 * gap : middle.top();
            place.mark = QRectF(x + (width - side) / 2, y, side, side);
            if (form.label > 0) {
                place.label = QRectF(x + gap / 2, place.mark.bottom(), width - gap, lineHeight);
            }
            (*places)[nodes.servers[i]] = place;
        }
    }

    // In columns beside the middle, the nearest first, from the middle of each outwards; then in what is above and
    // below. Without places: whether there is room.
    bool placeOthers(const form_t& form, QVector<node_place_t>* places) const
    {
        if (middle.height() > inner.height() || middle.width() > inner.width()) {
            return false;
        }
        const qreal space = form.mark < 7 ? 1 : gap;
        const qreal cellWidth = form.mark + form.label + space + (form.label > 0 ? gap : 0);
        const qreal cellHeight = std::max(form.mark, form.label > 0 ? lineHeight : 0) + space;
        const int rows = static_cast<int>((inner.height() + space) / cellHeight);
        const qreal side = (inner.width() - middle.width()) / 2 - margin;
        const int columns = std::max(0, static_cast<int>(side / cellWidth));
        const int count = nodes.others.size();
        const int beside = 2 * columns * rows;
        int next = 0;
        // Both sides alike, so that few nodes do not stand all on one.
        const int used = columns == 0 ? 0 : std::min(count, beside);
        const int perSide = (used + 1) / 2;
        for (int i = 0; i < used; ++i) {
            const bool isLeft = i >= perSide;
            const int index = isLeft ? i - perSide : i;
            const int ofSide = isLeft ? used - perSide : perSide;
            // Columns are filled evenly: three and three rather than five and one.
            const int full = (ofSide + rows - 1) / rows;
            const int perColumn = (ofSide + full - 1) / full;
            const int column = index / perColumn;
            const int inColumn = std::min(perColumn, ofSide - column * perColumn);
            const qreal y = inner.center().y() + (index % perColumn - inColumn / 2.0) * cellHeight;
            const qreal near = margin + column * cellWidth;
            if (places != nullptr) {
                (*places)[nodes.others[next]] = placeOf(form, isLeft ? middle.left() - near : middle.right() + near,
                                                        y + (cellHeight - form.mark) / 2, isLeft);
            }
            ++next;
        }
        // Where the middle takes the whole width, above and below it.
        const int across = static_cast<int>((inner.width() + space) / cellWidth);
        for (const qreal top : {inner.top(), middle.bottom() + space}) {
            const qreal height = (top == inner.top() ? middle.top() - space : inner.bottom()) - top;
            const int lines = beside > 0 ? 0 : static_cast<int>((height + space) / cellHeight);
            for (int i = 0; i < lines * across && next < count; ++i, ++next) {
                if (places != nullptr) {
                    const int line = i / across;
                    const qreal x = inner.center().x() + (i % across - across / 2.0) * cellWidth;
                    (*places)[nodes.others[next]] =
                        placeOf(form, x, top + line * cellHeight + (cellHeight - form.mark) / 2, false);
                }
            }
        }
        return next == count;
    }

    static node_place_t placeOf(const form_t& form, qreal x, qreal y, bool isLeft)
    {
        node_place_t place;
        place.mark = QRectF(isLeft ? x - form.mark : x, y, form.mark, form.mark);
        if (form.label > 0) {
            place.label = QRectF(isLeft ? place.mark.left() - gap - form.label : place.mark.right() + gap,
                                 place.mark.center().y() - lineHeight / 2, form.label, lineHeight);
        }
        return place;
    }

    const QRectF area;
    nodes_of_t nodes;
    QRectF inner;
    QRectF middle;
    broker_place_t broker;
};

/// Where a line from the middle of a mark leaves it.
QPointF edgeOf(const QRectF& mark, const QPointF& towards)
{
    const QPointF way = towards - mark.center();
    const qreal beyond = std::max({std::abs(way.x()) / mark.width() * 2, std::abs(way.y()) / mark.height() * 2, 1.0});
    return mark.center() + way / beyond;
}

/// On whole pixels, or thin lines are blurred. What does not overlap before does not afterwards.
QRectF sharp(const QRectF& place)
{
    return {QPointF(std::round(place.left()), std::round(place.top())),
            QPointF(std::round(place.right()), std::round(place.bottom()))};
}

/// Near the middle of a line, but where no broker's name stands.
QPointF labelOf(const QLineF& line, const QVector<broker_place_t>& brokers)
{
    for (const qreal along : {0.5, 0.42, 0.58, 0.34, 0.66, 0.26, 0.74}) {
        const QPointF middle = line.pointAt(along);
        const QRectF label(middle.x() - lineLabel.width() / 2, middle.y() - lineLabel.height() / 2, lineLabel.width(),
                           lineLabel.height());
        const auto hidesIt = [&](const broker_place_t& broker) {
            return QRectF(broker.area.topLeft(), QSizeF(broker.area.width(), strip)).intersects(label);
        };
        if (std::none_of(brokers.begin(), brokers.end(), hidesIt)) {
            return middle;
        }
    }
    return line.center();
}

} // namespace

layout_t layoutOf(const scene_t& scene, const QSizeF& size)
{
    layout_t layout;
    layout.nodes.resize(scene.nodes.size());
    const int count = scene.brokers.size();
    if (count == 0 || size.isEmpty()) {
        layout.brokers.resize(count);
        layout.lines.resize(scene.lines.size());
        return layout;
    }
    QVector<nodes_of_t> nodes(count);
    for (int i = 0; i < scene.nodes.size(); ++i) {
        const scene_facts_t& facts = *scene.nodes[i].facts;
        nodes_of_t& there = nodes[std::clamp(facts.broker, 0, count - 1)];
        const bool isAbove = facts.role == role_t::server && there.servers.size() < mostServers;
        (isAbove ? there.servers : there.others) << i;
    }
    QVector<int> weights;
    for (const nodes_of_t& one : qAsConst(nodes)) {
        const int all = one.servers.size() + one.others.size();
        weights << leastWeight + (all + weightStep - 1) / weightStep * weightStep;
    }
    const QVector<QRectF> areas = regions(weights, size);
    for (int i = 0; i < count; ++i) {
        const broker_place_t place = region_t(areas[i], nodes[i]).place(&layout.nodes);
        layout.brokers << broker_place_t{sharp(place.area), sharp(place.mark)};
    }
    for (node_place_t& place : layout.nodes) {
        place = {sharp(place.mark), sharp(place.label)};
    }
    for (const scene_line_t& line : scene.lines) {
        const QRectF& from = layout.brokers[line.from].mark;
        const QRectF& to = layout.brokers[line.to].mark;
        const QLineF way(edgeOf(from, to.center()), edgeOf(to, from.center()));
        layout.lines << line_place_t{way, labelOf(way, layout.brokers)};
    }
    return layout;
}

} // namespace view
} // namespace comunication
