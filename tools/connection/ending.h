// SPDX-License-Identifier: MIT
// When a subcommand that goes on by itself has to end: after a time, or when it is asked to (Ctrl-C).
#pragma once

#include <QtCore/QCommandLineParser>
#include <QtCore/QObject>

#include <chrono>
#include <memory>
#include <optional>

class QSocketNotifier;

namespace comunication {
namespace tools {

/// Adds --time to the options of a subcommand.
void addTimeOption(QCommandLineParser& options);
/// The time that --time gives, zero without one; nothing after words on what is wrong with it.
[[nodiscard]] std::optional<std::chrono::milliseconds> readTime(const QCommandLineParser& options);

/// Emits asked() once when SIGINT, SIGTERM or SIGHUP arrives or the time is over. One for a process; a second signal
/// ends it at once.
class ending_t : public QObject {
    Q_OBJECT
public:
    /// limit: zero for none.
    explicit ending_t(std::chrono::milliseconds limit);
    ~ending_t() override;

Q_SIGNALS:
    void asked();

private:
    int ends[2] = {-1, -1};
    std::unique_ptr<QSocketNotifier> notifier;
};

} // namespace tools
} // namespace comunication
