// SPDX-License-Identifier: MIT
// What a broker may say: the bytes are played to an engine that has just connected. With an odd first byte they replace
// the broker's acceptance, otherwise they follow it.
#include <flotrofobul/platform/logs/classlogs.h>
#include <flotrofobul/protoclient_t.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QEventLoop>
#include <QtCore/QTimer>
#include <QtNetwork/QTcpServer>
#include <QtNetwork/QTcpSocket>

#include <sys/socket.h>

#include <chrono>
#include <cstdint>

namespace {

using comunication::protoclient_t;

constexpr std::chrono::milliseconds longestInput{300};

QJsonObject fuzzConfiguration(quint16 port)
{
    return {
        {QStringLiteral("mqtt"),
         QJsonObject{{QStringLiteral("global"), QJsonObject{{QStringLiteral("installation_id"), QStringLiteral("1234")},
                                                            {QStringLiteral("port"), port},
                                                            {QStringLiteral("autoconnect"), false}}}}}};
}

// Resets the connection, so that thousands of them leave no port occupied.
void reset(QTcpSocket& socket)
{
    const linger abrupt{1, 0};
    setsockopt(static_cast<int>(socket.socketDescriptor()), SOL_SOCKET, SO_LINGER, &abrupt, sizeof abrupt);
    socket.abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static int argc = 1;
    static char name[] = "fuzz_broker";
    static char* argv[] = {name, nullptr};
    static QCoreApplication application(argc, argv);
    ::utility::logs::classlogs::getInstance()->setLevel(::utility::logs::fatal - 1);
    if (size == 0) {
        return 0;
    }
    QTcpServer broker;
    if (!broker.listen(QHostAddress::LocalHost)) {
        return 0;
    }
    QByteArray bytes(reinterpret_cast<const char*>(data) + 1, static_cast<int>(size) - 1);
    if (data[0] % 2 == 0) {
        bytes.prepend(QByteArray("\x20\x02\x00\x00", 4));
    }
    QEventLoop loop;
    auto* const engine = new protoclient_t(QStringLiteral("1"), fuzzConfiguration(broker.serverPort()),
                                           QStringLiteral("client@panel"), false);
    QObject::connect(engine, &comunication::protobase_t::onBrokerDisconnection, &loop, &QEventLoop::quit);
    QTcpSocket* peer = nullptr;
    QObject::connect(&broker, &QTcpServer::newConnection, &loop, [&] {
        peer = broker.nextPendingConnection();
        QObject::connect(peer, &QTcpSocket::readyRead, peer, [&] {
            peer->readAll();
            if (!bytes.isEmpty()) {
                peer->write(bytes);
                peer->flush();
                bytes.clear();
                // The end of the stream tells the engine that this was all. The other direction stays open:
                // libmosquitto 2.0.11 leaks a QoS 2 message whose answer it cannot write.
                ::shutdown(static_cast<int>(peer->socketDescriptor()), SHUT_WR);
            }
        });
    });
    QTimer::singleShot(longestInput, &loop, &QEventLoop::quit);
    engine->connect();
    loop.exec();
    if (peer != nullptr) {
        reset(*peer);
    }
    delete engine;
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    return 0;
}
