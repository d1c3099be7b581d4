// SPDX-License-Identifier: MIT
#include "connection/ending.h"

#include "command.h"

#include <QtCore/QSocketNotifier>
#include <QtCore/QTimer>

#include <csignal>

#include <fcntl.h>
#include <unistd.h>

namespace comunication {
namespace tools {

namespace {

constexpr int signalsToEnd[] = {SIGINT, SIGTERM, SIGHUP};
const QString timeOption = QStringLiteral("time");

volatile std::sig_atomic_t noteTo = -1;

// Only what is allowed in a signal handler.
void noteSignal(int number)
{
    const char byte = static_cast<char>(number);
    if (::write(noteTo, &byte, 1) != 1) {
        ::_exit(128 + number);
    }
    std::signal(number, SIG_DFL);
}

} // namespace

void addTimeOption(QCommandLineParser& options)
{
    options.addOption({timeOption, QStringLiteral("End after this time."), QStringLiteral("SECONDS")});
}

std::optional<std::chrono::milliseconds> readTime(const QCommandLineParser& options)
{
    bool isNumber = false;
    const double seconds = options.value(timeOption).toDouble(&isNumber);
    if (!options.isSet(timeOption)) {
        return std::chrono::milliseconds(0);
    }
    if (!isNumber || !(seconds >= 0.1 && seconds <= 1e6)) {
        complain(QStringLiteral("--time takes 0.1 to 1000000 seconds, not \"%1\".").arg(options.value(timeOption)));
        return std::nullopt;
    }
    return std::chrono::milliseconds(static_cast<qint64>(seconds * 1000));
}

ending_t::ending_t(std::chrono::milliseconds limit)
{
    if (::pipe2(ends, O_CLOEXEC) == 0) {
        noteTo = ends[1];
        notifier = std::make_unique<QSocketNotifier>(ends[0], QSocketNotifier::Read);
        connect(notifier.get(), &QSocketNotifier::activated, this, [this] {
            notifier->setEnabled(false);
            Q_EMIT asked();
        });
        for (const int number : signalsToEnd) {
            std::signal(number, noteSignal);
        }
    }
    if (limit.count() > 0) {
        QTimer::singleShot(limit, Qt::PreciseTimer, this, &ending_t::asked);
    }
}

ending_t::~ending_t()
{
    for (const int number : signalsToEnd) {
        std::signal(number, SIG_DFL);
    }
    notifier.reset();
    for (const int end : ends) {
        if (end >= 0) {
            ::close(end);
        }
    }
}

} // namespace tools
} // namespace comunication
