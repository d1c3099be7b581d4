// SPDX-License-Identifier: MIT
// A bad network between a client and a broker on this machine.
#pragma once

#include <QtCore/QPointer>
#include <QtNetwork/QTcpServer>
#include <QtNetwork/QTcpSocket>

#include <functional>

class proxy_t : public QObject {
    Q_OBJECT
public:
    explicit proxy_t(quint16 target);

    quint16 port() const { return server.serverPort(); }
    QString host() const { return QStringLiteral("127.0.0.1"); }
    int connections() const { return connectionCount; }

    /// Bytes vanish in both directions, the connections stand.
    bool blackHole = false;
    /// One byte at a time to the client.
    bool trickle = false;
    /// Milliseconds until a connection is taken on to the broker.
    int delay = 0;
    /// Sees what the broker sends before the client does, may change it; false: the connection is cut
    /// instead.
    std::function<bool(QByteArray& fromBroker)> downstream;

    /// Ends all connections with a reset.
    void reset();
    /// Ends all connections towards the client in order.
    void close();

private:
    void accept();
    void forward(QTcpSocket* from, QTcpSocket* to, bool isDownstream);

    QTcpServer server;
    quint16 target;
    int connectionCount = 0;
};
