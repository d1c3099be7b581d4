// SPDX-License-Identifier: MIT
// A real mosquitto for one test: on a free loopback port, with a configuration of its own.
#pragma once

#include <QtCore/QProcess>
#include <QtCore/QString>
#include <QtCore/QTemporaryDir>

#include <memory>

/// A port of 127.0.0.1 that nobody listens on at this moment.
quint16 freePort();

/// Starts a mosquitto and ends it with the object. What the broker said is printed when it does not
/// come up, and by dump().
class broker_t {
public:
    /// settings: further lines of its configuration. Without a "listener" line among them it listens
    /// on 127.0.0.1:port() and lets everybody in.
    explicit broker_t(const QString& settings = QString());
    ~broker_t();
    broker_t(const broker_t&) = delete;
    broker_t& operator=(const broker_t&) = delete;

    /// Starts it, again on the same port after a kill. False when it does not listen within 5 s.
    bool start();
    /// SIGTERM, SIGKILL, SIGSTOP or SIGCONT; waits for the end after the first two.
    void kill(int signal);

    bool isRunning() const { return process && process->state() == QProcess::Running; }
    qint64 processId() const { return process ? process->processId() : 0; }
    QString host() const { return QStringLiteral("127.0.0.1"); }
    quint16 port() const { return listenPort; }
    /// Everything the broker has written since it was started.
    QByteArray output() const;
    void dump() const;

private:
    bool listens() const;

    QTemporaryDir directory;
    QString settings;
    quint16 listenPort = 0;
    std::unique_ptr<QProcess> process;
};
