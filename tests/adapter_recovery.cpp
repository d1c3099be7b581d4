// SPDX-License-Identifier: MIT
// Connections that are lost, and messages that must not be.
#include <flotrofobul/platform/mosquittopp/mosquittoqt.h>

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QSet>
#include <QtTest/QSignalSpy>
#include <QtTest/QTest>

#include <signal.h>

#include "support/broker.h"
#include "support/certificates.h"
#include "support/fake_broker.h"
#include "support/log_recorder.h"
#include "support/loop_watch.h"
#include "support/proxy.h"

using comunication::mosquittopp::mosquittoqt;

namespace {

struct client_t : mosquittoqt {
    explicit client_t(const QString& id = QStringLiteral("panel"), bool clean = true) : mosquittoqt(id, clean, true)
    {
        QObject::connect(this, &mosquittoqt::onConnect, [this](int rc) { connects += rc; });
        QObject::connect(this, &mosquittoqt::onDisconnect, [this](int rc) { disconnects += rc; });
        QObject::connect(this, &mosquittoqt::onPublish, [this](int mid) { acknowledged += mid; });
        QObject::connect(this, &mosquittoqt::onMessage,
                         [this](int, const QString&, const QString& text) { texts += text; });
    }
    int say(const QString& text, int qos = 2, const QString& topic = QStringLiteral("house/a"))
    {
        int mid = 0;
        publish(&mid, topic, text, qos, false);
        return mid;
    }

    QList<int> connects;
    QList<int> disconnects;
    QList<int> acknowledged;
    QStringList texts;
};

qint64 residentBytes()
{
    QFile file(QStringLiteral("/proc/self/statm"));
    return file.open(QIODevice::ReadOnly) ? file.readAll().split(' ').value(1).toLongLong() * 4096 : 0;
}

int openDescriptors()
{
    return QDir(QStringLiteral("/proc/self/fd")).entryList(QDir::NoDotAndDotDot | QDir::System | QDir::Files).size();
}

QByteArray topicOf(const QByteArray& publication)
{
    return publication.mid(2, static_cast<unsigned char>(publication[1]));
}

} // namespace

class adapter_recovery : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void lostUnderLoad_data();
    void lostUnderLoad();
    void silentBroker();
    void interruptedMessage_data();
    void interruptedMessage();
    void poison();
    void nobodyThere();
    void moreThanIds();
    void twoWithOneId();
    void manyReconnections_data();
    void manyReconnections();
};

void adapter_recovery::lostUnderLoad_data()
{
    QTest::addColumn<QString>("fault");
    QTest::addColumn<bool>("clean");
    for (const char* const fault : {"SIGKILL", "SIGTERM", "reset", "end", "cut in a packet", "corrupted"}) {
        QTest::addRow("%s", fault) << QString::fromLatin1(fault) << true;
        QTest::addRow("%s, session kept", fault) << QString::fromLatin1(fault) << false;
    }
}

void adapter_recovery::lostUnderLoad()
{
    QFETCH(QString, fault);
    QFETCH(bool, clean);
    broker_t broker;
    QVERIFY(broker.start());
    proxy_t proxy(broker.port());
    log_recorder_t log(::utility::logs::info);
    client_t client(QStringLiteral("panel"), clean);
    client_t observer(QStringLiteral("observer"));
    const bool brokerDies = fault.startsWith(QStringLiteral("SIG"));
    // libmosquitto 2.0.11 leaks a message whose PUBCOMP meets a dead broker.
    if (!brokerDies) {
        QCOMPARE(observer.connect_sync(broker.host(), broker.port(), 60), 0);
        QCOMPARE(observer.subscribe(nullptr, QStringLiteral("house/#"), 2), 0);
    }
    client.connect_async(proxy.host(), proxy.port(), 60);
    QTRY_COMPARE(client.connects, QList<int>{0});
    QTest::qWait(20);

    QSet<int> mids;
    const auto sayHundred = [&] {
        for (int i = 0; i < 100; ++i) {
            mids += client.say(QString::number(mids.size()));
        }
    };
    sayHundred();
    QTRY_VERIFY(client.acknowledged.size() > 10);
    loop_watch_t watch;
    if (brokerDies) {
        broker.kill(fault == QStringLiteral("SIGKILL") ? SIGKILL : SIGTERM);
    } else if (fault == QStringLiteral("reset")) {
        proxy.reset();
    } else if (fault == QStringLiteral("end")) {
        proxy.close();
    } else {
        bool done = false;
        proxy.downstream = [done, fault](QByteArray& bytes) mutable {
            if (!done && fault == QStringLiteral("corrupted")) {
                bytes[0] = '\xf1';
                done = true;
            } else if (!done) {
                bytes.chop(1);
                done = true;
            } else if (fault != QStringLiteral("corrupted")) {
                return false;
            }
            return true;
        };
    }
    sayHundred();
    QTRY_COMPARE(client.disconnects.size(), 1);
    proxy.downstream = nullptr;
    if (brokerDies) {
        QVERIFY(broker.start());
    }
    QElapsedTimer clock;
    clock.start();
    QTRY_COMPARE_WITH_TIMEOUT(client.connects.size(), 2, 2000);
    QVERIFY2(clock.elapsed() < 2000, QByteArray::number(clock.elapsed()));
    QTRY_COMPARE(client.acknowledged.size(), 200);
    QCOMPARE(QSet<int>(client.acknowledged.begin(), client.acknowledged.end()), mids);
    QCOMPARE(client.disconnects.size(), 1);
    QCOMPARE(log.count(QStringLiteral("lost: ")), 1);
    if (!brokerDies) {
        QVERIFY2(watch.longestGap() < 50, QByteArray::number(watch.longestGap()));
        QTRY_VERIFY(QSet<QString>(observer.texts.begin(), observer.texts.end()).size() == 200);
        if (!clean) {
            QCOMPARE(observer.texts.size(), 200);
        }
    }
}

void adapter_recovery::silentBroker()
{
    broker_t stopped;
    broker_t other;
    QVERIFY(stopped.start() && other.start());
    proxy_t proxy(other.port());
    client_t idle(QStringLiteral("idle"));
    client_t busy(QStringLiteral("busy"));
    client_t cut(QStringLiteral("cut"));
    QCOMPARE(idle.connect_sync(stopped.host(), stopped.port(), 5), 0);
    QCOMPARE(busy.connect_sync(stopped.host(), stopped.port(), 5), 0);
    QCOMPARE(cut.connect_async(proxy.host(), proxy.port(), 5), 0);
    QTRY_VERIFY(cut.getConnected());
    stopped.kill(SIGSTOP);
    proxy.blackHole = true;
    // As much as the kernel takes and more.
    const QString large(100000, QLatin1Char('x'));
    for (int i = 0; i < 40; ++i) {
        busy.say(large, 1);
    }
    loop_watch_t watch;
    for (client_t* const client : {&idle, &busy, &cut}) {
        QTRY_COMPARE_WITH_TIMEOUT(client->disconnects, QList<int>{19}, 12000);
    }
    QVERIFY2(watch.longestGap() < 50, QByteArray::number(watch.longestGap()));
    QVERIFY2(watch.load() < 5, QByteArray::number(watch.load()));
    stopped.kill(SIGCONT);
    proxy.blackHole = false;
    for (client_t* const client : {&idle, &busy, &cut}) {
        QTRY_VERIFY_WITH_TIMEOUT(client->getConnected(), 12000);
    }
    QTRY_COMPARE(busy.acknowledged.size(), 40);
}

void adapter_recovery::interruptedMessage_data()
{
    QTest::addColumn<int>("answered");
    QTest::addColumn<int>("qos");
    QTest::addColumn<bool>("clean");
    QTest::addColumn<bool>("remembered");
    QTest::addColumn<QList<int>>("second");
    const QList<int> again = {CONNECT, PUBLISH};
    QTest::newRow("before PUBACK") << int(CONNECT) << 1 << true << false << again;
    QTest::newRow("before PUBREC") << int(CONNECT) << 2 << true << false << again + QList<int>{PUBREL};
    QTest::newRow("after PUBREC, clean") << int(PUBLISH) << 2 << true << false << again + QList<int>{PUBREL};
    QTest::newRow("after PUBREC, session kept") << int(PUBLISH) << 2 << false << true << QList<int>{CONNECT, PUBREL};
    QTest::newRow("before PUBREC, session kept") << int(CONNECT) << 2 << false << true << again + QList<int>{PUBREL};
    QTest::newRow("after PUBREC, session forgotten")
        << int(PUBLISH) << 2 << false << false << again + QList<int>{PUBREL};
}

void adapter_recovery::interruptedMessage()
{
    QFETCH(int, answered);
    QFETCH(int, qos);
    QFETCH(bool, clean);
    QFETCH(bool, remembered);
    fake_broker_t broker;
    bool cutDone = false;
    broker.script = [&](int type, const QByteArray&) {
        if (type == CONNECT) {
            broker.send(CONNACK,
                        broker.connections() > 1 && remembered ? QByteArray("\x01\x00", 2) : QByteArray(2, '\0'));
            return true;
        }
        const bool cut = !cutDone && (type == PUBREL || (type == PUBLISH && answered == CONNECT));
        if (cut) {
            cutDone = true;
            broker.close();
        }
        return cut;
    };
    client_t client(QStringLiteral("panel"), clean);
    client.connect_async(broker.host(), broker.port(), 60);
    QTRY_VERIFY(client.getConnected());
    QCOMPARE(client.say(QStringLiteral("x"), qos), 1);
    QTRY_VERIFY_WITH_TIMEOUT(!client.acknowledged.isEmpty(), 3000);
    QTest::qWait(20);
    QCOMPARE(client.acknowledged, QList<int>{1});
    QCOMPARE(client.disconnects, QList<int>{7});
    QCOMPARE(client.connects, (QList<int>{0, 0}));
    QTEST(broker.received().toList(), "second");
}

void adapter_recovery::poison()
{
    log_recorder_t log(::utility::logs::info);
    fake_broker_t brokers[2];
    client_t forgetful(QStringLiteral("forgetful"), true);
    client_t keeping(QStringLiteral("keeping"), false);
    client_t* const clients[] = {&forgetful, &keeping};
    for (int i = 0; i < 2; ++i) {
        fake_broker_t& broker = brokers[i];
        broker.script = [&broker](int type, const QByteArray& body) {
            const bool isPoison = type == PUBLISH && topicOf(body) == "poison";
            if (isPoison) {
                broker.close();
            }
            return isPoison || !broker.hasClient();
        };
        clients[i]->connect_async(broker.host(), broker.port(), 60);
        QTRY_VERIFY(clients[i]->getConnected());
        clients[i]->say(QStringLiteral("before"));
        clients[i]->say(QStringLiteral("x"), 2, QStringLiteral("poison"));
        for (int n = 0; n < 5; ++n) {
            clients[i]->say(QString::number(n));
        }
    }
    for (int i = 0; i < 2; ++i) {
        QTRY_COMPARE_WITH_TIMEOUT(clients[i]->acknowledged.size(), 6, 12000);
        QVERIFY(!clients[i]->acknowledged.contains(2));
        const auto& all = brokers[i].publications();
        QCOMPARE(std::count_if(all.begin(), all.end(), [](const QByteArray& one) { return topicOf(one) == "poison"; }),
                 3);
    }
    QCOMPARE(log.count(QStringLiteral("the broker closes the connection at it: poison")), 2);
}

void adapter_recovery::nobodyThere()
{
    broker_t broker;
    log_recorder_t log(::utility::logs::info);
    client_t client;
    client.connect_async(broker.host(), broker.port(), 60);
    const QString text(240, QLatin1Char('x'));
    [[maybe_unused]] const qint64 before = residentBytes();
    QElapsedTimer clock;
    clock.start();
    for (int i = 0; i < 100000; ++i) {
        QVERIFY(client.say(i < 99999 ? text : QStringLiteral("last")) > 0);
    }
    QVERIFY2(clock.elapsed() < 2000, QByteArray::number(clock.elapsed()));
#ifndef __SANITIZE_ADDRESS__
    QVERIFY2(residentBytes() - before < 8 << 20, QByteArray::number(residentBytes() - before));
#endif
    QCOMPARE(log.count(QStringLiteral("Outbox is full")), 1);
    int mid = 5;
    QCOMPARE(client.publish(&mid, QStringLiteral("a"), QString(9 << 20, QLatin1Char('x')), 0, false), 9);
    QCOMPARE(mid, 0);
    QCOMPARE(client.subscribe(&mid, QStringLiteral("a"), 0), 4);

    QVERIFY(broker.start());
    QTRY_COMPARE_WITH_TIMEOUT(client.acknowledged.size(), 1000, 4000);
    QCOMPARE(log.count(QStringLiteral("Messages dropped from the full outbox: 99000")), 1);
}

void adapter_recovery::moreThanIds()
{
    broker_t broker(QStringLiteral("max_queued_messages 0\n"));
    QVERIFY(broker.start());
    log_recorder_t log(::utility::logs::info);
    client_t client;
    client.setOutboxLimits(1000, 64 << 20);
    QCOMPARE(client.connect_sync(broker.host(), broker.port(), 60), 0);
    broker.kill(SIGSTOP);
    QElapsedTimer clock;
    clock.start();
    for (int i = 0; i < 70000; ++i) {
        QVERIFY(client.say(QStringLiteral("x"), 1) > 0);
    }
    QVERIFY2(clock.elapsed() < 2000, QByteArray::number(clock.elapsed()));
    loop_watch_t watch;
    broker.kill(SIGCONT);
    QTRY_COMPARE_WITH_TIMEOUT(client.acknowledged.size(), 65020, 60000);
    QCOMPARE(QSet<int>(client.acknowledged.begin(), client.acknowledged.end()).size(), 65020);
    QCOMPARE(client.disconnects.size(), 0);
    QCOMPARE(log.count(QStringLiteral("Outbox is full")), 1);
    QVERIFY2(watch.longestGap() < 50, QByteArray::number(watch.longestGap()));
}

void adapter_recovery::twoWithOneId()
{
    broker_t broker;
    QVERIFY(broker.start());
    log_recorder_t log(::utility::logs::info);
    client_t first;
    client_t second;
    first.connect_async(broker.host(), broker.port(), 60);
    second.connect_async(broker.host(), broker.port(), 60);
    QTRY_VERIFY_WITH_TIMEOUT(log.count(QStringLiteral("another node probably uses the client id panel")) >= 1, 15000);
    QVERIFY(first.connects.size() + second.connects.size() < 12);
}

void adapter_recovery::manyReconnections_data()
{
    QTest::addColumn<bool>("secure");
    QTest::newRow("plain") << false;
    QTest::newRow("TLS") << true;
}

void adapter_recovery::manyReconnections()
{
    QFETCH(bool, secure);
    const certificates_t certificates;
    broker_t broker(secure ? certificates.listener(QStringLiteral("good")) : QString());
    QVERIFY(broker.start());
    client_t client;
    if (secure) {
        QCOMPARE(client.tls_set(certificates.authority(), QString(), QString(), QString()), 0);
    }
    QSignalSpy acknowledged(&client, SIGNAL(onPublish(int)));
    [[maybe_unused]] qint64 memory = 0; // a sanitizer keeps freed memory
    int descriptors = 0;
    for (int i = 0; i < 1000; ++i) {
        QCOMPARE(client.connect_sync(QStringLiteral("127.0.0.1"), broker.port(), 60), 0);
        client.say(QStringLiteral("x"), 1);
        QVERIFY(acknowledged.wait());
        QCOMPARE(client.disconnect_sync(), 0);
        if (i == 100) {
            memory = residentBytes();
            descriptors = openDescriptors();
        }
    }
    QCOMPARE(openDescriptors(), descriptors);
#ifndef __SANITIZE_ADDRESS__
    QVERIFY2(residentBytes() - memory < 256 * 1024, QByteArray::number(residentBytes() - memory));
#endif
}

QTEST_GUILESS_MAIN(adapter_recovery)
#include "adapter_recovery.moc"
