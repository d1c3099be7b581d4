// SPDX-License-Identifier: MIT
#include "fake_broker.h"

fake_broker_t::fake_broker_t()
{
    server.listen(QHostAddress::LocalHost);
    connect(&server, &QTcpServer::newConnection, this, &fake_broker_t::accept);
}

void fake_broker_t::accept()
{
    if (client) {
        client->disconnect(this);
        client->abort();
        client->deleteLater();
    }
    client = server.nextPendingConnection();
    client->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    buffer.clear();
    types.clear();
    ++connectionCount;
    if (!greeting || !greeting()) {
        connect(client, &QTcpSocket::readyRead, this, &fake_broker_t::read);
    }
}

void fake_broker_t::read()
{
    buffer += client->readAll();
    for (;;) {
        int length = 0;
        int used = 1;
        int shift = 0;
        do {
            if (buffer.size() <= used) {
                return;
            }
            length |= (buffer[used] & 0x7f) << shift;
            shift += 7;
        } while (buffer[used++] & 0x80);
        if (buffer.size() < used + length) {
            return;
        }
        const int type = static_cast<unsigned char>(buffer[0]) >> 4;
        const int flags = buffer[0] & 0x0f;
        const QByteArray body = buffer.mid(used, length);
        buffer.remove(0, used + length);
        types += type;
        if (type == PUBLISH) {
            published += body;
        }
        if (!script || !script(type, body)) {
            answer(type, flags, body);
        }
    }
}

void fake_broker_t::answer(int type, int flags, const QByteArray& body)
{
    const int topicLength =
        body.size() < 2 ? 0 : (static_cast<unsigned char>(body[0]) << 8) + static_cast<unsigned char>(body[1]);
    const int qos = (flags >> 1) & 3;
    switch (type) {
    case CONNECT: send(CONNACK, QByteArray(2, '\0')); break;
    case PUBLISH:
        if (qos > 0) {
            send(qos == 1 ? PUBACK : PUBREC, body.mid(2 + topicLength, 2));
        }
        break;
    case PUBREC: send(PUBREL, body, 2); break;
    case PUBREL: send(PUBCOMP, body); break;
    case SUBSCRIBE: send(SUBACK, body.left(2) + body.right(1)); break;
    case UNSUBSCRIBE: send(UNSUBACK, body.left(2)); break;
    case PINGREQ: send(PINGRESP, QByteArray()); break;
    default: break;
    }
}

QByteArray fake_broker_t::encodedLength(int length)
{
    QByteArray bytes;
    do {
        const int rest = length / 128;
        bytes.append(static_cast<char>(length % 128 | (rest ? 0x80 : 0)));
        length = rest;
    } while (length);
    return bytes;
}

QByteArray fake_broker_t::number(int value)
{
    const char bytes[] = {static_cast<char>(value >> 8), static_cast<char>(value)};
    return QByteArray(bytes, sizeof bytes);
}

void fake_broker_t::send(const QByteArray& bytes)
{
    if (QTcpSocket* const socket = client) {
        socket->write(bytes);
    }
}

void fake_broker_t::send(int type, const QByteArray& body, int flags)
{
    QByteArray bytes(1, static_cast<char>(type << 4 | flags));
    bytes.append(encodedLength(body.size()));
    bytes.append(body);
    send(bytes);
}

void fake_broker_t::sendMessage(const QByteArray& topic, const QByteArray& payload, int qos, int mid)
{
    QByteArray body = number(topic.size());
    body.append(topic);
    if (qos > 0) {
        body.append(number(mid));
    }
    body.append(payload);
    send(PUBLISH, body, qos << 1);
}

void fake_broker_t::close()
{
    if (QTcpSocket* const socket = client) {
        socket->disconnectFromHost();
    }
}

void fake_broker_t::reset()
{
    if (QTcpSocket* const socket = client) {
        socket->abort();
    }
}
