// SPDX-License-Identifier: MIT
#include "laboratory/node.h"

#include <QtCore/QJsonDocument>

node_t::node_t(const QString& givenName, const QString& givenProgram, const QStringList& givenArguments)
    : name(givenName), program(givenProgram), arguments(givenArguments)
{}

void node_t::start()
{
    if (isRunning()) {
        return;
    }
    process = std::make_unique<child_t>();
    process->setStandardErrorFile(complaints.path(), QIODevice::Append);
    connect(process.get(), &QProcess::readyReadStandardOutput, this, &node_t::read);
    connect(process.get(), qOverload<int, QProcess::ExitStatus>(&QProcess::finished), this,
            [this](int status, QProcess::ExitStatus how) {
                forget();
                Q_EMIT ended(how == QProcess::NormalExit ? status : -1);
            });
    process->start(program, arguments);
}

void node_t::kill()
{
    if (process) {
        process->disconnect(this);
        process->signal(SIGKILL);
        process->waitForFinished(5000);
    }
    forget();
}

void node_t::freeze()
{
    if (isRunning()) {
        frozen = true;
        process->signal(SIGSTOP);
    }
}

void node_t::proceed()
{
    frozen = false;
    if (process) {
        process->signal(SIGCONT);
    }
}

void node_t::say(const QString& words)
{
    if (isRunning()) {
        process->write(words.toUtf8() + '\n');
    }
}

void node_t::read()
{
    while (process->canReadLine()) {
        const QJsonObject event = QJsonDocument::fromJson(process->readLine()).object();
        if (event[u"event"] == QStringLiteral("state")) {
            linked = event[u"linked"].toBool();
            master = event[u"master"].toString();
            ready = event[u"ready"].toBool();
        }
        if (!event.isEmpty()) {
            Q_EMIT told(event);
        }
    }
}

void node_t::forget()
{
    frozen = linked = ready = false;
    master.clear();
}

QString node_t::thought() const
{
    if (!isRunning()) {
        return QStringLiteral("is off");
    }
    QString text = linked ? QString() : QStringLiteral("has no link, ");
    if (master.isEmpty()) {
        text += QStringLiteral("knows no master");
    } else {
        text += isMaster() ? QStringLiteral("is master") : QStringLiteral("follows ") + master;
    }
    return text + (ready ? QStringLiteral(" and is ready") : QString()) +
           (frozen ? QStringLiteral(" (frozen)") : QString());
}

QString node_t::lastWords() const
{
    constexpr int most = 12;
    const QStringList lines = QString::fromUtf8(complaints.read()).split(u'\n', Qt::SkipEmptyParts);
    return lines.mid(std::max<int>(0, lines.size() - most)).join(u'\n');
}
