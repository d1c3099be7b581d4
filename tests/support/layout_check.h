// SPDX-License-Identifier: MIT
// Looks at a picture made of Qt Quick items as a person would: can everything be read, can everything be touched? It
// knows items by their class and their properties, and no program.
#pragma once

#include <QtCore/QVector>
#include <QtGui/QColor>
#include <QtQuick/QQuickItem>

#include <algorithm>

namespace layout {

/// Whether a text may be cut off where it says so with its property "elide".
enum elision_t { mayElide, mustBeWhole };

/// Walks what is visible in the order in which it is painted.
class check_t {
public:
    check_t(QQuickItem& givenRoot, elision_t givenElision) : root(givenRoot), elision(givenElision)
    {
        walk(root, 1);
        compare();
    }
    QStringList faults;

private:
    static constexpr qreal tolerance = 1; ///< pixels
    static constexpr qreal finger = 28;   ///< the least width and height of what is touched

    enum kind_t { text, touched, cover };
    struct piece_t {
        kind_t kind;
        QQuickItem* item;
        QString name;
        QRectF shown; ///< in the root, without what others clip
    };

    void walk(QQuickItem& item, qreal opacity)
    {
        opacity *= item.opacity();
        if (!item.isVisible() || opacity <= 0) {
            return;
        }
        QList<QQuickItem*> children = item.childItems();
        std::stable_sort(children.begin(), children.end(),
                         [](auto* one, auto* other) { return one->z() < other->z(); });
        const auto above = std::find_if(children.begin(), children.end(), [](auto* child) { return child->z() >= 0; });
        std::for_each(children.begin(), above, [&](auto* child) { walk(*child, opacity); });
        look(item, opacity);
        std::for_each(above, children.end(), [&](auto* child) { walk(*child, opacity); });
    }

    void look(QQuickItem& item, qreal opacity)
    {
        const QRectF whole(0, 0, item.width(), item.height());
        if (item.property("contentWidth").isValid() && !item.property("text").toString().isEmpty()) {
            const QString name = nameOf(item);
            add(text, item, name, paintedIn(item, name));
        } else if (isTouched(item)) {
            const QString name = QStringLiteral("button %1").arg(nameOf(item));
            const QSizeF size = boundsOf(item).size();
            if (size.width() < finger || size.height() < finger) {
                tell(QStringLiteral("%1 is too small for a finger: %2 x %3"), name, size);
            }
            add(touched, item, name, whole);
        } else if (item.inherits("QQuickRectangle") && opacity >= 1 &&
                   item.property("color").value<QColor>().alpha() == 255) {
            pieces << piece_t{cover, &item, {}, shownOf(item, boundsOf(item), nullptr)};
        }
    }

    static bool isTouched(const QQuickItem& item)
    {
        if (item.inherits("QQuickMouseArea")) {
            return item.isEnabled() && item.property("acceptedButtons").toInt() != Qt::NoButton;
        }
        const QObjectList& parts = item.children();
        return item.inherits("QQuickAbstractButton") || item.inherits("QQuickSlider") ||
               item.inherits("QQuickComboBox") ||
               std::any_of(parts.begin(), parts.end(), [](auto* part) { return part->inherits("QQuickTapHandler"); });
    }

    static QString nameOf(const QQuickItem& item)
    {
        const QString words = item.property("text").toString().simplified().left(60);
        const QString name =
            item.objectName().isEmpty() ? QString::fromLatin1(item.metaObject()->className()) : item.objectName();
        return words.isEmpty() ? name : QStringLiteral("\"%1\" (%2)").arg(words, name);
    }

    /// Where the letters of a text are, in its item.
    QRectF paintedIn(QQuickItem& item, const QString& name)
    {
        const auto number = [&](const char* property) { return item.property(property).toReal(); };
        const QRectF place(number("leftPadding"), number("topPadding"),
                           item.width() - number("leftPadding") - number("rightPadding"),
                           item.height() - number("topPadding") - number("bottomPadding"));
        const QSizeF size(number("contentWidth"), number("contentHeight"));
        const QVariant elide = item.property("elide");
        const bool isElided = elide.isValid() && elide.toInt() != Qt::ElideNone;
        if (item.property("truncated").toBool() && (elision == mustBeWhole || !isElided)) {
            faults << QStringLiteral("%1 is cut off").arg(name);
        } else if (size.width() > place.width() + tolerance || size.height() > place.height() + tolerance) {
            tell(QStringLiteral("%1 is larger than its place: %2 x %3"), name, size);
        }
        QRectF painted(place.topLeft(), size);
        const int across = item.property("effectiveHorizontalAlignment").toInt();
        const int down = item.property("verticalAlignment").toInt();
        if ((across & (Qt::AlignRight | Qt::AlignHCenter)) != 0) {
            painted.moveLeft(place.left() + (place.width() - size.width()) / (across == Qt::AlignRight ? 1 : 2));
        }
        if ((down & (Qt::AlignBottom | Qt::AlignVCenter)) != 0) {
            painted.moveTop(place.top() + (place.height() - size.height()) / (down == Qt::AlignBottom ? 1 : 2));
        }
        return painted;
    }

    void add(kind_t kind, QQuickItem& item, const QString& name, const QRectF& area)
    {
        pieces << piece_t{kind, &item, name, shownOf(item, item.mapRectToItem(&root, area), &name)};
    }

    /// What remains of an area within those that clip. With a name it is a fault when that is not the whole, unless
    /// the rest can be scrolled to, or when it lies across the edge of a box to which it belongs.
    QRectF shownOf(const QQuickItem& item, const QRectF& area, const QString* name)
    {
        QRectF shown = area;
        bool scrollsAcross = false;
        bool scrollsDown = false;
        bool isCut = false;
        bool isAcross = false;
        for (const QQuickItem* at = &item; at != &root;) {
            at = at->parentItem();
            if (at->inherits("QQuickFlickable")) {
                scrollsAcross = scrollsAcross || at->property("contentWidth").toReal() > at->width() + tolerance;
                scrollsDown = scrollsDown || at->property("contentHeight").toReal() > at->height() + tolerance;
            }
            if (at->clip() || at == &root) {
                const QRectF edge = boundsOf(*at);
                isCut = isCut ||
                        (!scrollsAcross &&
                         (area.left() < edge.left() - tolerance || area.right() > edge.right() + tolerance)) ||
                        (!scrollsDown &&
                         (area.top() < edge.top() - tolerance || area.bottom() > edge.bottom() + tolerance));
                shown &= edge;
            } else if (!scrollsAcross && !scrollsDown && at->inherits("QQuickRectangle") &&
                       at->property("color").value<QColor>().alpha() > 0) {
                const QRectF box = boundsOf(*at);
                isAcross = isAcross || (isNotable(box & area) && !isWhole(box, area));
            }
        }
        if (isCut && name != nullptr) {
            tell(QStringLiteral("%1 sticks out: %2 x %3 of it are seen"), *name, shown.size());
        } else if (isAcross && name != nullptr) {
            faults << QStringLiteral("%1 lies across the edge of its box").arg(*name);
        }
        return shown;
    }

    QRectF boundsOf(const QQuickItem& item) const
    {
        return item.mapRectToItem(&root, QRectF(0, 0, item.width(), item.height()));
    }
    static bool isWhole(const QRectF& part, const QRectF& area)
    {
        return part.adjusted(-tolerance, -tolerance, tolerance, tolerance).contains(area);
    }
    static bool isInPopup(const QQuickItem* item)
    {
        while (item != nullptr && !item->inherits("QQuickPopupItem")) {
            item = item->parentItem();
        }
        return item != nullptr;
    }
    /// What is laid over a good part of all is meant to hide it: a popup, or a sheet that can be put away.
    bool isSheet(const piece_t& piece) const
    {
        const auto sizeOf = [](const QRectF& area) { return area.width() * area.height(); };
        return isInPopup(piece.item) || sizeOf(piece.shown) > sizeOf(boundsOf(root)) / 8;
    }
    /// An area for the mouse may have buttons on it.
    static bool isField(const piece_t& lower, const piece_t& upper)
    {
        return lower.item->inherits("QQuickMouseArea") && isWhole(lower.shown, upper.shown) &&
               !isWhole(upper.shown, lower.shown);
    }
    static bool isNotable(const QRectF& area) { return area.width() > tolerance && area.height() > tolerance; }

    void compare()
    {
        for (int i = 0; i < pieces.size(); ++i) {
            const piece_t& lower = pieces[i];
            QVector<QRectF> covers; // painted between the two
            for (int j = i + 1; lower.kind != cover && j < pieces.size(); ++j) {
                const piece_t& upper = pieces[j];
                const QRectF both = lower.shown & upper.shown;
                if (!isNotable(both) || lower.item->isAncestorOf(upper.item)) {
                    continue;
                }
                const bool isHidden = std::any_of(covers.begin(), covers.end(),
                                                  [&](const QRectF& hidden) { return hidden.contains(both); });
                if (upper.kind == cover) {
                    covers << both;
                    if (lower.kind == text && !isHidden && !isSheet(upper) && !isWhole(both, lower.shown)) {
                        faults << QStringLiteral("%1 is covered in part").arg(lower.name);
                    }
                } else if (upper.kind == lower.kind && !isHidden && !isField(lower, upper)) {
                    tell(QStringLiteral("%1 overlap, by %2 x %3"),
                         QStringLiteral("%1 and %2").arg(lower.name, upper.name), both.size());
                }
            }
        }
    }

    void tell(const QString& words, const QString& name, const QSizeF& size)
    {
        faults << words.arg(name).arg(qRound(size.width())).arg(qRound(size.height()));
    }

    QQuickItem& root;
    const elision_t elision;
    QVector<piece_t> pieces;
};

/// What cannot be read or touched, in words; empty when all is well. root: what stands for the window, such as
/// QQuickWindow::contentItem().
inline QStringList faults(QQuickItem& root, elision_t elision = mayElide)
{
    return check_t(root, elision).faults;
}

} // namespace layout
