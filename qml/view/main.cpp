// SPDX-License-Identifier: MIT
// flotrofobul-view: the living picture of a house. Options, and the QML of which its face consists.
#include "frames.h"
#include "picture.h"

#include "command.h"
#include "connection/ending.h"

#include <flotrofobul/platform/logs/classlogs.h>

#include <QtCore/QFileInfo>
#include <QtQml/QQmlApplicationEngine>
#include <QtQml/QQmlContext>
#include <QtQml/QQmlFileSelector>
#include <QtQuick/QQuickWindow>
#include <QtWidgets/QApplication>

#include <algorithm>

using namespace comunication;

namespace {

bool isAsked(int argc, char** argv, const QVector<QByteArray>& options)
{
    return std::any_of(argv + 1, argv + argc, [&](const char* argument) { return options.contains(argument); });
}

bool hasDisplay()
{
    return qEnvironmentVariableIsSet("DISPLAY") || qEnvironmentVariableIsSet("WAYLAND_DISPLAY") ||
           qEnvironmentVariableIsSet("QT_QPA_PLATFORM");
}

} // namespace

int main(int argc, char** argv)
{
    // Without a graphics card OpenGL is computed as well, at three times the cost of Qt's own renderer.
    if (!QFileInfo::exists(QStringLiteral("/dev/dri")) && !qEnvironmentVariableIsSet("QT_QUICK_BACKEND")) {
        qputenv("QT_QUICK_BACKEND", "software");
    }
    if (!hasDisplay()) { // Qt would abort
        if (!isAsked(argc, argv, {"-h", "--help", "--help-all", "-v", "--version"})) {
            tools::complain(QStringLiteral("There is no display to show a window on (DISPLAY, WAYLAND_DISPLAY)."));
            return tools::somethingFound;
        }
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0) // where it goes without saying
    QCoreApplication::setAttribute(Qt::AA_EnableHighDpiScaling);
#endif
    QApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("flotrofobul-view"));
    QCoreApplication::setApplicationVersion(QStringLiteral(FLOTROFOBUL_VERSION));
    ::utility::logs::classlogs::getInstance()->setLevel(::utility::logs::fatal);

    QCommandLineParser options;
    options.setApplicationDescription(QStringLiteral(
        "The living picture of a house: brokers and the bridges between them, servers, panels, what they say, what "
        "happens\nand why. It listens and says nothing itself. Several --host or --config show all brokers of a house "
        "at once.\n\n"
        "  flotrofobul-view --host box1 --host box2 --installation house1\n"
        "  flotrofobul-view monday.rec\n\n"
        "Exit codes: 0 closed; 1 no window could be shown; 2 wrong usage."));
    options.addHelpOption();
    options.addVersionOption();
    options.addPositionalArgument(QStringLiteral("RECORDING"),
                                  QStringLiteral("A file of \"flotrofobul record\", in place of brokers."),
                                  QStringLiteral("[RECORDING]"));
    tools::addConnectionOptions(options);
    const QCommandLineOption frames(QStringLiteral("frames"),
                                    QStringLiteral("For those who tune a machine: say each second how many frames were "
                                                   "shown."));
    const QCommandLineOption face(QStringLiteral("face"),
                                  QStringLiteral("For those who change its face: take the QML from here."),
                                  QStringLiteral("DIRECTORY"));
    const QCommandLineOption dark(QStringLiteral("dark"), QStringLiteral("Start with dark colours."));
    options.addOptions({frames, face, dark});
    options.process(application);
    if (options.positionalArguments().size() > 1) {
        tools::complain(QStringLiteral("One recording only: flotrofobul-view RECORDING"));
        return tools::misused;
    }

    view::picture_t picture;
    if (options.positionalArguments().isEmpty()) {
        const auto connections = tools::readConnections(options, tools::installation_t::optional);
        if (!connections) {
            return tools::misused;
        }
        const bool isNamed = options.isSet(QStringLiteral("host")) || options.isSet(QStringLiteral("port")) ||
                             options.isSet(QStringLiteral("config"));
        picture.watch(*connections, !isNamed);
    } else if (!picture.open(options.positionalArguments().at(0))) {
        tools::complain(picture.notice());
        return tools::misused;
    }

    QQmlApplicationEngine engine;
    (new QQmlFileSelector(&engine, &engine))->setExtraSelectors({QStringLiteral("qt%1").arg(QT_VERSION_MAJOR)});
    engine.rootContext()->setContextProperty(QStringLiteral("picture"), &picture);
    engine.rootContext()->setContextProperty(QStringLiteral("startDark"), options.isSet(dark));
    engine.load(options.isSet(face) ? QUrl::fromLocalFile(options.value(face) + QStringLiteral("/main.qml"))
                                    : QUrl(QStringLiteral("qrc:/ui/main.qml")));
    if (engine.rootObjects().isEmpty()) {
        return tools::somethingFound;
    }
    auto* const window = qobject_cast<QQuickWindow*>(engine.rootObjects().first());
    if (options.isSet(frames) && window != nullptr) {
        new view::frames_t(window); // belongs to it
    }
    const tools::ending_t ending(std::chrono::milliseconds::zero());
    QObject::connect(&ending, &tools::ending_t::asked, &application, &QCoreApplication::quit);
    return QApplication::exec();
}
