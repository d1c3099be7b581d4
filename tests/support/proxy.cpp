// SPDX-License-Identifier: MIT
#include "proxy.h"

#include <QtCore/QTimer>

proxy_t::proxy_t(quint16 target) : target(target)
{
    server.listen(QHostAddress::LocalHost);
    connect(&server, &QTcpServer::newConnection, this, &proxy_t::accept);
}

void proxy_t::accept()
{
    ++connectionCount;
    QTcpSocket* const client = server.nextPendingConnection();
    auto* const broker = new QTcpSocket(client);
    client->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    broker->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    connect(client, &QTcpSocket::readyRead, broker, [=] { forward(client, broker, false); });
    connect(broker, &QTcpSocket::connected, client, [=] { forward(client, broker, false); });
    connect(broker, &QTcpSocket::readyRead, client, [=] { forward(broker, client, true); });
    connect(broker, &QTcpSocket::disconnected, client, &QTcpSocket::disconnectFromHost);
    connect(client, &QTcpSocket::disconnected, broker, &QTcpSocket::disconnectFromHost);
    connect(client, &QTcpSocket::disconnected, client, &QObject::deleteLater);
    QTimer::singleShot(delay, broker, [=] { broker->connectToHost(host(), target); });
}

void proxy_t::forward(QTcpSocket* from, QTcpSocket* to, bool isDownstream)
{
    if (!isDownstream && to->state() != QTcpSocket::ConnectedState) {
        return;
    }
    QByteArray bytes = from->readAll();
    if (blackHole) {
        return;
    }
    if (isDownstream && downstream && !downstream(bytes)) {
        to->abort();
        return;
    }
    if (!trickle || !isDownstream) {
        to->write(bytes);
        return;
    }
    for (const char byte : qAsConst(bytes)) {
        to->write(&byte, 1);
        to->flush();
    }
}

void proxy_t::reset()
{
    for (QTcpSocket* const socket : server.findChildren<QTcpSocket*>(QString(), Qt::FindDirectChildrenOnly)) {
        socket->abort();
    }
}

void proxy_t::close()
{
    for (QTcpSocket* const socket : server.findChildren<QTcpSocket*>(QString(), Qt::FindDirectChildrenOnly)) {
        socket->disconnectFromHost();
    }
}
