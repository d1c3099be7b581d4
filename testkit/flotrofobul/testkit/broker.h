// SPDX-License-Identifier: MIT
// A real mosquitto: on a free loopback port, with a configuration of its own.
#pragma once

#include <flotrofobul/testkit/child.h>

#include <QtCore/QDeadlineTimer>
#include <QtCore/QRandomGenerator>
#include <QtNetwork/QTcpServer>
#include <QtNetwork/QTcpSocket>

#include <memory>

namespace comunication {
namespace testkit {

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
    /// settings: as for configure().
    explicit broker_t(const QString& settings = QString()) : listenPort(freePort()) { configure(settings); }
    ~broker_t() { kill(SIGKILL); }

    /// Further lines of its configuration for the next start, "@port" in them is its port. Without a "listener"
    /// line among them it listens on 127.0.0.1 and lets everybody in.
    void configure(QString settings)
    {
        if (!settings.contains(QStringLiteral("listener "))) {
            settings += QStringLiteral("\nlistener @port 127.0.0.1\nallow_anonymous true");
        }
        settings.replace(QStringLiteral("@port"), QString::number(listenPort));
        // As root it would change to another user, and lose the signal that ends it with its parent.
        configuration.write("user root\n" + settings.toUtf8() + '\n');
    }

    /// Starts it, again on the same port after a kill. False when it does not listen within 5 s.
    bool start()
    {
        process = std::make_unique<child_t>();
        process->setProcessChannelMode(QProcess::MergedChannels);
        process->setStandardOutputFile(words.path(), QIODevice::Append);
        // Debian installs it outside an ordinary user's path.
        process->start(QStringLiteral("sh"),
                       {QStringLiteral("-c"), QStringLiteral("PATH=$PATH:/usr/sbin; exec mosquitto -c \"$0\""),
                        configuration.path()});
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
            process->signal(signal);
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
    QByteArray output() const { return words.read(); }
    void dump() const { qWarning("mosquitto on port %d said:\n%s", listenPort, output().constData()); }

private:
    const quint16 listenPort;
    memory_file_t configuration;
    memory_file_t words;
    std::unique_ptr<child_t> process;
};

} // namespace testkit
} // namespace comunication
