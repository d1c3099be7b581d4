// SPDX-License-Identifier: MIT
// What a configuration may ask for: every bound and every default, once. docs/configuration.md lists them for people.
#pragma once

#include <chrono>

namespace comunication {

/// Times as the configuration holds them, in an int.
using seconds_t = std::chrono::duration<int>;
using milliseconds_t = std::chrono::duration<int, std::milli>;

namespace limits {

template <typename T>
struct limit_t {
    T lowest;
    T initial;
    T highest;
};

constexpr limit_t<int> port{1, 1883, 65535};
/// Between two rounds of housekeeping.
constexpr limit_t<milliseconds_t> interval{milliseconds_t(1), milliseconds_t(1000), milliseconds_t(60000)};
constexpr limit_t<seconds_t> keepalive{seconds_t(0), seconds_t(60), seconds_t(65535)};
/// For one attempt to connect: name, network, TLS and the broker's answer together.
constexpr limit_t<seconds_t> connectTimeout{seconds_t(1), seconds_t(10), seconds_t(600)};
/// The most leaves message ids for what is on its way and for subscriptions.
constexpr limit_t<int> outboxMessages{1, 1000, 65000};
constexpr limit_t<int> outboxBytes{1024, 8 * 1024 * 1024, 1024 * 1024 * 1024};
/// The most is what an MQTT packet can announce.
constexpr limit_t<int> packetBytes{1024, 16 * 1024 * 1024, 268435455};

} // namespace limits
} // namespace comunication
