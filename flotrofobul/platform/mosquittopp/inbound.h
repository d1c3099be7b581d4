// SPDX-License-Identifier: MIT
// Which QoS 2 messages libmosquitto has begun to receive. Internal.
#pragma once

#include <QtCore/QByteArray>

#include <unordered_map>

namespace comunication {
namespace mosquittopp {

/// Keeps book of what libmosquitto holds until the broker releases it, from the lines of its log: nothing else tells.
///
/// The library takes a message that is repeated after a cut for a second one with the same packet id. It passes the
/// older on and keeps the newer, which it passes on in the place of the next message with this id: the host would get
/// something old, and the new one never.
class inbound_t {
public:
    /// Forgets all, for a new handle.
    void begin(const QString& clientId);

    enum class finding_t {
        none,
        repeat, ///< a message comes again whose first copy is still held: the handle will be left with a copy
        stale,  ///< the library is about to pass on an old message for a new one: when it cannot write its answer now,
                ///< it drops the old one, and the broker releases the new one once more over the next connection
    };
    /// Takes a line of the log.
    [[nodiscard]] finding_t note(const char* line);

    /// Whether repeats were left over: a new handle is wanted as soon as nothing is on its way.
    bool hasLeftovers() const { return leftovers > 0; }
    /// Whether messages wait for the broker to release them.
    bool isReceiving() const { return waiting > 0; }

private:
    struct copies_t {
        int waiting = 0; // of the message that the broker has still to release
        int left = 0;    // of one that was released
    };

    finding_t begun(int mid);
    finding_t released(int mid);

    QByteArray prefix;
    std::unordered_map<int, copies_t> messages;
    int waiting = 0;
    int leftovers = 0;
};

} // namespace mosquittopp
} // namespace comunication
