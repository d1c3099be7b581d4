// SPDX-License-Identifier: MIT
// A real mosquitto for one test: on a free loopback port, with a configuration of its own.
#pragma once

#include <QtCore/QDeadlineTimer>
#include <QtCore/QProcess>
#include <QtCore/QRandomGenerator>
#include <QtCore/QTemporaryDir>
#include <QtNetwork/QTcpServer>
#include <QtNetwork/QTcpSocket>

#include <csignal>
#include <memory>

/// A port of 127.0.0.1 that nobody listens on at this moment. Not one that the system gives out: somebody's outgoing
/// connection could take it before the broker does, even the attempt to reach the broker itself, which then meets
/// itself.
inline quint16 freePort()
{
    QTcpServer server;
    while (!server.listen(QHostAddress::LocalHost, quint16(QRandomGenerator::global()->bounded(10000, 32768)))) {
    }
    return server.serverPort();
}

/// Starts a mosquitto and ends it with the object. What the broker said is printed when it does not
/// come up, and by dump().
class broker_t {
public:
    /// settings: further lines of its configuration, @port in them is its port. Without a "listener"
    /// line among them it listens on 127.0.0.1 and lets everybody in.
    explicit broker_t(QString settings = QString()) : listenPort(freePort())
    {
        if (!settings.contains(QStringLiteral("listener "))) {
            settings += QStringLiteral("\nlistener @port 127.0.0.1\nallow_anonymous true");
        }
        settings.replace(QStringLiteral("@port"), QString::number(listenPort));
        QFile file(directory.filePath(QStringLiteral("mosquitto.conf")));
        file.open(QIODevice::WriteOnly);
        // As root it would change to a user who cannot read the directory.
        file.write("user root\n" + settings.toUtf8() + '\n');
    }
    ~broker_t() { kill(SIGKILL); }

    /// Starts it, again on the same port after a kill. False when it does not listen within 5 s.
    bool start()
    {
        process = std::make_unique<QProcess>();
        process->setProcessChannelMode(QProcess::MergedChannels);
        process->setStandardOutputFile(directory.filePath(QStringLiteral("output")), QIODevice::Append);
        // Debian installs it outside an ordinary user's path.
        process->start(QStringLiteral("sh"),
                       {QStringLiteral("-c"), QStringLiteral("PATH=$PATH:/usr/sbin; exec mosquitto -c \"$0\""),
                        directory.filePath(QStringLiteral("mosquitto.conf"))});
        const QDeadlineTimer deadline(5000);
        for (process->waitForStarted(); isRunning() && !deadline.hasExpired(); process->waitForFinished(5)) {
            QTcpSocket socket;
            socket.connectToHost(host(), listenPort);
            if (socket.waitForConnected(100)) {
                return true;
            }
        }
        dump();
        return false;
    }
    /// SIGTERM, SIGKILL, SIGSTOP or SIGCONT; waits for the end after the first two.
    void kill(int signal)
    {
        if (isRunning()) {
            ::kill(static_cast<pid_t>(processId()), signal);
            if (signal == SIGTERM || signal == SIGKILL) {
                process->waitForFinished(5000);
            }
        }
    }

    bool isRunning() const { return process && process->state() == QProcess::Running; }
    qint64 processId() const { return process ? process->processId() : 0; }
    QString host() const { return QStringLiteral("127.0.0.1"); }
    quint16 port() const { return listenPort; }
    /// Everything the broker has written since it was started.
    QByteArray output() const
    {
        QFile file(directory.filePath(QStringLiteral("output")));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }
    void dump() const { qWarning("mosquitto on port %d said:\n%s", listenPort, output().constData()); }

private:
    QTemporaryDir directory;
    const quint16 listenPort;
    std::unique_ptr<QProcess> process;
};
