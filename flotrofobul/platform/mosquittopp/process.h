// SPDX-License-Identifier: MIT
// What belongs to the whole process and not to this library: signal handlers, and descriptors that a child inherits.
// Internal.
#pragma once

#include <csignal>
#include <mutex>

struct mosquitto;

namespace comunication {
namespace mosquittopp {

/// Makes a descriptor one that no child inherits.
void closeOnExec(int descriptor);

/// Lets the number stand for /dev/null from now on. What it stood for lives on with its other owners.
void replaceByNull(int descriptor);

/// Stands around a call that makes a handle of libmosquitto, and takes back what that does to the process: it replaces
/// the handler of SIGPIPE, and it opens a pair of sockets to wake a thread that this adapter does not have. Children
/// would inherit the pair, and every packet would write a byte more to it that nobody reads.
class handle_creation_t {
public:
    handle_creation_t();
    ~handle_creation_t();
    handle_creation_t(const handle_creation_t&) = delete;
    handle_creation_t& operator=(const handle_creation_t&) = delete;

    /// Takes the pair away from a handle that was just made.
    void removePair(::mosquitto* handle) const;

private:
    std::unique_lock<std::mutex> alone;
    struct sigaction pipeAction;
};

} // namespace mosquittopp
} // namespace comunication
