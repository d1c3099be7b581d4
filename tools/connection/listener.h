// SPDX-License-Identifier: MIT
// An ear at a broker: hears every packet and says nothing. What the packets mean is in the model of the house.
#pragma once

#include "connection/connection.h"

#include <flotrofobul/platform/mosquittopp/mosquittoqt.h>

#include <QtCore/QByteArray>
#include <QtCore/QElapsedTimer>
#include <QtCore/QObject>

namespace comunication {
namespace tools {

/// A packet as it came.
struct packet_t {
    qint64 moment = 0; ///< milliseconds since 1970
    QString topic;
    QByteArray payload;
    int qos = 0;
    bool retain = false;
};

/// A client id that no node has and no other run of this command.
[[nodiscard]] QString strangerId();

/// Why there is no link, with the name of the broker; words as of the broker client, which may be empty.
[[nodiscard]] QString problemAt(const QString& broker, const QString& words);

/// Connects, subscribes everything and what $SYS says of bridges, and passes on each packet. Where the first attempt
/// fails it gives up; a link that is lost later comes back by itself. Where much is said, it listens every few
/// milliseconds only, which costs a third less than to wake up for each packet.
class listener_t : public QObject {
    Q_OBJECT
public:
    /// qos: at which quality of service it listens; with less than 2 the broker says less and has less to do.
    explicit listener_t(const connection_t& connection, int qos = 2, QObject* parent = nullptr);

    void start();
    /// Before start(), on a thread that has more to do than to listen, such as one that draws.
    void neverRest() { mayRest = false; }
    /// Leaves the broker; nothing is passed on any more.
    void stop();
    [[nodiscard]] bool isReady() const { return listening; }
    /// Of the broker, for people.
    [[nodiscard]] const QString& name() const { return brokerName; }
    /// To publish with the same connection.
    [[nodiscard]] mosquittopp::mosquittoqt& adapter() { return client; }

Q_SIGNALS:
    /// Listens, also after each return of the link.
    void ready();
    /// The first attempt has failed, and why, with the broker's name; nothing follows.
    void failed(const QString& words);
    /// The link has been lost, or cannot be made anew, and why, with the broker's name.
    void problem(const QString& words);
    void heard(const comunication::tools::packet_t& packet);
    /// In place of heard(): a packet is longer than the configuration allows. Where nobody is connected to this from
    /// the start, only the library's log tells.
    void tooLong(const QString& topic, int bytes, const QString& words);

private:
    void listen();
    void lose(const QString& words);
    void rest();

    const connection_t connection;
    const QString brokerName;
    const int qos;
    mosquittopp::mosquittoqt client;
    int lastRequest = 0;
    int heardInTurn = 0;
    bool hasMuch = false;    ///< the last turn with packets had many
    QElapsedTimer sinceTurn; ///< since the last turn of the event loop with packets ended
    bool mayRest = true;
    bool listening = false;
    bool wasReady = false;
    bool ended = false;
};

} // namespace tools
} // namespace comunication
