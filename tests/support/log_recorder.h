// SPDX-License-Identifier: MIT
// The log lines of one test.
#pragma once

#include <flotrofobul/platform/logs/classlogs.h>

#include <QtCore/QStringList>

class log_recorder_t {
public:
    explicit log_recorder_t(int highest = ::utility::logs::info)
    {
        auto* const logs = ::utility::logs::classlogs::getInstance();
        logs->setLevel(highest);
        logs->setSink([this](const ::utility::logs::LogRecord& record) { lines += record.message; });
    }
    ~log_recorder_t()
    {
        ::utility::logs::classlogs::getInstance()->setSink({});
        ::utility::logs::classlogs::getInstance()->setLevel(::utility::logs::info);
    }
    log_recorder_t(const log_recorder_t&) = delete;
    log_recorder_t& operator=(const log_recorder_t&) = delete;

    int count(const QString& part) const { return lines.filter(part).count(); }

    QStringList lines;
};
