// SPDX-License-Identifier: MIT
// What both example hosts share: a line for each event, common options, and a clean end.
#pragma once

#include <flotrofobul/platform/logs/classlogs.h>
#include <flotrofobul/protobase_t.h>

#include <QtCore/QCommandLineParser>
#include <QtCore/QCoreApplication>
#include <QtCore/QSocketNotifier>
#include <QtCore/QTextStream>
#include <QtCore/QTimer>

#include <sys/signalfd.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>

/// Writes an event to standard output, unbuffered even into a pipe.
inline void say(const QString& line)
{
    QTextStream(stdout) << line << Qt::endl;
}

inline QString compact(const QJsonValue& value)
{
    return QString::fromUtf8(QJsonDocument(value.toObject()).toJson(QJsonDocument::Compact));
}

/// Adds the common options to a host's own and reads the command line.
inline void readOptions(QCommandLineParser& options, const QList<QCommandLineOption>& own)
{
    options.addHelpOption();
    options.addPositionalArgument(QStringLiteral("configuration"), QStringLiteral("Configuration file (JSON)."));
    options.addOptions(
        {{QStringLiteral("id"), QStringLiteral("Client id; default: role and host name."), QStringLiteral("id")},
         {QStringLiteral("log"), QStringLiteral("Highest level of the log, 0 to 7; default 3."),
          QStringLiteral("level"), QStringLiteral("3")}});
    options.addOptions(own);
    options.process(*QCoreApplication::instance());

    const QStringList files = options.positionalArguments();
    if (files.size() != 1) {
        options.showHelp(2);
    }
    ::utility::logs::classlogs::getInstance()->setLevel(options.value(QStringLiteral("log")).toInt());
}

/// Ends the program if the engine has no configuration: on the defaults it would join whatever broker this machine has,
/// in no installation. The log says what is wrong with the file.
inline void requireConfiguration(const comunication::protobase_t& engine)
{
    if (!engine.isConfigured()) {
        qCritical("No configuration, no house: ending");
        std::exit(2);
    }
}

/// Reports what happens to the link.
inline void followLink(comunication::protobase_t& engine)
{
    using comunication::protobase_t;
    QObject::connect(&engine, &protobase_t::onLinkProblem, &engine, [](const QString& reason) {
        if (!reason.isEmpty()) {
            say(reason);
        }
    });
    QObject::connect(&engine, &protobase_t::onBrokerConnection, &engine, [](int rc) {
        say(rc == 0 ? QStringLiteral("connected to the broker") : QStringLiteral("the broker refuses: %1").arg(rc));
    });
    QObject::connect(&engine, &protobase_t::onBrokerDisconnection, &engine,
                     [](int rc) { say(QStringLiteral("link to the broker closed (%1)").arg(rc)); });
}

/// Ends the host on SIGINT and SIGTERM: the last will tells the other nodes, which takes a second. A second signal ends
/// it at once.
inline void endOnSignal(comunication::protobase_t& engine)
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    const int descriptor = signalfd(-1, &signals, SFD_CLOEXEC);
    auto* const notifier = new QSocketNotifier(descriptor, QSocketNotifier::Read, &engine);
    QObject::connect(notifier, &QSocketNotifier::activated, &engine, [=, &engine] {
        signalfd_siginfo info;
        if (read(descriptor, &info, sizeof info) < 0) {
            return;
        }
        notifier->setEnabled(false);
        sigprocmask(SIG_UNBLOCK, &signals, nullptr);
        say(QStringLiteral("ending"));
        using namespace std::chrono_literals;
        const bool linked = engine.getConnected();
        QObject::connect(&engine, &comunication::protobase_t::onBrokerDisconnection, qApp, &QCoreApplication::quit);
        QTimer::singleShot(linked ? 2s : 0s, qApp, &QCoreApplication::quit);
        engine.disconnection(true);
    });
}
