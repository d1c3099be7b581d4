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
#define FLOTROFOBUL_LOG_AT(level, text, function, source, line)                             \
    do {                                                                                    \
        auto* const logs_ = ::utility::logs::classlogs::getInstance();                      \
        if (logs_->isEnabled(level)) {                                                      \
            logs_->log(text, level, QLatin1String(function), QLatin1String(source), line);  \
        }                                                                                   \
    } while (false)

/// Writes a line for the enclosing operation of a file that defines the constant logSource.
#define FLOTROFOBUL_LOG(level, text) FLOTROFOBUL_LOG_AT(level, text, __func__, logSource, __LINE__)

/// Text of the exception that is being handled, for the log; empty when it is no std::exception.
/// To be called inside a catch block only.
inline QString currentExceptionText()
{
    try {
        throw;
    } catch (const std::exception& exception) {
        return QString::fromUtf8(exception.what());
    } catch (...) {
        return QString();
    }
}
