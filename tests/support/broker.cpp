// SPDX-License-Identifier: MIT
#include "broker.h"

#include <QtCore/QDeadlineTimer>
#include <QtCore/QFile>
#include <QtCore/QRandomGenerator>
#include <QtCore/QStandardPaths>
#include <QtNetwork/QTcpServer>
#include <QtNetwork/QTcpSocket>

#include <signal.h>

namespace {

QString executable()
{
    const QString found = QStandardPaths::findExecutable(QStringLiteral("mosquitto"));
    // Debian installs it outside an ordinary user's path.
    return found.isEmpty() ? QStandardPaths::findExecutable(QStringLiteral("mosquitto"), {QStringLiteral("/usr/sbin")})
                           : found;
}

} // namespace

// Not one that the system gives out: somebody's outgoing connection could take it before the broker does, even the
// attempt to reach the broker itself, which then meets itself.
quint16 freePort()
{
    QTcpServer server;
    while (!server.listen(QHostAddress::LocalHost, quint16(QRandomGenerator::global()->bounded(10000, 32768)))) {
    }
    return server.serverPort();
}

broker_t::broker_t(const QString& settings) : settings(settings), listenPort(freePort())
{}

broker_t::~broker_t()
{
    if (isRunning()) {
        ::kill(static_cast<pid_t>(processId()), SIGCONT);
        kill(SIGTERM);
    }
}

bool broker_t::start()
{
    const QString path = directory.filePath(QStringLiteral("mosquitto.conf"));
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        return false;
    }
    // As root it would change to a user who cannot read the directory.
    QString text = QStringLiteral("user root\n") + settings + QLatin1Char('\n');
    if (!settings.contains(QStringLiteral("listener "))) {
        text += QStringLiteral("listener %1 127.0.0.1\nallow_anonymous true\n").arg(listenPort);
    }
    file.write(text.replace(QStringLiteral("@port"), QString::number(listenPort)).toUtf8());
    file.close();

    process = std::make_unique<QProcess>();
    process->setProcessChannelMode(QProcess::MergedChannels);
    process->setStandardOutputFile(directory.filePath(QStringLiteral("output")), QIODevice::Append);
    process->start(executable(), {QStringLiteral("-c"), path});
    const QDeadlineTimer deadline(5000);
    process->waitForStarted(5000);
    while (isRunning() && !deadline.hasExpired()) {
        if (listens()) {
            return true;
        }
        process->waitForFinished(5);
    }
    qWarning("mosquitto did not come up on port %d", listenPort);
    dump();
    return false;
}

bool broker_t::listens() const
{
    QTcpSocket socket;
    socket.connectToHost(host(), listenPort);
    return socket.waitForConnected(100);
}

void broker_t::kill(int signal)
{
    if (!isRunning()) {
        return;
    }
    ::kill(static_cast<pid_t>(processId()), signal);
    if ((signal == SIGTERM || signal == SIGKILL) && !process->waitForFinished(3000)) {
        process->kill();
        process->waitForFinished(3000);
    }
}

QByteArray broker_t::output() const
{
    QFile file(directory.filePath(QStringLiteral("output")));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void broker_t::dump() const
{
    qWarning("mosquitto said:\n%s", output().constData());
}
