// SPDX-License-Identifier: MIT
// What the kernel knows of a TCP connection, and what the adapter asks of it. Internal.
#pragma once

#include <cstdint>

namespace comunication {
namespace mosquittopp {
namespace tcp {

/// Bytes of a connection so far. All zero where the kernel does not tell.
struct traffic_t {
    std::uint64_t received = 0;
    std::uint64_t acknowledged = 0; ///< by the other side's kernel
    int queued = 0;                 ///< written by us, not acknowledged yet
};

traffic_t traffic(int descriptor);

/// Whether bytes wait to be read.
bool hasInput(int descriptor);

/// Why a socket that has become writable is not connected, as a system error; 0 if it is.
int connectError(int descriptor);

/// False when the other side has ended the connection; systemError is then 0 for an orderly end.
bool stands(int descriptor, int* systemError);

/// Throws away what waits to be read. False when the other side has ended the connection.
bool discardInput(int descriptor);

/// When the kernel acknowledges what was received: this once at once, or at once for the next packets, too.
enum class quickly_t { once, always };
void acknowledge(int descriptor, quickly_t quickly);

} // namespace tcp
} // namespace mosquittopp
} // namespace comunication
