// SPDX-License-Identifier: MIT
// Holds every message until the broker has acknowledged it, and the message ids that the caller knows. Internal; sends
// nothing itself.
#pragma once

#include <flotrofobul/platform/limits.h>
#include <flotrofobul/platform/mosquittopp/turn.h>

#include <QtCore/QByteArray>

#include <deque>
#include <optional>
#include <unordered_set>
#include <vector>

namespace comunication {
namespace mosquittopp {

/// A message as it was published. It has two ids: the caller's, which stays however often it is sent, and the one that
/// libmosquitto gave it in this session.
struct letter_t {
    QByteArray topic;
    QByteArray payload;
    int mid = 0;
    int wireMid = 0;
    int qos = 0;
    bool retain = false;
    int guilt = 0;         // how much it looks as if the broker closed connections over it
    bool onProven = false; // sent over a connection over which the broker had acknowledged something
    moment_t sentAt;

    int bytes() const { return topic.size() + payload.size(); }
};

/// Messages that wait, messages on their way (at most the window), and the ids of pending subscriptions.
class outbox_t {
public:
    /// With more than this many unacknowledged, a mosquitto with its default configuration silently loses acknowledged
    /// QoS 2 messages.
    static constexpr int widestWindow = 20;

    void setLimits(int messages, int bytes);
    int bytesLimit() const { return mostBytes; }
    /// Whether one more message may wait while the link is up, where nothing is dropped.
    bool hasRoom(int bytes) const;

    /// The next free id, 1 to 65535, counted as libmosquitto counts: in an undisturbed session both ids are equal.
    int nextMid();

    /// Adds a message at the end. Without a link the oldest are dropped until all fit; returns how many were.
    int add(letter_t letter, bool linkUp);

    /// The message to send next, now counted among those on their way; null if none may be sent. The pointer is valid
    /// until the outbox is changed.
    letter_t* takeNext(moment_t now);

    /// Forgets a message and returns the caller's id; 0 if no message with this id is on its way.
    int acknowledge(int wireMid);
    /// Quality of a message on its way; -1 if there is none with this id.
    int qosOf(int wireMid) const;
    /// Forgets a message that is not acknowledged, by the caller's id; true when it was on its way.
    bool withdraw(int mid);
    /// Forgets the newest message on its way, which could not be handed over.
    void discardNewest();

    void addRequest(int mid, int wireMid) { requests.push_back({mid, wireMid}); }
    int acknowledgeRequest(int wireMid);

    /// The link is down. resumable: libmosquitto will go on where it stopped, so messages on their way stay there.
    void linkLost(bool resumable);
    /// All messages on their way are to be sent anew.
    void restart();
    /// A connection has ended in the middle of something: looks for a message over which the broker closes it. A
    /// message is blamed only when it was alone on its way, and more where the connection had proved itself. Those on
    /// their way are sent one by one until they are acknowledged.
    struct suspicion_t {
        bool any = false;                 ///< something had been sent just before
        bool isStuck = false;             ///< many connections in a row ended so, without one acknowledgement
        std::optional<letter_t> forsaken; ///< what the broker does not want: it is forgotten
    };
    suspicion_t suspect(moment_t now);
    /// The network has failed at a moment when no message can be the cause.
    void acquit();

    /// The library has sent the messages on their way once more.
    void sentAgain(moment_t now);
    /// Whether there is no id to spare for another subscription.
    bool hasTooManyRequests() const { return requests.size() >= mostRequests; }
    /// Whether the broker still owes an acknowledgement.
    bool awaitsAnswers() const { return !sent.empty() || !requests.empty(); }
    int waitingCount() const { return static_cast<int>(waiting.size()); }
    int onItsWayCount() const { return static_cast<int>(sent.size()); }

private:
    struct request_t {
        int mid;
        int wireMid;
    };

    static constexpr std::size_t mostRequests = 500;

    void dropOldest();
    void noteAnswer();

    std::deque<letter_t> waiting;
    std::vector<letter_t> sent;
    std::vector<request_t> requests;
    std::unordered_set<int> takenMids;
    qint64 waitingBytes = 0;
    int lastMid = 0;
    int suspects = 0;
    bool proven = false; // something was acknowledged over this connection
    int fruitless = 0;   // connections in a row that ended without an acknowledgement
    moment_t fruitlessSince;
    int mostMessages = limits::outboxMessages.initial;
    int mostBytes = limits::outboxBytes.initial;
    int keptFromBefore = 0; // messages, and below bytes, not acknowledged when the link went down
    qint64 bytesKeptFromBefore = 0;
};

} // namespace mosquittopp
} // namespace comunication
