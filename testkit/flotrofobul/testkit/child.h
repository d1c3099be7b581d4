// SPDX-License-Identifier: MIT
// Processes that end with this one, whatever ends it, and files for them that leave nothing on the disk.
#pragma once

#include <QtCore/QFile>
#include <QtCore/QProcess>

#include <csignal>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <unistd.h>

namespace comunication {
namespace testkit {

/// A process that is killed when its parent ends, also while it is stopped. Start it on the main thread: it ends with
/// the thread that has started it.
class child_t : public QProcess {
public:
    explicit child_t(QObject* parent = nullptr) : QProcess(parent)
    {
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
        setChildProcessModifier([this] { endWithParent(); });
#endif
    }

    /// Any signal, at once; also SIGSTOP and SIGCONT.
    void signal(int number) const
    {
        if (state() != QProcess::NotRunning) {
            ::kill(static_cast<pid_t>(processId()), number);
        }
    }

#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
protected:
    void setupChildProcess() override
    {
        endWithParent();
    }
#endif

private:
    void endWithParent() const
    {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (::getppid() != parentId) {
            ::_exit(1); // it has ended before the line above
        }
    }

    const pid_t parentId = ::getpid();
};

/// A file in memory that other processes of this user open by its path, as long as the object lives.
class memory_file_t {
public:
    explicit memory_file_t(const QByteArray& content = QByteArray()) : descriptor(::memfd_create("file", MFD_CLOEXEC))
    {
        write(content);
    }
    ~memory_file_t() { ::close(descriptor); }
    memory_file_t(const memory_file_t&) = delete;
    memory_file_t& operator=(const memory_file_t&) = delete;

    QString path() const { return QStringLiteral("/proc/%1/fd/%2").arg(::getpid()).arg(descriptor); }
    QByteArray read() const
    {
        QFile file(path());
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }
    /// Replaces what it holds.
    void write(const QByteArray& content)
    {
        QFile file(path());
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(content) != content.size()) {
            qFatal("no memory for a file");
        }
    }

private:
    const int descriptor;
};

} // namespace testkit
} // namespace comunication
