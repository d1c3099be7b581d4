// SPDX-License-Identifier: MIT
// The logger of the library: one filter level and one sink for the whole process. The macros that the engine logs with
// are in log_line.h, which is not installed.
#pragma once

#include <flotrofobul/export.h>

#include <QtCore/QString>

#include <atomic>
#include <functional>

namespace utility {
namespace logs {

/// Severity of a log line; the lower the number, the more severe.
enum LogLevel : int {
    fatal = 0,   ///< an exception that ends in a disconnection, an operation that does not exist
    caught = 1,  ///< a caught exception
    error = 2,   ///< an error or an anomaly of the protocol
    warning = 3, ///< a warning, a change of role, a bridge that goes up or down
    info = 4,    ///< what is going on
    notice = 5,  ///< reserved, written like info
    detail = 6,  ///< details, and every message
    trace = 7    ///< what the messages hold
};

/// One log line as the sink receives it.
struct LogRecord {
    QString message;
    int level = info;
    QString function; ///< bare name of the operation that logs
    QString file;     ///< source as the system names it
    int line = 0;
};

/// The process-wide logger.
///
/// A line is written if its level is not above the filter level (default 4) and somebody receives it: the sink or,
/// without a sink, the Qt logging category "flotrofobul" (levels 0 to 2 critical, 3 warning, 4 and 5 info, 6 and 7
/// debug). All operations may be called from any thread. A sink runs on the thread that logs; it may log or set another
/// sink, but must not delete an engine (deleteLater() is safe). What it throws is dropped.
class FLOTROFOBUL_EXPORT classlogs {
public:
    using Sink = std::function<void(const LogRecord&)>;

    /// The only logger; valid from when the library is loaded until the process ends.
    static classlogs* getInstance() noexcept { return &instance; }

    /// Passes a line to the sink if its level is enabled.
    void log(const QString& message, int level, const QString& function, const QString& file, int line);

    /// Sets the highest level that is written. A number in the environment variable FLOTROFOBUL_LOG_LEVEL takes
    /// precedence, so that a host that is built already can be made to log more.
    void setLevel(int highest) noexcept;

    /// Advice: what is probably wrong around the host, and what to do about it. Written under the function name
    /// "advice", each thing once; on from the start. Payloads (level 7) bear the same name and are written in any case.
    void setAdvice(bool on) noexcept { advice.store(on, std::memory_order_relaxed); }
    [[nodiscard]] bool isAdviceOn() const noexcept { return advice.load(std::memory_order_relaxed); }

    /// Whether a line of this level would reach anybody. Ask before building an expensive text: for a level above the
    /// filter this costs one comparison.
    [[nodiscard]] bool isEnabled(int level) const noexcept
    {
        return level <= highestLevel.load(std::memory_order_relaxed) && reachesSomebody(level);
    }

    /// Sets the receiver of the lines; an empty function restores the Qt logging category.
    void setSink(Sink sink);

    classlogs(const classlogs&) = delete;
    classlogs& operator=(const classlogs&) = delete;

private:
    constexpr classlogs() noexcept = default;
    [[nodiscard]] bool reachesSomebody(int level) const noexcept;

    static classlogs instance;
    static const bool levelIsFixed;

    std::atomic<int> highestLevel{info};
    std::atomic<bool> hasSink{false};
    std::atomic<bool> advice{true};
};

} // namespace logs
} // namespace utility
