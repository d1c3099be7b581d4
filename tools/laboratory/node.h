// SPDX-License-Identifier: MIT
// A server or a panel as a process of its own: what it says of itself, and what can be done to it.
#pragma once

#include <flotrofobul/testkit/child.h>

#include <QtCore/QJsonObject>
#include <QtCore/QStringList>

#include <memory>

using comunication::testkit::child_t;
using comunication::testkit::memory_file_t;

/// Runs "program arguments", again after an end. Its lines that are JSON objects are its events; those named "state"
/// say whom it follows. Lives on the main thread.
class node_t : public QObject {
    Q_OBJECT

public:
    node_t(const QString& name, const QString& program, const QStringList& arguments);
    ~node_t() override { kill(); }

    void start();
    /// At once, without a last word.
    void kill();
    void freeze();
    void proceed();
    /// A line on its standard input.
    void say(const QString& words);

    bool isRunning() const { return process && process->state() != QProcess::NotRunning; }
    bool isFrozen() const { return frozen; }
    bool isMaster() const { return master == name; }
    /// In words.
    QString thought() const;
    /// The last lines of its standard error.
    QString lastWords() const;

    const QString name;
    // What it has said last.
    QString master;
    bool linked = false;
    bool ready = false;

Q_SIGNALS:
    void told(const QJsonObject& event);
    /// Not by kill().
    void ended(int status);

private:
    void read();
    void forget();

    const QString program;
    const QStringList arguments;
    memory_file_t complaints;
    std::unique_ptr<child_t> process;
    bool frozen = false;
};
