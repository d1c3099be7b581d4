// SPDX-License-Identifier: MIT
// How the library writes a log line: with the bare name of the operation it stands in, a source name
// and a line number. Internal.
#pragma once

#include <flotrofobul/platform/logs/classlogs.h>

#include <exception>

constexpr QLatin1String operator""_l1(const char* text, std::size_t length) noexcept
{
    return QLatin1String(text, static_cast<int>(length));
}

/// Writes a line for a named operation; the text is only built when the level is enabled.
#define FLOTROFOBUL_LOG_AT(level, text, function, source, line)                            \
    do {                                                                                   \
        auto* const logs_ = ::utility::logs::classlogs::getInstance();                     \
        if (logs_->isEnabled(level)) {                                                     \
            logs_->log(text, level, QLatin1String(function), QLatin1String(source), line); \
        }                                                                                  \
    } while (false)

/// Writes a line for the enclosing operation of a file that defines the constant logSource.
#define FLOTROFOBUL_LOG(level, text) FLOTROFOBUL_LOG_AT(level, text, __func__, logSource, __LINE__)

/// The same for another operation than the enclosing one (a lambda, a shared helper).
#define FLOTROFOBUL_LOG_AS(level, text, function) FLOTROFOBUL_LOG_AT(level, text, function, logSource, __LINE__)

/// Log text of the exception that is being handled: known + its words for a std::exception, other for anything
/// else. To be called inside a catch block only.
inline QString exceptionText(QLatin1String known, QLatin1String other)
{
    try {
        throw;
    } catch (const std::exception& exception) {
        return known + QString::fromUtf8(exception.what());
    } catch (...) {
        return other;
    }
}

inline QString exceptionText()
{
    return exceptionText("Handling exception: "_l1, "Handling exception"_l1);
}

/// Runs a body; what it throws is logged as an exception of the named operation and goes no further.
template <typename Body>
void guarded(const char* function, const char* source, Body&& body) noexcept
{
    try {
        body();
    } catch (...) {
        FLOTROFOBUL_LOG_AT(1, exceptionText(), function, source, __LINE__);
    }
}
