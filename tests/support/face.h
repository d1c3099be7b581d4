// SPDX-License-Identifier: MIT
// The window of flotrofobul-view where nobody sees it, and what a person does with it: look, click, type.
#pragma once

#include "picture.h"
#include "support/layout_check.h"

#include <QtQml/QQmlApplicationEngine>
#include <QtQml/QQmlContext>
#include <QtQuick/QQuickWindow>
#include <QtTest/QtTest>

#include <memory>

struct face_t {
    std::unique_ptr<comunication::view::picture_t> picture;
    std::unique_ptr<QQmlApplicationEngine> engine;

    /// Opens the window on what is chosen before, as the program does.
    template <typename choice_t>
    void look(const choice_t& choose, bool dark = false)
    {
        close();
        picture = std::make_unique<comunication::view::picture_t>();
        choose(*picture);
        engine = std::make_unique<QQmlApplicationEngine>();
        engine->rootContext()->setContextProperty(QStringLiteral("picture"), picture.get());
        engine->rootContext()->setContextProperty(QStringLiteral("startDark"), dark);
        engine->load(QUrl::fromLocalFile(QStringLiteral(FACE "/main.qml")));
    }
    void close()
    {
        engine.reset();
        picture.reset();
    }

    QQuickWindow* window() const { return qobject_cast<QQuickWindow*>(engine->rootObjects().value(0)); }
    static QQuickItem* find(QQuickItem* item, const QString& name)
    {
        if (item->isVisible() && item->objectName() == name) {
            return item;
        }
        for (QQuickItem* const child : item->childItems()) {
            if (QQuickItem* const found = find(child, name)) {
                return found;
            }
        }
        return nullptr;
    }
    QQuickItem* seen(const QString& name) const { return find(window()->contentItem(), name); }
    QString said(const QString& name) const
    {
        const QQuickItem* const item = seen(name);
        return item == nullptr ? QString() : item->property("text").toString();
    }
    QString presence(const QString& node) const
    {
        const QQuickItem* const item = seen(QStringLiteral("node_") + node);
        return item == nullptr ? QString() : item->property("presence").toString();
    }
    QStringList textsIn(QQuickItem* item) const
    {
        QStringList texts;
        if (item->isVisible() && item->property("contentWidth").isValid()) {
            texts << item->property("text").toString();
        }
        for (QQuickItem* const child : item->childItems()) {
            texts << textsIn(child);
        }
        return texts;
    }
    bool reads(const QString& words, const char* where = nullptr) const
    {
        QQuickItem* const item = where == nullptr ? window()->contentItem() : seen(QLatin1String(where));
        return item != nullptr && textsIn(item).join(QLatin1Char('\n')).contains(words);
    }
    static QPoint placeOf(const QQuickItem* item, double along = 0.5, double down = 0.5)
    {
        return item->mapToScene({item->width() * along, item->height() * down}).toPoint();
    }
    void click(QQuickItem* item, double along = 0.5, double down = 0.5) const
    {
        QTest::mouseClick(window(), Qt::LeftButton, {}, placeOf(item, along, down));
    }
    void press(Qt::Key key, Qt::KeyboardModifiers modifiers = {}) const { QTest::keyClick(window(), key, modifiers); }
    void resize(const QSize& size) const
    {
        QSignalSpy drawn(window(), &QQuickWindow::frameSwapped);
        window()->resize(size);
        window()->update();
        drawn.wait();
    }
    /// What cannot be read at the size of a wall panel and at that of a notebook.
    QString faults() const
    {
        QString all;
        for (const QSize& size : {QSize(800, 480), QSize(1280, 800)}) {
            QTest::mouseMove(window(), {1, 1}); // no tip over anything
            resize(size);
            for (const QString& fault : layout::faults(*window()->contentItem())) {
                all += QStringLiteral("%1 at %2 x %3\n").arg(fault).arg(size.width()).arg(size.height());
            }
        }
        return all;
    }
};
