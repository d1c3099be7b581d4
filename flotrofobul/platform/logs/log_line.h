// SPDX-License-Identifier: MIT
// How the library writes a log line: with the bare name of the operation it stands in, a source name and a line
// number. Internal.
#pragma once

#include <flotrofobul/platform/logs/classlogs.h>
#include <flotrofobul/platform/text.h>

#include <exception>

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

namespace comunication {

/// Log text of the exception that is being handled: known + its words for a std::exception, other for anything
/// else. May be called inside a catch block only.
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

/// Runs a body. What it throws goes no further: the text is logged for it, as a line of the named operation.
template <typename Body, typename Text>
void guarded(const char* function, const char* source, Body&& body, Text&& text) noexcept
{
    try {
        body();
    } catch (...) {
        FLOTROFOBUL_LOG_AT(::utility::logs::caught, text(), function, source, __LINE__);
    }
}

/// The same with the words of the exception as the text.
template <typename Body>
void guarded(const char* function, const char* source, Body&& body) noexcept
{
    guarded(function, source, body, [] { return exceptionText(); });
}

} // namespace comunication
