// SPDX-License-Identifier: MIT
// The other side of a client's connection: a broker that does what a test tells it, however wrong, or a bad network
// before a real one.
#pragma once

#include <QtCore/QPointer>
#include <QtNetwork/QTcpServer>
#include <QtNetwork/QTcpSocket>

#include <sys/socket.h>

/// Serves one client at a time: a new connection takes the place of the one before.
class peer_t {
public:
    /// broker: the port that everything is handed on to, byte by byte on the way back; 0: answers by itself.
    explicit peer_t(quint16 broker = 0)
    {
        server.listen(QHostAddress::LocalHost);
        QObject::connect(&server, &QTcpServer::newConnection, [this, broker] { accept(broker); });
    }

    /// What it does instead of the ordinary answer, each once: "CONNECT 20020005" or "house/a !", a packet by its name
    /// or by something in it, and what act() understands; "ACCEPT" stands for the connection,
    /// over which nothing is read then.
    QStringList rules;
    qint64 passed = 0;    ///< bytes to the broker, as a proxy
    QStringList received; ///< names of the packets over the newest connection

    quint16 port() const { return server.serverPort(); }

    /// Sends bytes, if there are any, and then ends the connection in order (.) or with a reset (!).
    void act(const QString& bytes)
    {
        send(QByteArray::fromHex(bytes.toLatin1()));
        if (bytes.endsWith(u'.')) {
            client->disconnectFromHost();
        } else if (bytes.endsWith(u'!')) {
            const ::linger none{1, 0};
            ::setsockopt(static_cast<int>(client->socketDescriptor()), SOL_SOCKET, SO_LINGER, &none, sizeof none);
            client->abort();
        }
    }
    void send(const QByteArray& bytes)
    {
        if (client && client->state() == QTcpSocket::ConnectedState) {
            client->write(bytes);
            client->flush();
        }
    }

private:
    void accept(quint16 broker)
    {
        if (client) {
            client->waitForReadyRead(0); // what came before is answered
        }
        delete client;
        client = server.nextPendingConnection();
        client->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        received.clear();
        buffer.clear();
        if (obey(QStringLiteral("ACCEPT"), QByteArray())) {
            return;
        }
        if (broker == 0) {
            QObject::connect(client, &QTcpSocket::readyRead, [this] { read(); });
            return;
        }
        auto* const upstream = new QTcpSocket(client);
        upstream->connectToHost(QHostAddress::LocalHost, broker);
        client->setReadBufferSize(0x10000); // a large message takes many turns
        client->setSocketOption(QAbstractSocket::ReceiveBufferSizeSocketOption, 0x10000);
        QObject::connect(client, &QTcpSocket::readyRead, upstream,
                         [=] { passed += upstream->write(client->readAll()); });
        QObject::connect(client, &QTcpSocket::disconnected, upstream, &QTcpSocket::disconnectFromHost);
        QObject::connect(upstream, &QTcpSocket::disconnected, client, &QTcpSocket::disconnectFromHost);
        QObject::connect(upstream, &QTcpSocket::readyRead, [=] {
            while (upstream->bytesAvailable() > 0) {
                send(upstream->read(1));
            }
        });
    }

    // No packet to it is longer than 16383 bytes.
    void read()
    {
        const auto names = QStringLiteral("- CONNECT - PUBLISH PUBACK PUBREC PUBREL PUBCOMP SUBSCRIBE");
        for (buffer += client->readAll(); buffer.size() > 1;) {
            const int first = static_cast<uchar>(buffer[0]);
            const int head = (buffer[1] & 0x80) == 0 ? 2 : 3;
            const int length =
                (buffer[1] & 0x7f) + (head == 3 && buffer.size() > 2 ? static_cast<uchar>(buffer[2]) << 7 : 0);
            if (buffer.size() < head + length) {
                return;
            }
            const QByteArray body = buffer.mid(head, length);
            buffer.remove(0, head + length);
            received << names.section(u' ', first >> 4, first >> 4);
            const int id = body.size() < 2 ? 0 : 2 + body[1];         // follows the topic
            switch (obey(received.last(), body) ? 0 : first & 0xf6) { // without what tells a repeated or retained one
            case 0x10: send(QByteArray("\x20\2\0\0", 4)); break;
            case 0x32: send("\x40\2" + body.mid(id, 2)); break;
            case 0x34: send("\x50\2" + body.mid(id, 2)); break;
            case 0x62: send("\x70\2" + body); break;
            default: break;
            }
        }
    }

    bool obey(const QString& name, const QByteArray& body)
    {
        for (int i = 0; i < rules.size(); ++i) {
            const QString what = rules[i].section(u' ', 0, 0);
            if (what == name || body.contains(what.toLatin1())) {
                act(rules.takeAt(i).section(u' ', 1));
                return true;
            }
        }
        return false;
    }

    QPointer<QTcpSocket> client;
    QByteArray buffer;
    QTcpServer server;
};
