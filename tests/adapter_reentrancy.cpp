// SPDX-License-Identifier: MIT
// A host may call anything, and delete the adapter, from within any signal and at any moment.
#include <flotrofobul/platform/mosquittopp/mosquittoqt.h>

#include <QtCore/QPointer>
#include <QtTest/QSignalSpy>
#include <QtTest/QTest>

#include <functional>

#include "support/broker.h"
#include "support/certificates.h"
#include "support/fake_broker.h"
#include "support/log_recorder.h"

using comunication::mosquittopp::mosquittoqt;

namespace {

using action_t = std::function<void(QPointer<mosquittoqt>&)>;

} // namespace

Q_DECLARE_METATYPE(action_t)

class adapter_reentrancy : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { QVERIFY(broker.start()); }
    void insideSignal_data();
    void insideSignal();
    void deletedWhile_data();
    void deletedWhile();

private:
    broker_t broker;
};

void adapter_reentrancy::insideSignal_data()
{
    QTest::addColumn<QByteArray>("signal");
    QTest::addColumn<action_t>("action");
    const quint16 port = broker.port();
    const QString host = broker.host();
    const QString topic = QStringLiteral("house/b");
    const QList<QPair<const char*, action_t>> actions = {
        {"publish QoS 0", [=](QPointer<mosquittoqt>& client) { client->publish(nullptr, topic, topic, 0, false); }},
        {"publish QoS 2", [=](QPointer<mosquittoqt>& client) { client->publish(nullptr, topic, topic, 2, false); }},
        {"subscribe", [=](QPointer<mosquittoqt>& client) { client->subscribe(nullptr, topic, 2); }},
        {"unsubscribe", [=](QPointer<mosquittoqt>& client) { client->unsubscribe(nullptr, topic); }},
        {"connect", [=](QPointer<mosquittoqt>& client) { client->connect_async(host, port, 60); }},
        {"connect and wait", [=](QPointer<mosquittoqt>& client) { client->connect_sync(host, port, 60); }},
        {"disconnect", [](QPointer<mosquittoqt>& client) { client->disconnect_sync(); }},
        {"disconnect and connect",
         [=](QPointer<mosquittoqt>& client) {
             client->disconnect_sync();
             client->connect_async(host, port, 60);
         }},
        {"delete", [](QPointer<mosquittoqt>& client) { delete client.data(); }},
        {"an event loop", [](QPointer<mosquittoqt>&) { QTest::qWait(5); }},
        {"an event loop that deletes",
         [](QPointer<mosquittoqt>& client) {
             client->deleteLater();
             QTest::qWait(5);
             QCoreApplication::sendPostedEvents(client, QEvent::DeferredDelete);
         }},
    };
    for (const char* const signal : {"onConnect(int)", "onConnect_with_flags(int,int)", "onDisconnect(int)",
                                     "onPublish(int)", "onMessage(int,QString,QString,int,int,bool)",
                                     "onSubscribe(int,int,const int*)", "onUnsubscribe(int)", "onLog(int,QString)"}) {
        for (const auto& action : actions) {
            QTest::addRow("%s: %s", signal, action.first) << QByteArray(signal) << action.second;
        }
    }
}

// Turns any signal into a call of a function.
class relay_t : public QObject {
    Q_OBJECT
public:
    std::function<void()> call;
public Q_SLOTS:
    void run() { call(); }
};

void adapter_reentrancy::insideSignal()
{
    QFETCH(QByteArray, signal);
    QFETCH(action_t, action);
    log_recorder_t log(::utility::logs::info);
    QPointer<mosquittoqt> client = new mosquittoqt(QStringLiteral("panel"), true, true);
    client->setLogging(true);
    int calls = 0;
    relay_t relay;
    relay.call = [&] {
        if (calls++ == 0) {
            action(client);
        }
    };
    QVERIFY(QObject::connect(client, QByteArray('2' + signal).constData(), &relay, SLOT(run())));
    const QString topic = QStringLiteral("house/a");
    // One life after the other, each slower than the one before, until the signal has come.
    for (int round = 0; client && round < 400 && (calls == 0 || round < 8); ++round) {
        QTest::qWait(round == 0 ? 0 : 1 + round / 8);
        switch (client ? round % 8 : -1) {
        case 0: client->connect_async(broker.host(), broker.port(), 60); break;
        case 2: client->subscribe(nullptr, topic, 2); break;
        case 3:
            client->publish(nullptr, topic, topic, 0, false);
            client->publish(nullptr, topic, topic, 2, false);
            break;
        case 5: client->unsubscribe(nullptr, topic); break;
        case 7: client->disconnect_sync(); break;
        default: break;
        }
    }
    QTRY_VERIFY(calls > 0);
    QTest::qWait(10);
    if (client) {
        client->disconnect_sync();
        QCOMPARE(client->connect_sync(broker.host(), broker.port(), 60), 0);
        QSignalSpy acknowledged(client, SIGNAL(onPublish(int)));
        int mid = 0;
        QCOMPARE(client->publish(&mid, topic, topic, 2, false), 0);
        QTRY_VERIFY(acknowledged.contains({mid}));
        delete client;
    }
}

void adapter_reentrancy::deletedWhile_data()
{
    QTest::addColumn<QString>("moment");
    for (const char* const moment :
         {"resolving", "dialling", "securing", "greeting", "connected", "waiting", "closing", "answered", "sending"}) {
        QTest::newRow(moment) << QString::fromLatin1(moment);
    }
}

void adapter_reentrancy::deletedWhile()
{
    QFETCH(QString, moment);
    log_recorder_t log(::utility::logs::info);
    static const certificates_t certificates;
    fake_broker_t fake;
    fake.greeting = [&] { return moment == QStringLiteral("greeting") || moment == QStringLiteral("securing"); };
    auto client = std::make_unique<mosquittoqt>(QStringLiteral("panel"), true, true);
    if (moment == QStringLiteral("securing")) {
        QCOMPARE(client->tls_set(certificates.authority(), QString(), QString(), QString()), 0);
    }
    const bool nobody = moment == QStringLiteral("waiting");
    client->connect_async(moment == QStringLiteral("resolving") ? QStringLiteral("nowhere.invalid") : fake.host(),
                          nobody ? freePort() : fake.port(), 60);
    if (moment == QStringLiteral("answered")) {
        // The answer lies in the queue, nobody has heard of it.
        fake.greeting = nullptr;
        client->connect_sync(broker.host(), broker.port(), 60);
    } else if (moment == QStringLiteral("connected") || moment == QStringLiteral("closing") ||
               moment == QStringLiteral("sending")) {
        QTRY_VERIFY(client->getConnected());
        if (moment != QStringLiteral("connected")) {
            client->publish(nullptr, QStringLiteral("a"), QString(30 << 20, QLatin1Char('x')), 2, false);
        }
        if (moment == QStringLiteral("closing")) {
            client->disconnect_sync();
        }
    } else if (moment != QStringLiteral("resolving") && moment != QStringLiteral("dialling")) {
        QTest::qWait(20);
    }
    client.reset();
    QTest::qWait(20);
}

QTEST_GUILESS_MAIN(adapter_reentrancy)
#include "adapter_reentrancy.moc"
