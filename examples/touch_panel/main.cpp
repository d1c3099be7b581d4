// SPDX-License-Identifier: MIT
// Starts the touch panel: options, language, and the QML of which the panel consists.
#include <flotrofobul/platform/logs/classlogs.h>

#include <QtCore/QCommandLineParser>
#include <QtCore/QFileInfo>
#include <QtCore/QTranslator>
#include <QtGui/QGuiApplication>
#include <QtQml/QQmlApplicationEngine>
#include <QtQml/QQmlContext>

int main(int argc, char** argv)
{
    const QGuiApplication app(argc, argv);
    QCoreApplication::setApplicationVersion(QStringLiteral("1.0.0"));
    QCommandLineParser options;
    options.addHelpOption();
    options.addPositionalArgument(QStringLiteral("configuration"), QStringLiteral("Configuration file (JSON)."));
    const QCommandLineOption id(QStringLiteral("id"), QStringLiteral("Client id."), QStringLiteral("id"));
    const QCommandLineOption language(QStringLiteral("language"), QStringLiteral("de or en; default: the system's."),
                                      QStringLiteral("language"), QLocale::system().name());
    const QCommandLineOption dark(QStringLiteral("dark"), QStringLiteral("Start with dark colours."));
    options.addOptions({id, language, dark});
    options.process(app);
    if (options.positionalArguments().size() != 1) {
        options.showHelp(2);
    }
    ::utility::logs::classlogs::getInstance()->setLevel(::utility::logs::warning);

    const QLocale locale(options.value(language));
    QLocale::setDefault(locale);
    QTranslator translator;
    if (translator.load(locale, QStringLiteral("touch_panel"), QStringLiteral("_"), QStringLiteral(":/translations"))) {
        QCoreApplication::installTranslator(&translator);
    }

    QQmlApplicationEngine engine;
    engine.addImportPath(QStringLiteral(QML_IMPORT_PATH)); // from a source tree
    QQmlContext* const context = engine.rootContext();
    context->setContextProperty(QStringLiteral("houseConfiguration"),
                                QFileInfo(options.positionalArguments().first()).absoluteFilePath());
    context->setContextProperty(QStringLiteral("houseClientId"), options.value(id));
    context->setContextProperty(QStringLiteral("startDark"), options.isSet(dark));
    engine.load(QUrl(QStringLiteral("qrc:/main.qml")));
    return engine.rootObjects().isEmpty() ? 1 : QGuiApplication::exec();
}
