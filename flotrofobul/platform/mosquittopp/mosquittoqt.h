// SPDX-License-Identifier: MIT
// The broker client that an engine owns: an MQTT client that looks after its own connection.
#pragma once

#include <flotrofobul/platform/mosquittopp/mosquittoppqt.h>

namespace comunication {
namespace mosquittopp {

/// Keeps a connection alive and makes it again: after 1 s, doubling to 30 s, a little less by chance
/// so that a house full of panels does not come back in one instant; back to 1 s after a stable
/// minute; 30 s at once when the broker refuses. Ends with disconnect_sync(), starts with a connect.
///
/// Messages that the broker has not acknowledged survive a lost connection and are sent again;
/// messages published without a connection wait in a bounded outbox, the oldest goes first.
class FLOTROFOBUL_EXPORT mosquittoqt : public mosquittoppqt {
    Q_OBJECT
public:
    /// autoconnect: connect again whenever a connection is lost or an attempt fails.
    mosquittoqt(const QString& clientId, bool cleanSession, bool autoconnect, QObject* parent = nullptr);
    ~mosquittoqt() override;

    /// Client id from the next connection on.
    void setClientId(const QString& clientId);

    /// Time between two looks at the keep-alive, at least 500 ms, at most a quarter of the keep-alive.
    void setLoopInterval(int milliseconds);

    /// Time for name, network, TLS and the broker's answer together; default 10 s, at least 1.
    void setConnectTimeout(int seconds);

    /// What may wait without a connection; defaults 1000 messages and 8 MiB of topics and payloads.
    void setOutboxLimits(int messages, int bytes);

    /// Longest payload taken from the broker; longer ones are dropped. Default 16 MiB.
    void setMaxPacketBytes(int bytes);

    /// Whether the broker has accepted this client and the connection stands.
    [[nodiscard]] bool getConnected() const;

    /// Closes the connection in order, or ends the attempts to make one; onDisconnect(0) follows when
    /// there was a connection. 4 when there was nothing to end. The last will is not sent by the broker.
    int disconnect_sync();

    [[nodiscard]] bool hasWill() const;
    /// The registered will; empty without one.
    [[nodiscard]] will_t getWill() const;
};

} // namespace mosquittopp
} // namespace comunication
