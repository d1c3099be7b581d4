// SPDX-License-Identifier: MIT
// Takes the log of the library for the life of a test: "level function message" lines in their order.
#pragma once

#include <flotrofobul/platform/logs/log_line.h>

#include <QtCore/QStringList>

#include <functional>
#include <utility>

using comunication::literals::operator""_l1;

/// A QString of a literal, short enough for tables.
inline QString operator""_s(const char* text, std::size_t length)
{
    return QString::fromUtf8(text, static_cast<int>(length));
}

/// Records from its construction on, as a rule at every level and without advice; the defaults are back after it.
class log_recorder_t {
public:
    explicit log_recorder_t(int highest = ::utility::logs::detail)
    {
        auto* const logs = ::utility::logs::classlogs::getInstance();
        logs->setLevel(highest);
        logs->setAdvice(false);
        logs->setSink([this](const ::utility::logs::LogRecord& record) {
            records << record;
            lines << textOf(record);
            if (also) {
                also();
            }
        });
    }
    ~log_recorder_t()
    {
        ::utility::logs::classlogs::getInstance()->setSink({});
        ::utility::logs::classlogs::getInstance()->setLevel(::utility::logs::info);
        ::utility::logs::classlogs::getInstance()->setAdvice(true);
    }
    log_recorder_t(const log_recorder_t&) = delete;
    log_recorder_t& operator=(const log_recorder_t&) = delete;

    static QString textOf(const ::utility::logs::LogRecord& record)
    {
        return QString::number(record.level) + QLatin1Char(' ') + record.function + QLatin1Char(' ') + record.message;
    }
    /// Number of lines that hold a text.
    int count(const QString& part) const { return lines.filter(part).count(); }
    /// What was logged since the last call.
    QStringList take()
    {
        records.clear();
        return std::exchange(lines, {});
    }

    QList<::utility::logs::LogRecord> records;
    QStringList lines;
    std::function<void()> also; ///< what the host does at every line
};
