// SPDX-License-Identifier: MIT
// A bad network before a real broker: a port whose connections are handed on late, slowly, in part or not at all, and
// are cut as it happens in a house. Knows nothing of MQTT.
#pragma once

#include <flotrofobul/testkit/broker.h>

#include <QtCore/QPointer>
#include <QtCore/QRandomGenerator>
#include <QtCore/QTimer>
#include <QtNetwork/QTcpServer>
#include <QtNetwork/QTcpSocket>

#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace comunication {
namespace testkit {

/// orderly: FIN to both sides. reset: RST to both. unnoticed: RST to the client, while the broker waits on.
enum class cut_t { orderly, reset, unnoticed };

/// How bytes that go one way are treated from now on. Their order stays.
struct way_t {
    int longestDelay = 0; ///< of each piece, in milliseconds and at random
    int shortestDelay = 0;
    int bytesPerSecond = 0; ///< 0: as fast as they come
    bool silent = false;    ///< nothing passes, not even an end; what waits goes on when this ends
    int bytesUntilCut = -1; ///< each connection is cut after that many more, inside a packet or not; -1: it is not
    cut_t cut = cut_t::orderly;

    static way_t silence()
    {
        way_t way;
        way.silent = true;
        return way;
    }
    static way_t late(int ms)
    {
        way_t way;
        way.longestDelay = way.shortestDelay = ms;
        return way;
    }
};

/// For proxy_t. One way of one connection: what has been read and is not due yet.
class pipe_t : public QObject {
public:
    pipe_t(QTcpSocket* givenFrom, QTcpSocket* givenTo, const way_t& givenWay, QRandomGenerator& givenRandom,
           std::function<void()> givenCut)
        : from(givenFrom), to(givenTo), way(givenWay), random(givenRandom), cut(std::move(givenCut)),
          bytesLeft(givenWay.bytesUntilCut)
    {
        next.setSingleShot(true);
        next.setTimerType(Qt::PreciseTimer);
        connect(&next, &QTimer::timeout, this, &pipe_t::passOn);
        connect(from, &QTcpSocket::readyRead, this, &pipe_t::passOn);
        connect(from, &QTcpSocket::stateChanged, this, &pipe_t::passOn);
        connect(to, &QTcpSocket::connected, this, &pipe_t::passOn);
        connect(to, &QTcpSocket::bytesWritten, this, &pipe_t::passOn);
    }

    /// The treatment has changed.
    void renew()
    {
        bytesLeft = way.bytesUntilCut;
        passOn();
    }

    /// What waits is lost, and nothing passes any more.
    void close()
    {
        closed = true;
        next.stop();
        waiting.clear();
    }

    void passOn()
    {
        if (closed) {
            return;
        }
        read();
        while (!waiting.empty() && mayPass()) {
            const QByteArray bytes = waiting.front().bytes;
            waiting.pop_front();
            held -= bytes.size();
            if (bytesLeft >= 0 && bytesLeft <= bytes.size()) {
                close(); // flush() signals that bytes were written
                to->write(bytes.left(bytesLeft));
                to->flush();
                cut();
                return;
            }
            bytesLeft -= bytesLeft < 0 ? 0 : bytes.size();
            to->write(bytes);
            read();
        }
        if (!waiting.empty()) {
            scheduleNext();
        } else if (!way.silent && from->state() == QTcpSocket::UnconnectedState && from->bytesAvailable() == 0) {
            to->disconnectFromHost();
        }
    }

private:
    using clock_t = std::chrono::steady_clock;

    struct piece_t {
        clock_t::time_point due;
        QByteArray bytes;
    };

    // Both so small that a sender soon feels a network that does not take anything.
    static constexpr int mostHeld = 64 * 1024;
    static constexpr int longestPiece = 1400;

    bool mayPass() const
    {
        return !way.silent && to->state() == QTcpSocket::ConnectedState && to->bytesToWrite() < mostHeld &&
               waiting.front().due <= clock_t::now();
    }

    // What is due already waits for something else.
    void scheduleNext()
    {
        const auto delay = waiting.front().due - clock_t::now();
        if (delay > delay.zero()) {
            next.start(std::chrono::ceil<std::chrono::milliseconds>(delay));
        }
    }

    void read()
    {
        while (held < mostHeld && from->bytesAvailable() > 0) {
            const QByteArray bytes = from->read(longestPiece);
            lastDue = std::max(lastDue, clock_t::now() + std::chrono::milliseconds(
                                                             random.bounded(way.shortestDelay, way.longestDelay + 1)));
            if (way.bytesPerSecond > 0) {
                lastDue += std::chrono::microseconds(bytes.size() * 1000000LL / way.bytesPerSecond);
            }
            waiting.push_back({lastDue, bytes});
            held += bytes.size();
        }
    }

    QTcpSocket* const from;
    QTcpSocket* const to;
    const way_t& way;
    QRandomGenerator& random;
    const std::function<void()> cut;
    int bytesLeft;
    std::deque<piece_t> waiting;
    int held = 0;
    bool closed = false;
    clock_t::time_point lastDue;
    QTimer next;
};

/// For proxy_t. A client's connection and the one to the broker that belongs to it; deletes itself when both have
/// ended.
class passage_t : public QObject {
public:
    passage_t(QTcpSocket* givenClient, quint16 broker, const way_t& toBroker, const way_t& toClient,
              QRandomGenerator& random, QObject* parent)
        : QObject(parent), client(givenClient), upstream(new QTcpSocket(this))
    {
        client->setParent(this);
        upstream->connectToHost(QHostAddress::LocalHost, broker);
        for (QTcpSocket* const socket : {client, upstream}) {
            socket->setReadBufferSize(16 * 1024);
            socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
            connect(socket, &QTcpSocket::stateChanged, this, &passage_t::endWithBoth, Qt::QueuedConnection);
        }
        const auto add = [&](QTcpSocket* from, QTcpSocket* to, const way_t& way) {
            pipes.push_back(std::make_unique<pipe_t>(from, to, way, random, [this, &way] { cut(way.cut); }));
        };
        add(client, upstream, toBroker);
        add(upstream, client, toClient);
    }

    void renew()
    {
        for (const auto& pipe : pipes) {
            pipe->renew();
        }
    }

    /// What is under way is lost.
    void cut(cut_t how)
    {
        if (std::exchange(isCut, true)) {
            return;
        }
        for (const auto& pipe : pipes) {
            pipe->close(); // it may be the caller, so it lives on
        }
        how == cut_t::orderly ? client->disconnectFromHost() : reset(client);
        switch (how) {
        case cut_t::orderly: upstream->disconnectFromHost(); break;
        case cut_t::reset: reset(upstream); break;
        case cut_t::unnoticed:
            connect(upstream, &QTcpSocket::readyRead, this, [this] { upstream->readAll(); });
            upstream->readAll();
            break;
        }
    }

    /// Tells the broker, too.
    void sweep()
    {
        if (isCut) {
            reset(upstream);
        }
    }

private:
    static void reset(QTcpSocket* socket)
    {
        const linger atOnce{1, 0};
        ::setsockopt(static_cast<int>(socket->socketDescriptor()), SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
        socket->abort();
    }

    void endWithBoth()
    {
        if (client->state() == QTcpSocket::UnconnectedState && upstream->state() == QTcpSocket::UnconnectedState) {
            deleteLater();
        }
    }

    QTcpSocket* const client;
    QTcpSocket* const upstream;
    bool isCut = false;
    std::vector<std::unique_ptr<pipe_t>> pipes;
};

/// Everything behind one port of 127.0.0.1, which port() names. Without further orders it hands everything on at once.
/// Lives on the thread of an event loop, and needs it.
class proxy_t : public QObject {
public:
    /// broker: a port of this machine. seed: of the delays that are at random.
    explicit proxy_t(quint16 broker, quint32 seed = 0) : ownPort(freePort()), random(seed), server(this)
    {
        connect(&server, &QTcpServer::newConnection, this, [this, broker] {
            passages.erase(std::remove(passages.begin(), passages.end(), nullptr), passages.end());
            passages.emplace_back(
                new passage_t(server.nextPendingConnection(), broker, toBroker, toClient, random, this));
        });
        refuse(false);
    }

    quint16 port() const { return ownPort; }

    /// How bytes go from now on, over connections that are there and those to come.
    void set(const way_t& newToBroker, const way_t& newToClient)
    {
        toBroker = newToBroker;
        toClient = newToClient;
        each([](passage_t* passage) { passage->renew(); });
    }

    bool isSilent() const { return toBroker.silent || toClient.silent; }

    /// Whether an attempt to connect meets a closed port.
    void refuse(bool on)
    {
        if (on) {
            server.close();
        } else if (!server.isListening() && !server.listen(QHostAddress::LocalHost, ownPort)) {
            QTimer::singleShot(100, this, [this] { refuse(false); });
        }
    }

    /// As a cable that is pulled and told of: every connection ends, and none is made until heal().
    void pull()
    {
        refuse(true);
        cut(cut_t::reset);
    }

    /// Ends every connection; new ones are welcome.
    void cut(cut_t how)
    {
        each([how](passage_t* passage) { passage->cut(how); });
    }

    /// As at first. What has been cut unnoticed stays so, see sweep().
    void heal()
    {
        set({}, {});
        refuse(false);
    }

    /// Ends what the broker waits for after a cut that it has not noticed.
    void sweep()
    {
        each([](passage_t* passage) { passage->sweep(); });
    }

private:
    template <typename Act>
    void each(Act act)
    {
        for (const QPointer<passage_t>& passage : passages) {
            if (passage) {
                act(passage);
            }
        }
    }

    const quint16 ownPort;
    QRandomGenerator random;
    way_t toBroker;
    way_t toClient;
    QTcpServer server;
    std::vector<QPointer<passage_t>> passages;
};

} // namespace testkit
} // namespace comunication
