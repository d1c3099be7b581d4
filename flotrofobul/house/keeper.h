// SPDX-License-Identifier: MIT
// The companion of a server that keeps the house with one master.
#pragma once

#include <flotrofobul/export.h>

#include <QtCore/QJsonObject>
#include <QtCore/QObject>

#include <memory>

namespace comunication {

class protoserver_t;

namespace house {

/// Keeps exactly one master among the servers of a house, whatever dies, as far as they can hear each other.
///
/// A host that has several servers in its house constructs one beside each of them, before the first connect():
///
///     protoserver_t server("1.0.0", QString("house.json"), true, "tarnel-server-1", false);
///     comunication::house::keeper_t keeper(server);
///
/// It reads the section "house" of the server's configuration (see docs/mastership.md, which also has the rules). It
/// belongs to the host and lives on the server's thread; either may be deleted first, and a server without one behaves
/// as ever. It publishes over the server: a short packet to the other servers ("connection/house") and the
/// server's own presentation. It makes the server master with setMaster(), and makes it follow another one.
///
/// All its signals come from the event loop, never from inside an operation; a slot may delete both.
class FLOTROFOBUL_EXPORT keeper_t : public QObject {
    Q_OBJECT

public:
    /// Works for the server from the next connection on, or at once if there is one.
    explicit keeper_t(protoserver_t& server, QObject* parent = nullptr);
    ~keeper_t() override;

    /// Client id of the master that this server follows, or its own if it is master. Empty while there is none.
    QString master() const;
    /// Whether this server is master and sure of it.
    bool isMaster() const;

Q_SIGNALS:
    /// The master is another one; it is empty while none is known. The reason is for people.
    void masterChanged(const QString& master, const QString& reason);
    /// The master may be gone: it is being asked, and masterBelieved() or masterChanged() follows within seconds.
    void masterDoubted(const QString& master, const QString& reason);
    /// The master has answered.
    void masterBelieved(const QString& master);
    /// This server and another one were master at the same time, because they did not hear each other. What each has
    /// done since then: "since" (seconds as master) and "requests" (how many reached it). The signal masterChanged()
    /// follows at the one that yields.
    void twoMasters(const QString& other, const QJsonObject& ours, const QJsonObject& theirs);

private:
    Q_DISABLE_COPY(keeper_t)

    struct inside_t;
    const std::unique_ptr<inside_t> inside;
};

} // namespace house
} // namespace comunication
