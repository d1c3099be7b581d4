// SPDX-License-Identifier: MIT
// flotrofobul doctor: from the configuration to the answer of the master, step by step.
#include "command.h"
#include "doctor/configuration.h"
#include "doctor/judgement.h"
#include "watch/packet_lines.h"

#include <QtCore/QJsonDocument>

namespace comunication {
namespace tools {

namespace {

const char description[] =
    "Goes from the configuration to the answer of the master, step by step, and says what is fine and what is wrong, "
    "why\n"
    "it is thought so, and what to do: configuration, name, TCP, TLS, credentials, client id, access lists (own "
    "echo),\n"
    "installation id, masters and who follows them, client ids, encoding, bridges, clocks, retained status, broker.\n\n"
    "It listens, publishes harmless probes and presents itself as a client, which servers answer; at the end it takes\n"
    "leave. What comes seldom, such as two nodes with one client id, it finds when it listens longer (--time 60).\n\n"
    "Exit codes: 0 nothing is wrong; 1 something is; 2 wrong usage.";

int tell(const diagnosis_t& diagnosis, bool json)
{
    if (json) {
        say(QString::fromUtf8(harmlessJson(QJsonDocument(diagnosis.json()).toJson(QJsonDocument::Indented))).trimmed());
    } else {
        say(diagnosis.words().join(u'\n'));
    }
    return diagnosis.isFine() ? allFine : somethingFound;
}

} // namespace

int runDoctor(const QStringList& arguments)
{
    QCommandLineParser options;
    options.setApplicationDescription(QString::fromLatin1(description));
    const QCommandLineOption id(QStringLiteral("id"),
                                QStringLiteral("Join with the client id of a host that does not run at the moment."),
                                QStringLiteral("ID"));
    const QCommandLineOption time(QStringLiteral("time"), QStringLiteral("How long to listen; default 5."),
                                  QStringLiteral("seconds"), QStringLiteral("5"));
    const QCommandLineOption json(QStringLiteral("json"), QStringLiteral("Print the result as JSON."));
    options.addOptions({id, time, json});
    addConnectionOptions(options);
    if (const auto code = readOptions(options, arguments)) {
        return *code;
    }
    bool isNumber = false;
    const double seconds = options.value(time).toDouble(&isNumber);
    if (!isNumber || seconds < 1 || seconds > 3600 || !options.positionalArguments().isEmpty()) {
        complain(options.positionalArguments().isEmpty() ? QStringLiteral("--time takes 1 to 3600 seconds.")
                                                         : QStringLiteral("doctor takes options only; see --help."));
        return misused;
    }
    diagnosis_t diagnosis;
    if (options.isSet(QStringLiteral("config"))) {
        const auto file = readConfiguration(options.value(QStringLiteral("config")), diagnosis);
        if (!file || !examineConfiguration(*file, diagnosis) || !diagnosis.isFine()) {
            return tell(diagnosis, options.isSet(json));
        }
    }
    const auto connection = readConnection(options, installation_t::needed);
    if (!connection) {
        return misused;
    }
    examination_t examination(*connection, options.value(id),
                              std::chrono::milliseconds(static_cast<int>(seconds * 1000)));
    QObject::connect(&examination, &examination_t::finished, qApp, &QCoreApplication::quit, Qt::QueuedConnection);
    QTimer::singleShot(0, &examination, &examination_t::start);
    QCoreApplication::exec();
    if (judgeLink(examination.result(), *connection, diagnosis)) {
        judgeHouse(examination.result(), *connection, diagnosis);
    }
    return tell(diagnosis, options.isSet(json));
}

} // namespace tools
} // namespace comunication
