// SPDX-License-Identifier: MIT
#include "touch_panel.h"

#include <QtCore/QCoreApplication>
#include <QtQml/QQmlContext>

touch_panel_t::touch_panel_t(const QString& configuration, const QString& clientId, bool dark, const QLocale& locale)
{
    setLanguage(locale);
    engine.addImportPath(QStringLiteral(QML_IMPORT_PATH)); // from a source tree
    QQmlContext* const context = engine.rootContext();
    context->setContextProperty(QStringLiteral("houseConfiguration"), configuration);
    context->setContextProperty(QStringLiteral("houseClientId"), clientId);
    context->setContextProperty(QStringLiteral("startDark"), dark);
    engine.load(QUrl(QStringLiteral("qrc:/main.qml")));
}

touch_panel_t::~touch_panel_t()
{
    QCoreApplication::removeTranslator(&translator);
}

void touch_panel_t::setLanguage(const QLocale& locale)
{
    QLocale::setDefault(locale);
    QCoreApplication::removeTranslator(&translator);
    if (translator.load(locale, QStringLiteral("touch_panel"), QStringLiteral("_"), QStringLiteral(":/translations"))) {
        QCoreApplication::installTranslator(&translator);
    }
    engine.retranslate();
}
