// SPDX-License-Identifier: MIT
// What somebody in front of a window would complain about: text that is cut off or written over other text, buttons
// that lie on each other or are too small for a finger.
#pragma once

#include <QtCore/QStringList>
#include <QtCore/QVector>
#include <QtGui/QColor>
#include <QtQuick/QQuickItem>
#include <QtQuick/QQuickWindow>

#include <algorithm>

/// Looks at all items that can be seen. Text that was told to elide may be shortened; what a list has scrolled away is
/// not looked at.
class layout_check_t {
public:
    static constexpr double smallest = 28; ///< side of what a finger meets, in pixels
    static constexpr double card = 80; ///< from this size on, what is painted over other things is meant to hide them

    /// In words, one for each fault; empty: good.
    static QStringList faultsIn(QQuickWindow& window)
    {
        layout_check_t check;
        check.look(window.contentItem(), QRectF(0, 0, window.width(), window.height()));
        check.compare(check.texts, "is written over", false);
        check.compare(check.buttons, "lies on", true);
        return check.faults;
    }

private:
    struct seen_t {
        QQuickItem* item;
        QRectF place; ///< in the window, as far as it is seen
    };

    static QString nameOf(const QQuickItem* item)
    {
        const QString text = item->property("text").toString();
        const QString name = item->objectName();
        const QByteArray kind = item->metaObject()->className();
        return u'"' + (text.isEmpty() ? (name.isEmpty() ? QString::fromLatin1(kind) : name) : text) + u'"';
    }
    static bool isText(const QQuickItem* item)
    {
        return item->metaObject()->indexOfProperty("contentWidth") >= 0 && !item->inherits("QQuickFlickable") &&
               !item->property("text").toString().isEmpty();
    }
    /// Where the glyphs are, in the item.
    static QRectF inkOf(const QQuickItem* item)
    {
        const double width = item->property("contentWidth").toDouble();
        const double height = item->property("contentHeight").toDouble();
        const int across = item->property("effectiveHorizontalAlignment").toInt();
        const int down = item->property("verticalAlignment").toInt();
        const double x = across & Qt::AlignRight     ? item->width() - width
                         : across & Qt::AlignHCenter ? (item->width() - width) / 2
                                                     : 0;
        const double y = down & Qt::AlignBottom    ? item->height() - height
                         : down & Qt::AlignVCenter ? (item->height() - height) / 2
                                                   : 0;
        return {x, y, width, height};
    }
    static bool isWithin(const QRectF& outer, const QRectF& inner)
    {
        return outer.adjusted(-1, -1, 1, 1).contains(inner);
    }

    // In the order in which all is painted.
    void look(QQuickItem* item, QRectF view)
    {
        if (!item->isVisible() || item->opacity() == 0) {
            return;
        }
        const QRectF place = item->mapRectToScene(QRectF(0, 0, item->width(), item->height()));
        if (isText(item)) {
            lookAtText(item, view);
        } else if (item->inherits("QQuickMouseArea") || item->inherits("QQuickAbstractButton")) {
            lookAtButton(item, place & view);
        } else if (item->inherits("QQuickRectangle")) {
            cover(*item, place & view);
        }
        if (item->clip()) {
            view &= place;
        }
        const bool wasScrolling = isScrolling;
        isScrolling = isScrolling || (item->clip() && item->inherits("QQuickFlickable"));
        QList<QQuickItem*> children = item->childItems();
        std::stable_sort(children.begin(), children.end(),
                         [](const auto* left, const auto* right) { return left->z() < right->z(); });
        for (QQuickItem* const child : qAsConst(children)) {
            look(child, view);
        }
        isScrolling = wasScrolling;
    }

    void cover(const QQuickItem& item, const QRectF& place)
    {
        const bool hides =
            item.property("color").value<QColor>().alpha() == 255 && place.width() >= card && place.height() >= card;
        const auto isHidden = [&](const seen_t& seen) { return hides && place.intersects(seen.place); };
        texts.erase(std::remove_if(texts.begin(), texts.end(), isHidden), texts.end());
    }

    void lookAtButton(QQuickItem* item, const QRectF& place)
    {
        if (!item->isEnabled() || place.isEmpty()) {
            return;
        }
        if (!isScrolling && (place.width() < smallest || place.height() < smallest)) {
            faults << nameOf(item) +
                          QStringLiteral(" is too small for a finger: %1 x %2").arg(place.width()).arg(place.height());
        }
        buttons.append({item, place});
    }

    void lookAtText(QQuickItem* item, const QRectF& view)
    {
        const QRectF ink = inkOf(item);
        const QRectF place = item->mapRectToScene(ink);
        const bool mayElide = item->property("elide").toInt() != Qt::ElideNone;
        if (isScrolling && !isWithin(view, place)) {
            return;
        }
        if (!mayElide && (ink.width() > item->width() + 1 || ink.height() > item->height() + 1 ||
                          item->property("truncated").toBool())) {
            faults << nameOf(item) + QStringLiteral(" needs %1 x %2 and has %3 x %4")
                                         .arg(ink.width())
                                         .arg(ink.height())
                                         .arg(item->width())
                                         .arg(item->height());
        }
        if (!isWithin(view, place)) {
            faults << nameOf(item) + QStringLiteral(" is cut off");
        }
        texts.append({item, place & view});
    }

    void compare(const QVector<seen_t>& seen, const char* what, bool mayContain)
    {
        for (int i = 0; i < seen.size(); ++i) {
            for (int j = i + 1; j < seen.size(); ++j) {
                const QRectF common = seen.at(i).place & seen.at(j).place;
                // What lies within another is part of it, or a field on which there is more to do.
                const bool isPart = common == seen.at(i).place || common == seen.at(j).place;
                if (!(isPart && mayContain) && common.width() > 1 && common.height() > 1) {
                    faults << nameOf(seen.at(j).item) + u' ' + QLatin1String(what) + u' ' + nameOf(seen.at(i).item);
                }
            }
        }
    }

    QVector<seen_t> texts;
    QVector<seen_t> buttons;
    QStringList faults;
    bool isScrolling = false;
};
