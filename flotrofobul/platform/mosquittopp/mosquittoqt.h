// SPDX-License-Identifier: MIT
// The broker client that an engine owns: an MQTT client that looks after its own connection.
#pragma once

#include <flotrofobul/platform/mosquittopp/mosquittoppqt.h>

namespace comunication {
namespace mosquittopp {

/// Keeps a connection alive and reconnects: after 1 s, doubling to 30 s, each time shortened at random so that a house
/// full of panels does not come back at the same instant; after 1 s again once a connection was stable for a minute;
/// after 30 s when the broker refuses. A connect starts this, disconnect_sync() ends it.
///
/// Messages that the broker has not acknowledged survive a lost connection and are sent again. Messages published
/// without a connection wait in a bounded outbox; when it is full, the oldest are dropped.
class FLOTROFOBUL_EXPORT mosquittoqt : public mosquittoppqt {
    Q_OBJECT
public:
    /// autoconnect: reconnect whenever a connection is lost or an attempt fails.
    mosquittoqt(const QString& clientId, bool cleanSession, bool autoconnect, QObject* parent = nullptr);
    ~mosquittoqt() override;

    /// Client id from the next connection on.
    void setClientId(const QString& clientId);

    /// Time between two rounds of housekeeping; at least 500 ms, at most a quarter of the keep-alive.
    void setLoopInterval(int milliseconds);

    /// Time for name, network, TLS and the broker's answer together, within limits::connectTimeout.
    void setConnectTimeout(int seconds);

    /// What may wait without a connection: messages, and bytes of their topics and payloads.
    void setOutboxLimits(int messages, int bytes);

    /// Longest payload accepted from the broker; longer ones are dropped.
    void setMaxPacketBytes(int bytes);

    /// Whether the broker has accepted this client and the connection is up.
    [[nodiscard]] bool getConnected() const;

    /// Closes the connection in order, or ends the attempts to make one; onDisconnect(0) follows if there was a
    /// connection. Returns 4 if there was nothing to end. The broker does not publish the last will.
    int disconnect_sync();

    /// Why there is no connection, in words; empty while there is one, and when nobody has asked for one.
    [[nodiscard]] QString linkProblem() const;

    /// How many connections have ended that onDisconnect() has still to report. What is published meanwhile belongs to
    /// the next one.
    [[nodiscard]] int pendingEnds() const;

    /// Gives up a message that the broker has not acknowledged: no later connection sends it again.
    void withdraw(int mid);

    /// Whether a last will is registered.
    [[nodiscard]] bool hasWill() const;
    /// The registered will; empty without one.
    [[nodiscard]] will_t getWill() const;
};

} // namespace mosquittopp
} // namespace comunication
