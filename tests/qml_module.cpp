// SPDX-License-Identifier: MIT
// The QML module at a real broker: the program that runs qml/tst_*.qml and does to the house what they ask for. With
// "--server" it is the server of that house, a process that can be frozen.
#include "support/log_recorder.h"

#include <flotrofobul/testkit/broker.h>
#include <flotrofobul/testkit/nodes.h>
#include <flotrofobul/testkit/observer.h>

#include <QtCore/QVariantMap>
#include <QtQml/QQmlContext>
#include <QtQml/QQmlEngine>
#include <QtQuickTest/quicktest.h>

using comunication::testkit::broker_t;
using comunication::testkit::child_t;
using comunication::testkit::houseAt;
using comunication::testkit::master_t;
using comunication::testkit::observer_t;

namespace {

const QString installation = "1234"_s;

/// A master that answers with its life and the wish: which of its lives it was tells an old answer from a new one.
int serve(int port, const QString& life)
{
    master_t server(houseAt(port, installation), "srv"_s);
    server.answer("request/DB/persistent"_s, [&](const QJsonObject& request) {
        return QJsonObject{{"life"_s, life}, {"wish"_s, request["payload"_l1]}};
    });
    server.connect();
    return QCoreApplication::exec();
}

} // namespace

/// "world" in QML.
class world_t : public QObject {
    Q_OBJECT
    Q_PROPERTY(QJsonObject configuration READ configuration CONSTANT)

public:
    ~world_t() override
    {
        if (server) {
            killServer();
        }
    }
    QJsonObject configuration() const { return houseAt(broker.port(), installation); }

public Q_SLOTS:
    bool startBroker() { return broker.start(); }
    void killBroker() { broker.kill(SIGKILL); }
    void startServer()
    {
        server = std::make_unique<child_t>();
        server->setProcessChannelMode(QProcess::ForwardedChannels);
        server->start(QCoreApplication::applicationFilePath(),
                      {"--server"_s, QString::number(broker.port()), QString::number(++life)});
    }
    void killServer()
    {
        server->signal(SIGKILL);
        server->waitForFinished();
    }
    void freezeServer() { server->signal(SIGSTOP); }
    void thawServer() { server->signal(SIGCONT); }
    /// What the server could say: destination and further levels of the topic.
    void say(const QString& topic, const QString& payload)
    {
        observer_t(broker.port()).publish("forward-bridge/local/1234/srv/"_s + topic, payload.toUtf8());
    }
    /// A master that hands over.
    void elect() { say("all_clients/master"_s, R"({"d":{"masterid":"srv"}})"_s); }
    bool startNeighbour() { return neighbour.start(); }
    bool hasBrokerSaid(const QString& words) const { return broker.output().contains(words.toUtf8()); }

    void qmlEngineAvailable(QQmlEngine* engine)
    {
        engine->addImportPath(QStringLiteral(QML_IMPORT_PATH));
        engine->rootContext()->setContextProperty("world"_s, this);
    }

private:
    broker_t neighbour;
    broker_t broker{"connection x-y-1-2\naddress 127.0.0.1:%1\nremote_clientid x-y-1-2\nrestart_timeout 1\n"
                    "topic local/1234/# out 2 forward-bridge/ remote-bridge/"_s.arg(neighbour.port())};
    std::unique_ptr<child_t> server;
    int life = 0;
};

int main(int argc, char** argv)
{
    if (argc > 3 && QByteArray(argv[1]) == "--server") {
        const QCoreApplication app(argc, argv);
        return serve(QByteArray(argv[2]).toInt(), QString::fromLatin1(argv[3]));
    }
    world_t world;
    return quick_test_main_with_setup(argc, argv, "qml_module", QUICK_TEST_SOURCE_DIR, &world);
}

#include "qml_module.moc"
