// SPDX-License-Identifier: MIT
// A broker that does what a test tells it, however wrong, and remembers what it was sent.
#pragma once

#include <QtCore/QPointer>
#include <QtCore/QVector>
#include <QtNetwork/QTcpServer>
#include <QtNetwork/QTcpSocket>

#include <functional>

enum packet_t {
    CONNECT = 1,
    CONNACK,
    PUBLISH,
    PUBACK,
    PUBREC,
    PUBREL,
    PUBCOMP,
    SUBSCRIBE,
    SUBACK,
    UNSUBSCRIBE,
    UNSUBACK,
    PINGREQ,
    PINGRESP,
    DISCONNECT
};

class fake_broker_t : public QObject {
    Q_OBJECT
public:
    fake_broker_t();

    /// Called for every packet before the ordinary answer; true: no ordinary answer.
    std::function<bool(int type, const QByteArray& body)> script;
    /// Called when somebody connects, before anything is read; true: nothing is read.
    std::function<bool()> greeting;

    quint16 port() const { return server.serverPort(); }
    QString host() const { return QStringLiteral("127.0.0.1"); }
    int connections() const { return connectionCount; }
    /// Types of the packets received over the newest connection.
    const QVector<int>& received() const { return types; }
    /// Bodies of all PUBLISH packets, over all connections.
    const QVector<QByteArray>& publications() const { return published; }
    bool hasClient() const { return client && client->state() == QTcpSocket::ConnectedState; }

    void send(const QByteArray& bytes);
    void send(int type, const QByteArray& body, int flags = 0);
    /// An ordinary message to the client.
    void sendMessage(const QByteArray& topic, const QByteArray& payload, int qos = 0, int mid = 1);
    /// Ends the connection in order, or with a reset.
    void close();
    void reset();

    static QByteArray encodedLength(int length);
    static QByteArray number(int value);

private:
    void accept();
    void read();
    void answer(int type, int flags, const QByteArray& body);

    QTcpServer server;
    QPointer<QTcpSocket> client;
    QByteArray buffer;
    QVector<int> types;
    QVector<QByteArray> published;
    int connectionCount = 0;
};
