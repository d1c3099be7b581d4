// SPDX-License-Identifier: MIT
// The load: one publisher and one subscriber in one process, as engines or on libmosquitto alone.
#pragma once

#include <QtCore/QString>
#include <QtCore/QVector>

#include <sys/resource.h>

#include <chrono>

/// What one round does.
struct load_t {
    quint16 port = 0;
    int messages = 0;
    int window = 20; ///< most publications that wait for their acknowledgement
    int burst = 0;   ///< if not 0: this many at once, then wait for all acknowledgements
    int qos = 2;     ///< at 0 a message is on its way until it has arrived
};

/// What one round measured.
struct load_result_t {
    double seconds = 0;           ///< first publish to last message received
    double cpuSeconds = 0;        ///< user and system, of the whole process
    QVector<double> microseconds; ///< publish to reception with one in flight; with bursts, to the last
                                  ///< acknowledgement
};

load_result_t runEngines(const load_t& load);
load_result_t runPlain(const load_t& load);

/// Between two bursts, so that each one starts on a quiet link.
constexpr std::chrono::milliseconds burstPause{2};

/// Topic that the publisher uses.
inline QString loadTopic()
{
    return QStringLiteral("forward-bridge/local/1234/tarnel-server-1/all/status/DB/realtime");
}

/// User and system time of this process so far.
inline double cpuSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}
