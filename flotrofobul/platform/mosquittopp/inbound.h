// SPDX-License-Identifier: MIT
// Which QoS 2 messages libmosquitto has begun to receive. Internal.
#pragma once

#include <QtCore/QByteArray>

#include <cstdint>
#include <deque>
#include <unordered_map>

namespace comunication {
namespace mosquittopp {

/// Keeps book of what libmosquitto holds until the broker releases it, from the lines of its log: nothing else tells.
/// It is needed where a session goes on after a cut, for what the library and mosquitto (both 2.0.11) do then:
///
/// - The library takes a message that is repeated for a second one with the same packet id. It passes the older on and
///   keeps the newer, which it passes on in the place of the next message with this id: the host would get something
///   old, and the new one never.
/// - mosquitto repeats a message that it has released already, when the next connection ends before it comes to that.
class inbound_t {
public:
    /// In bytes. With a longer client id the library cuts the lines before they tell the packet id.
    static constexpr int longestId = 499;

    enum class finding_t {
        none,
        repeat, ///< the oldest of the messages that wait comes again: the handle will be left with a copy of it
        stale,  ///< the library is about to pass on an old message for a new one: without an answer the broker releases
                ///< the new one once more over the next connection
    };

    /// A new handle holds nothing. goesOn: it goes on with the broker's session.
    void begin(const QString& clientId, bool goesOn);
    /// Takes a line of the log.
    [[nodiscard]] finding_t note(const char* line);
    /// Takes a message that the library passes on. False if the host has it already.
    [[nodiscard]] bool isNew(int mid, uint content);

    /// Whether repeats were left over: a new handle is wanted as soon as nothing is on its way.
    bool hasLeftovers() const { return leftovers > 0; }
    /// Whether messages wait for the broker to release them.
    bool isReceiving() const { return waiting > 0; }

private:
    struct copies_t {
        int waiting = 0; // of the message that the broker has still to release
        int left = 0;    // of one that was released
        bool again = false;
        std::uint64_t number = 0; // how many messages had begun with it
    };
    struct passed_t {
        int mid;
        uint content;
    };

    // As many as a broker may have on their way to us: mosquitto as a rule 20, but after a cut all that had waited.
    static constexpr std::size_t mostPassed = 1500;

    finding_t begun(int mid, bool again);
    finding_t released(int mid);

    QByteArray prefix;
    std::unordered_map<int, copies_t> messages;
    std::uint64_t begunCount = 0;
    int waiting = 0;
    int leftovers = 0;
    bool lastAgain = false;      // the message that is being passed on was marked as a repeat
    bool passesLeftover = false; // and this is a copy of one that was passed on
    std::deque<passed_t> passed; // the newest at the end
};

} // namespace mosquittopp
} // namespace comunication
