// SPDX-License-Identifier: MIT
// Starts the touch panel: its options.
#include "touch_panel.h"

#include <flotrofobul/platform/logs/classlogs.h>

#include <QtCore/QCommandLineParser>
#include <QtCore/QFileInfo>
#include <QtGui/QGuiApplication>

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

    const touch_panel_t panel(QFileInfo(options.positionalArguments().first()).absoluteFilePath(), options.value(id),
                              options.isSet(dark), QLocale(options.value(language)));
    return panel.window() == nullptr ? 1 : QGuiApplication::exec();
}
