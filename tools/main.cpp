// SPDX-License-Identifier: MIT
// The command for whoever looks after a house: finds the subcommand and lets it run.
#include "command.h"

#include <flotrofobul/platform/logs/classlogs.h>

using namespace comunication::tools;

namespace {

constexpr subcommand_t subcommands[] = {
    {"doctor", "looks for what is wrong, from the configuration to the answer of the master", runDoctor},
    {"ask", "asks the master, and prints what it answers", runAsk},
    {"send", "sends a packet to the master, and prints what it answers", runSend},
    {"serve", "is a server that answers from a file", runServe},
    {"panel", "is one or many panels that say what they see", runPanel},
    {"bridges", "writes the bridges between the brokers of a house, or tries them", runBridges},
    {"watch", "listens to a house: who is there, who is master, every packet", runWatch},
    {"record", "writes every packet of a house to a file", runRecord},
    {"replay", "says the packets of a recording again, at another broker", runReplay},
};

QString usage()
{
    QString text = QStringLiteral("Usage: flotrofobul SUBCOMMAND [options]\n\nSubcommands, each with --help:\n");
    for (const subcommand_t& subcommand : subcommands) {
        text +=
            QStringLiteral("  %1 %2\n").arg(QLatin1String(subcommand.name), -12).arg(QLatin1String(subcommand.summary));
    }
    return text +
           QStringLiteral("\nOptions:\n  -h, --help     this text\n  -v, --version  the version of the library\n\n"
                          "Exit codes: 0 all is fine; 1 something was found or refused; 2 wrong usage.");
}

/// The code that a run ends with.
int ended(int code)
{
    if (resultIsLost) {
        complain(QStringLiteral("Standard output cannot be written."));
    }
    return resultIsLost && code == allFine ? static_cast<int>(somethingFound) : code;
}

} // namespace

int main(int argc, char** argv)
{
    qputenv("QT_NO_GLIB", "1"); // nobody here needs its event loop, which costs more than Qt's own
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("flotrofobul"));
    QCoreApplication::setApplicationVersion(QStringLiteral(FLOTROFOBUL_VERSION));
    // What matters is said in each subcommand's own words; FLOTROFOBUL_LOG_LEVEL brings the library's log back.
    ::utility::logs::classlogs::getInstance()->setLevel(::utility::logs::fatal);

    const QStringList arguments = QCoreApplication::arguments().mid(1);
    const QString first = arguments.value(0);
    for (const subcommand_t& subcommand : subcommands) {
        if (first == QLatin1String(subcommand.name)) {
            return ended(subcommand.run(arguments));
        }
    }
    if (first == QLatin1String("--help") || first == QLatin1String("-h")) {
        say(usage());
        return ended(allFine);
    }
    if (first == QLatin1String("--version") || first == QLatin1String("-v")) {
        say(QStringLiteral("flotrofobul ") + QCoreApplication::applicationVersion());
        return ended(allFine);
    }
    if (!first.isEmpty()) {
        complain(QStringLiteral("There is no subcommand \"%1\".\n").arg(first));
    }
    complain(usage());
    return misused;
}
