// SPDX-License-Identifier: MIT
// The window of the touch panel and what its QML needs; without the options of a program.
#pragma once

#include <QtCore/QLocale>
#include <QtCore/QTranslator>
#include <QtQml/QQmlApplicationEngine>

class touch_panel_t {
public:
    touch_panel_t(const QString& configuration, const QString& clientId, bool dark, const QLocale& locale);
    ~touch_panel_t();

    /// Texts and numbers, at once.
    void setLanguage(const QLocale& locale);
    /// A QQuickWindow; none if it could not be made, and Qt has said why.
    QObject* window() const { return engine.rootObjects().value(0); }

private:
    QTranslator translator;
    QQmlApplicationEngine engine;
};
