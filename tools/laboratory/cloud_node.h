// SPDX-License-Identifier: MIT
// A node of ejabberd in a cluster on loopback, as a process.
#pragma once

#include <flotrofobul/testkit/broker.h>
#include <flotrofobul/testkit/waiting.h>

#include <QtCore/QDir>

#include <cstdio>

using comunication::testkit::broker_t;
using comunication::testkit::child_t;
using comunication::testkit::freePort;
using comunication::testkit::until;

/// A node of the cluster, with a disk of its own.
class cloud_node_t {
public:
    cloud_node_t(int number, const QString& directory, quint16 givenMapper, const QString& givenCookie)
        : port(freePort()), name(QStringLiteral("cloud%1@127.0.0.1").arg(number)), mapper(givenMapper),
          cookie(givenCookie), home(directory + QStringLiteral("/node%1").arg(number))
    {
        QDir().mkpath(home + QStringLiteral("/spool"));
        QFile file(home + QStringLiteral("/ejabberd.yml"));
        file.open(QIODevice::WriteOnly);
        file.write(QStringLiteral(R"(hosts: ["house"]
loglevel: warning
acme: {auto: false}
auth_method: internal
auth_password_format: plain
listen:
  - {port: %1, ip: "127.0.0.1", module: mod_mqtt, backlog: 4000}
access_rules:
  everybody: {allow: all}
modules:
  mod_mqtt:
    access_publish: {"+/local/%u/#": everybody}
    access_subscribe: {"+/local/%u/#": everybody}
)")
                       .arg(port)
                       .toUtf8());
    }

    ~cloud_node_t() { kill(); }
    cloud_node_t(const cloud_node_t&) = delete;
    cloud_node_t& operator=(const cloud_node_t&) = delete;

    /// eval: what the node does when it is up, in Erlang; it says "done" then.
    bool start(const QString& eval)
    {
        process = std::make_unique<child_t>();
        process->setProcessChannelMode(QProcess::MergedChannels);
        process->setWorkingDirectory(home + QStringLiteral("/spool"));
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("HOME"), home);
        environment.insert(QStringLiteral("ERL_LIBS"), qEnvironmentVariable("EJABBERD_LIBRARIES"));
        environment.insert(QStringLiteral("ERL_EPMD_PORT"), QString::number(mapper));
        environment.insert(QStringLiteral("EJABBERD_CONFIG_PATH"), home + QStringLiteral("/ejabberd.yml"));
        environment.insert(QStringLiteral("EJABBERD_LOG_PATH"), home + QStringLiteral("/ejabberd.log"));
        process->setProcessEnvironment(environment);
        process->start(QStringLiteral("erl"),
                       {QStringLiteral("-noinput"), QStringLiteral("-start_epmd"), QStringLiteral("false"),
                        QStringLiteral("-name"), name, QStringLiteral("-setcookie"), cookie, QStringLiteral("-kernel"),
                        QStringLiteral("inet_dist_use_interface"), QStringLiteral("{127,0,0,1}"), QStringLiteral("+P"),
                        QStringLiteral("250000"), QStringLiteral("-mnesia"), QStringLiteral("dir"),
                        QStringLiteral("\"%1/spool\"").arg(home), QStringLiteral("-s"), QStringLiteral("ejabberd"),
                        QStringLiteral("-eval"), eval + QStringLiteral(" io:format(\"done~n\").")});
        QByteArray words;
        const bool done = until(
            [&] {
                words += process->readAll();
                return words.contains("\ndone") || words.startsWith("done");
            },
            std::chrono::seconds(30));
        if (!done) {
            std::fprintf(stderr, "%s\n", words.constData());
        }
        return done;
    }
    void kill()
    {
        if (process) {
            process->signal(SIGKILL);
            process->waitForFinished();
        }
    }

    int residentKib() const
    {
        QFile file(QStringLiteral("/proc/%1/statm").arg(process->processId()));
        return file.open(QIODevice::ReadOnly) ? file.readAll().split(' ').value(1).toInt() * 4 : 0;
    }
    double processorSeconds() const
    {
        QFile file(QStringLiteral("/proc/%1/stat").arg(process->processId()));
        if (!file.open(QIODevice::ReadOnly)) {
            return 0;
        }
        const QByteArray text = file.readAll();
        const QList<QByteArray> words = text.mid(text.lastIndexOf(')') + 2).split(' ');
        return (words.value(11).toDouble() + words.value(12).toDouble()) / static_cast<double>(::sysconf(_SC_CLK_TCK));
    }

    const quint16 port;
    const QString name;

private:
    const quint16 mapper;
    const QString cookie;
    const QString home;
    std::unique_ptr<child_t> process;
};
