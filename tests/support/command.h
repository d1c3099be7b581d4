// SPDX-License-Identifier: MIT
// The command flotrofobul as a process, and what its tests need beside it.
#pragma once

#include "support/log_recorder.h"

#include <flotrofobul/testkit/child.h>

#include <QtTest/QtTest>

#include <algorithm>

using comunication::testkit::child_t;

/// A run of the command; its words come together.
class run_t : public child_t {
public:
    explicit run_t(const QStringList& arguments)
    {
        setProcessChannelMode(QProcess::MergedChannels);
        start(QStringLiteral(FLOTROFOBUL_COMMAND), arguments);
    }
    ~run_t() override
    {
        terminate();
        waitForFinished();
    }
    /// Waits until it has said that.
    bool says(const QString& words)
    {
        return QTest::qWaitFor([&] { return (said += QString::fromUtf8(readAll())).contains(words); }, 10000) ||
               (qWarning() << said, false);
    }
    /// Waits for the end.
    int code()
    {
        waitForFinished();
        return exitCode();
    }
    QString text()
    {
        waitForFinished();
        return said += QString::fromUtf8(readAll());
    }

private:
    QString said;
};

inline QString writeFile(const QString& path, const QByteArray& text)
{
    QFile file(path);
    file.open(QIODevice::WriteOnly);
    file.write(text);
    return path;
}

/// What semicolons separate in a cell of a table.
inline QStringList parts(const QString& cell)
{
    QStringList list = cell.split(u';', Qt::SkipEmptyParts);
    std::transform(list.begin(), list.end(), list.begin(), [](const QString& part) { return part.trimmed(); });
    return list;
}
