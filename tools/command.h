// SPDX-License-Identifier: MIT
// What the subcommands of flotrofobul share: how they are called, what their exit codes say, where words go.
#pragma once

#include <QtCore/QCommandLineParser>
#include <QtCore/QCoreApplication>
#include <QtCore/QRegularExpression>
#include <QtCore/QStringList>
#include <QtCore/QTextStream>

#include <cerrno>
#include <cstdio>
#include <optional>

namespace comunication {
namespace tools {

/// Exit codes.
enum exit_t {
    allFine = 0,
    somethingFound = 1, ///< a fault, a refusal
    misused = 2,        ///< unknown options, a file that cannot be read
};

struct subcommand_t {
    const char* name;
    const char* summary;
    int (*run)(const QStringList& arguments); ///< arguments as of a program, the name first
};

int runAsk(const QStringList& arguments);
int runBridges(const QStringList& arguments);
int runDoctor(const QStringList& arguments);
int runPanel(const QStringList& arguments);
int runRecord(const QStringList& arguments);
int runReplay(const QStringList& arguments);
int runSend(const QStringList& arguments);
int runServe(const QStringList& arguments);
int runWatch(const QStringList& arguments);

/// Whether a result is lost, as on a full disk; that nobody reads on, as behind "head", is no loss.
inline bool resultIsLost = false;

/// A result, to standard output.
inline void say(const QString& line)
{
    errno = 0;
    QTextStream(stdout) << line << Qt::endl;
    resultIsLost = resultIsLost || (std::ferror(stdout) != 0 && errno != 0 && errno != EPIPE);
}

/// Words for the person at the terminal, to standard error.
inline void complain(const QString& line)
{
    QTextStream(stderr) << line << Qt::endl;
}

/// Reads a subcommand's options, with --help; nothing when the subcommand is to go on, otherwise the exit code.
inline std::optional<int> readOptions(QCommandLineParser& options, const QStringList& arguments)
{
    const QCommandLineOption help({QStringLiteral("h"), QStringLiteral("help")}, QStringLiteral("This text."));
    options.addOption(help);
    if (!options.parse(arguments)) {
        complain(QStringLiteral("%1: see \"flotrofobul %2 --help\".")
                     .arg(options.errorText().remove(QRegularExpression(QStringLiteral("\\.$"))), arguments.value(0)));
        return misused;
    }
    if (options.isSet(help)) {
        const QString name = arguments.value(0);
        const QRegularExpression usage(QStringLiteral("^Usage: \\S+ \\[options\\](?: %1\\b)?").arg(name));
        say(options.helpText().replace(usage, QStringLiteral("Usage: flotrofobul %1 [options]").arg(name)).trimmed());
        return allFine;
    }
    return std::nullopt;
}

} // namespace tools
} // namespace comunication
