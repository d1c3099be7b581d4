// SPDX-License-Identifier: MIT
// How long something may keep the event loop busy. Internal.
#pragma once

#include <flotrofobul/platform/limits.h>

#include <chrono>
#include <ctime>

namespace comunication {
namespace mosquittopp {

using moment_t = std::chrono::steady_clock::time_point;

/// The time of the system's last tick, some milliseconds ago at most. It is asked for each packet, and costs a tenth of
/// the exact one.
inline moment_t lastTick()
{
    timespec time{};
    ::clock_gettime(CLOCK_MONOTONIC_COARSE, &time);
    return moment_t(std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec));
}

/// One turn of the event loop. Over at once unless it was started.
class turn_t {
public:
    turn_t() = default;
    explicit turn_t(milliseconds_t length) { start(length); }

    void start(milliseconds_t length) { end = lastTick() + length; }
    bool isOver() const { return lastTick() > end; }

private:
    moment_t end;
};

} // namespace mosquittopp
} // namespace comunication
