// SPDX-License-Identifier: MIT
// Connections that are lost, messages that must not be, and brokers that do not keep to the protocol.
#include "support/certificates.h"
#include "support/client.h"
#include "support/peer.h"

#include <flotrofobul/testkit/broker.h>

#include <QtCore/QAbstractEventDispatcher>

#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <thread>

using comunication::testkit::broker_t;

static std::atomic<int> skipped{0}; // seconds

// The clock of this process and its libraries, in place of the C library's: so a second goes by without waiting.
extern "C" __attribute__((visibility("default"))) int clock_gettime(clockid_t clock, timespec* time) noexcept
{
    const long rc = syscall(SYS_clock_gettime, clock, time);
    time->tv_sec += clock == CLOCK_MONOTONIC ? skipped.load() : 0;
    return static_cast<int>(rc);
}

class adapter_recovery : public QObject {
    Q_OBJECT

    // "x *3": three times x.
    static QStringList repeated(const QString& text)
    {
        return QVector<QString>(std::max(text.section(u'*', 1).toInt(), 1), text.section(u'*', 0, 0).trimmed())
            .toList();
    }

private Q_SLOTS:
    // name | what the network does | session
    void lostUnderLoad_data()
    {
        addRows(R"(
broker killed   | -    | clean
end             | .    | clean
garbage         | f100 | clean
reset           | !    | kept
end in a packet | 40.  | kept
)");
    }

    void lostUnderLoad()
    {
        QFETCH(QStringList, cells);
        const bool brokerDies = cells[1] == "-"_s;
        const bool clean = cells[2] == "clean"_s;
        broker_t broker;
        QVERIFY(broker.start());
        log_recorder_t log(::utility::logs::info);
        peer_t network(broker.port());
        client_t observer;
        observer.setClientId("observer"_s);
        QVERIFY(observer.joins(broker.port()));
        observer.subscribe(nullptr, "house/#"_s, 2);
        client_t client(clean);
        QVERIFY(client.joins(network.port()));

        QSet<int> mids;
        const auto sayHundred = [&] {
            for (int i = 0; i < 100; ++i) {
                mids << client.say(QString::number(mids.size()));
            }
        };
        client.setOutboxLimits(1, 1); // which hold for a link that is down
        sayHundred();
        client.setOutboxLimits(1000, 100000);
        // Where the broker dies, the next messages meet a dead socket, not a full window.
        QTRY_VERIFY(client.acknowledged.size() > (brokerDies ? 99 : 10));
        brokerDies ? broker.kill(SIGKILL) : network.act(cells[1]);
        sayHundred();
        QTRY_COMPARE(client.losses.size(), 1);
        QVERIFY(!brokerDies || broker.start());
        QTRY_COMPARE_WITH_TIMEOUT(client.connects.size(), 2, 2000);
        QTRY_COMPARE(client.acknowledged.size(), 200);
        QCOMPARE(QSet<int>(client.acknowledged.begin(), client.acknowledged.end()), mids);
        QCOMPARE(client.losses.size(), 1);
        QCOMPARE(log.count("lost: "_s), brokerDies ? 2 : 1); // the observer's too
        QTRY_VERIFY(brokerDies || QSet<QString>(observer.messages.begin(), observer.messages.end()).size() == 200);
        QVERIFY(clean || observer.messages.size() == 200);
    }

    void silentBroker()
    {
        broker_t broker;
        QVERIFY(broker.start());
        client_t idle;
        client_t busy;
        busy.setClientId("busy"_s);
        QVERIFY(idle.joins(broker.port(), 5) && busy.joins(broker.port(), 5));
        broker.kill(SIGSTOP);
        for (int i = 0; i < 40; ++i) { // as much as the kernel takes and more
            busy.say(QString(100000, u'x'), 1);
        }
        const loop_watch_t watch;
        QTRY_COMPARE_WITH_TIMEOUT(idle.losses + busy.losses, QList<int>({19, 19}), 15000);
        QVERIFY(watch.wasCalm(300, 1000));
        broker.kill(SIGCONT);
        QTRY_VERIFY_WITH_TIMEOUT(idle.getConnected() && busy.acknowledged.size() == 40, 15000);
    }

    // name | qos and messages | what the broker does | losses | last packets | part of the log
    void faultyBroker_data()
    {
        addRows(R"(
before PUBACK       | 1 x       | PUBLISH .                   | 7     | CONNECT PUBLISH        | broker has closed it
after PUBREC        | 2 x       | PUBREL .                    | 7     | CONNECT PUBLISH PUBREL | broker has closed it
before PUBREC, kept | 2 x       | PUBLISH ., CONNECT 20020100 | 7     | CONNECT PUBLISH PUBREL |
after PUBREC, kept  | 2 x       | PUBREL ., CONNECT 20020100  | 7     | CONNECT PUBREL         |
kept and forgotten  | 2 x       | PUBREL ., CONNECT 20020000  | 7     | CONNECT PUBLISH PUBREL | forgotten the session
poison              | 2 x bad x | bad . *12                    | 7 *12 | CONNECT PUBLISH PUBREL | at it: house/a
bad network         | 2 x       | PUBLISH ! *5                | 7 *5  | CONNECT PUBLISH PUBREL |
answers to nobody   | 1 x       | PUBLISH 340600016100014134060001610002413406000161000341. | 7 | CONNECT PUBLISH | broker has closed it
half a packet       | 1 x       | PUBLISH 3010.               | 14    | CONNECT PUBLISH        | middle of a packet
no QoS 2            | 2 x       | PUBLISH 40020001            | 2     | CONNECT PUBLISH PUBREL | does not speak QoS 2
no QoS 2, kept      | 2 x       | PUBLISH 40020001 *2, CONNECT 20020100 *2 | 2 *2 | CONNECT PUBLISH PUBREL | does not speak QoS 2 *2
reserved type       | 1 x       | PUBLISH f000                | 2     | CONNECT PUBLISH        | protocol does not know
no UTF-8            | 1 x       | PUBLISH 30040002c328        | 18    | CONNECT PUBLISH        | protocol does not know
late refusal        | 1 x       | PUBLISH 20020005            | 5     | CONNECT PUBLISH        | connection was refused
accepted twice      | 1 x       | PUBLISH 2002000040020001    |       | CONNECT PUBLISH        |
nobody's PUBACK     | 1 x       | PUBLISH 4002123440020001    |       | CONNECT PUBLISH        |
nobody's SUBACK     | 1 x       | PUBLISH 900312340040020001  |       | CONNECT PUBLISH        | nobody made: 4660
)");
    }

    // With a client that is back at once, in a clean session or in one that is kept.
    void faultyBroker()
    {
        QFETCH(QStringList, cells);
        log_recorder_t log(::utility::logs::info);
        peer_t peer;
        peer.rules << "CONNECT 20020000"_s;
        for (const QString& rule : cells[2].split(", "_s)) {
            peer.rules << repeated(rule);
        }
        client_t client(!cells[0].contains("kept"_s));
        if (cells[0].startsWith("poison"_l1)) { // whose lines come while the link puts itself in order
            log.also = [&] { client.withdraw(client.say("y"_s)); };
        }
        QVERIFY(client.joins(peer.port()));
        connect(&client, &client_t::onDisconnect, [&] { client.dial(peer.port()); });
        QList<int> good;
        for (const QString& text : cells[1].mid(2).split(u' ')) {
            const int mid = client.say(text, cells[1].left(1).toInt());
            good << (text == "bad"_s ? QList<int>() : QList<int>{mid});
        }
        QTRY_COMPARE(client.acknowledged, good);
        QTest::qWait(20);
        QCOMPARE(client.acknowledged, good);
        const QStringList losses = cells[3].isEmpty() ? QStringList() : repeated(cells[3]);
        QCOMPARE(client.losses, QVector<int>(losses.size(), losses.value(0).toInt()).toList());
        QCOMPARE(client.connects.count(0), losses.size() + 1);
        QCOMPARE(peer.received.join(u' '), cells[4]);
        QCOMPARE(log.count("lost: "_s), losses.size());
        const QStringList words = repeated(cells[5]);
        QVERIFY2(words[0].isEmpty() || log.count(words[0]) >= words.size(), qPrintable(log.lines.join(u'\n')));
    }

    // Of some messages the broker has only the first half: they use up its quota until it is told to forget them.
    void leftBehind()
    {
        broker_t broker;
        client_t observer;
        observer.setClientId("observer"_s);
        QVERIFY(broker.start() && observer.joins(broker.port()));
        observer.subscribe(nullptr, "house/#"_s, 2);
        for (const char* const life : {"first", "second"}) {
            client_t client(false);
            QVERIFY(client.joins(broker.port()));
            for (int i = 0; i < 20; ++i) {
                client.say(QLatin1String(life));
            }
            QTest::qSleep(50); // the first reads no answer
            QTRY_VERIFY(life[0] == 'f' || client.acknowledged.size() == 20);
        }
        QTRY_COMPARE(observer.messages.filter("second"_s).size(), 20);
    }

    void packetIdAgain_data()
    {
        QTest::addColumn<int>("idLength");
        for (const int length : {5, 499}) {
            QTest::addRow("id of %d bytes", length) << length;
        }
    }
    // A message that was cut off must not come in place of the next one with its packet id.
    void packetIdAgain()
    {
        QFETCH(const int, idLength);
        peer_t peer;
        peer.rules << "CONNECT 200200003406000161000141"_s
                   << "PUBREC ."_s << repeated("CONNECT 200201003c06000161000141 *2"_s);
        for (const QString& next : {"3406000161000142"_s, "3406000161000143"_s, ""_s}) {
            peer.rules << "PUBREC 62020001"_s << QString("PUBCOMP "_l1 + next);
        }
        client_t client(false);
        client.setClientId(QString(idLength, u'x'));
        connect(&client, &client_t::onDisconnect, [&] { client.dial(peer.port()); });
        QVERIFY(client.joins(peer.port()));
        QTRY_VERIFY(peer.rules.isEmpty());
        QCOMPARE(client.messages, QStringList({"a 1 2 0 A"_s, "a 1 2 0 B"_s, "a 1 2 0 C"_s}));
    }

    // The same where an answer to the host's own message is awaited, so that the library keeps what came twice.
    void packetIdAgainWhileSending()
    {
        peer_t peer;
        peer.rules << "CONNECT 200200003406000161000141"_s
                   << "PUBREC ."_s
                   << "CONNECT 20020100"_s
                   << "PUBLISH 3c06000161000141"_s
                   << "PUBREC 62020001"_s
                   << "PUBCOMP 3406000161000142"_s
                   << "PUBREC 62020001"_s
                   << "CONNECT 2002010062020001"_s;
        client_t client(false);
        connect(&client, &client_t::onDisconnect, [&] {
            client.say("x"_s);
            client.dial(peer.port());
        });
        QVERIFY(client.joins(peer.port()));
        QTRY_VERIFY(client.messages.filter("B"_s).size() == 1 && peer.rules.isEmpty());
        QCOMPARE(client.messages, QStringList({"a 1 2 0 A"_s, "a 1 2 0 B"_s}));
    }

    // A broker may repeat the newer message before it releases the older.
    void repeatedFirst()
    {
        peer_t peer;
        peer.rules << "CONNECT 2002000034060001610001413406000161000242"_s
                   << "PUBREC "_s
                   << "PUBREC ."_s
                   << "CONNECT 200201003c0600016100024262020001"_s
                   << "PUBREC 62020002"_s;
        client_t client(false);
        connect(&client, &client_t::onDisconnect, [&] { client.dial(peer.port()); });
        QVERIFY(client.joins(peer.port()));
        QTRY_COMPARE(client.messages, QStringList({"a 1 2 0 A"_s, "a 1 2 0 B"_s}));
    }

    // A message that is released comes, also where the connection ends before that can be confirmed.
    void releasedAndReset()
    {
        peer_t peer;
        peer.rules << "CONNECT 200200003406000161000141"_s
                   << "PUBREC 62020001!"_s;
        client_t client;
        QVERIFY(client.joins(peer.port()));
        QTRY_COMPARE(client.losses.size(), 1);
        QCOMPARE(client.messages, QStringList{"a 1 2 0 A"_s});
    }

    // The answers of the broker wait where a slow host has not looked.
    void slowHost()
    {
        broker_t broker;
        client_t client;
        QVERIFY(broker.start() && client.joins(broker.port(), 5));
        client.subscribe(nullptr, "house/#"_s, 0);
        connect(&client, &client_t::onMessage, [] {
            QTest::qSleep(15); // a turn of its own, in which the broker can answer
            skipped += 2;
        });
        for (int i = 0; i < 20; ++i) {
            client.say("x"_s, 0);
        }
        QTRY_VERIFY_WITH_TIMEOUT(client.messages.size() == 20 || !client.losses.isEmpty(), 60000);
        QVERIFY(client.losses.isEmpty());
    }

    void slowNetwork_data() { addRows("up\ndown"); }

    // While bytes move the link is alive, however long a message takes.
    void slowNetwork()
    {
        QFETCH(QStringList, cells);
        const bool up = cells[0] == "up"_s;
        broker_t broker;
        QVERIFY(broker.start());
        peer_t peer(up ? broker.port() : 0);
        client_t client;
        QVERIFY(client.joins(peer.port(), 5));
        up ? void(client.say(QString(16 << 20, u'x'))) : peer.act("30808004000161"_s); // 65,536 bytes will follow
        int turns = 0;
        qint64 seconds = 0;
        connect(QAbstractEventDispatcher::instance(), &QAbstractEventDispatcher::awake, &client, [&] {
            QTest::qSleep(1);
            // A second for each megabyte, or for each few thousand bytes.
            const bool later = (up ? peer.passed >> 20 : ++turns / 16) > seconds;
            seconds += later;
            skipped += later;
            peer.send(QByteArray(up ? 0 : 300, 'x'));
        });
        QTRY_VERIFY_WITH_TIMEOUT(client.acknowledged.size() + client.messages.size() + client.losses.size() > 0,
                                 600000);
        QVERIFY(client.losses.isEmpty());
    }

    // Who leaves before the broker has answered does so in order: nobody is to hear its last will.
    void leftEarly()
    {
        broker_t broker;
        QVERIFY(broker.start());
        peer_t peer(broker.port());
        client_t client;
        const auto leave = [&] { peer.passed > 0 && client.disconnect_sync(); };
        connect(QAbstractEventDispatcher::instance(), &QAbstractEventDispatcher::awake, &client, leave);
        QCOMPARE(client.dial(peer.port()), 0);
        QTRY_VERIFY(broker.output().contains("Client panel disconnected"));
        QCOMPARE(client.connects + client.losses, QList<int>());
    }

    // Many short packets are no long one, for which the link would go on saying that it is alive.
    void quietForHours()
    {
        peer_t peer;
        client_t client;
        QVERIFY(client.joins(peer.port(), 5));
        peer.rules << repeated("still/receiving b0020001 *9"_s);
        peer.send(QByteArray::fromHex("d000").repeated(550));
        for (int i = 0; i < 9; ++i) {
            skipped += 3;
            QTest::qWait(50);
            peer.send(QByteArray::fromHex("d000"));
        }
        QVERIFY2(peer.rules.size() >= 8, QByteArray::number(peer.rules.size()));
    }

    void withdrawn_data() { addRows("clean session\nsession kept"); }

    // What is taken back on its way is not sent by the next connection.
    void withdrawn()
    {
        QFETCH(QStringList, cells);
        peer_t peer;
        peer.rules << "PUBLISH "_s; // and no answer
        client_t client(cells[0] == "clean session"_s);
        QVERIFY(client.joins(peer.port()));
        const int mid = client.say("x"_s);
        QTRY_VERIFY(peer.rules.isEmpty());
        client.withdraw(mid);
        QCOMPARE(client.disconnect_sync(), 0);
        client.withdraw(client.say("y"_s));
        QVERIFY(client.joins(peer.port()));
        client.say("z"_s);
        QTRY_COMPARE(client.acknowledged.size(), 1);
        QCOMPARE(peer.received.join(u' '), "CONNECT PUBLISH PUBREL"_s);
    }

    // What one broker has half received is sent whole to another, also where that knows the client.
    void otherBroker()
    {
        peer_t first;
        first.rules << "PUBREL "_s; // and no answer
        peer_t second;
        second.rules << "CONNECT 20020100"_s;
        client_t client(false);
        QVERIFY(client.joins(first.port()));
        client.say("x"_s);
        QTRY_VERIFY(first.rules.isEmpty());
        QCOMPARE(client.disconnect_sync(), 0);
        QVERIFY(client.joins(second.port()));
        QTRY_COMPARE(client.acknowledged.size(), 1);
        QCOMPARE(second.received.join(u' '), "CONNECT PUBLISH PUBREL"_s);
    }

    void nobodyThere()
    {
        broker_t broker;
        log_recorder_t log(::utility::logs::info);
        client_t client;
        client.setOutboxLimits(1000, 100000);
        client.dial(broker.port());
        for (int i = 0; i < 100000; ++i) {
            QVERIFY(client.say(QString(i % 2 == 0 ? 10 : 3000, u'x')) > 0);
        }
        QCOMPARE(log.count("Outbox is full"_s), 1);
        QCOMPARE(client.say(QString(100000, u'x')), 0); // too long at all
        for (int session = 0; session < 2; ++session) {
            QVERIFY(broker.start() && client.joins(broker.port()));
            QTRY_COMPARE(client.acknowledged.size(), 66);
            broker.kill(SIGKILL);
            QTRY_VERIFY(!client.getConnected());
        }
        QCOMPARE(log.count("Messages dropped from the full outbox: 99934"_s), 1);
    }

    // A client that is thrown out again and again comes back ever more slowly, and says what may be wrong.
    void shortSessions()
    {
        log_recorder_t log(::utility::logs::info);
        peer_t peer;
        client_t client;
        for (const int seconds : {1, 2, 4, 8, 16, 30, 30}) {
            log.take();
            peer.rules << "CONNECT 20020000."_s;
            client.dial(peer.port());
            QTRY_COMPARE(log.count("next attempt in "_s), 1);
            const double wait = log.lines.last().section(u' ', -2, -2).toDouble();
            QVERIFY2(wait > 0.7 * seconds && wait <= seconds, qPrintable(log.lines.last()));
            QCOMPARE(log.count("another node probably uses the client id panel"_s), seconds == 4 ? 1 : 0);
        }
    }

    // Nothing stays behind: neither of a connection nor of an attempt.
    void manyReconnections()
    {
        const log_recorder_t quiet(::utility::logs::error);
        const certificates_t certificates;
        broker_t broker(certificates.listener("good"_s));
        QVERIFY(broker.start());
        client_t client;
        QCOMPARE(client.tls_set(certificates.file("ca"_s), {}, {}, {}), 0);
        QList<int> pages;
        QList<uint> descriptors;
        for (int i = 0; i < 400; ++i) {
            QCOMPARE(client.joinsWaiting(1), 14);
            QCOMPARE(client.joinsWaiting(broker.port()), 0);
            QCOMPARE(client.disconnect_sync(), 0);
            QTest::qWait(0);
            QFile memory("/proc/self/statm"_s);
            QVERIFY(memory.open(QIODevice::ReadOnly));
            pages << memory.readAll().split(' ').value(1).toInt();
            descriptors << QDir("/proc/self/fd"_s).count();
        }
        QCOMPARE(descriptors[399], descriptors[100]);
#ifndef __SANITIZE_ADDRESS__ // keeps freed memory
        QVERIFY2(pages[399] - pages[100] < 64, QByteArray::number(pages[399] - pages[100]));
#endif
    }

    // A broker that sends faster than the host works must not stop the rest of the event loop.
    void flood()
    {
        peer_t peer;
        client_t client;
        QVERIFY(client.joins(peer.port()));
        connect(&client, &client_t::onMessage, [] { std::this_thread::sleep_for(std::chrono::microseconds(50)); });
        for (int i = 0; i < 10000; ++i) {
            peer.act("3206000161000178"_s);
        }
        loop_watch_t watch;
        QTRY_COMPARE_WITH_TIMEOUT(client.messages.size(), 10000, 30000);
        QVERIFY(watch.wasCalm(200, 20000));
    }
};

QTEST_GUILESS_MAIN(adapter_recovery)
#include "adapter_recovery.moc"
