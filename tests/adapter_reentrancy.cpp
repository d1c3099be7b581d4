// SPDX-License-Identifier: MIT
// A host may call anything, and delete the adapter, from within any signal and at any moment.
#include "support/certificates.h"
#include "support/client.h"
#include "support/peer.h"

#include <flotrofobul/testkit/broker.h>

#include <QtNetwork/QSslCertificate>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

using comunication::testkit::broker_t;

class adapter_reentrancy : public QObject {
    Q_OBJECT

    const certificates_t certificates;
    broker_t broker;
    std::function<void()> answer;

public Q_SLOTS:
    void run() { answer(); }

private Q_SLOTS:
    void initTestCase() { QVERIFY(broker.start()); }

    void insideSignal_data()
    {
        QTest::addColumn<QByteArray>("signal");
        QTest::addColumn<QString>("action");
        for (const char* const signal :
             {"onConnect(int)", "onConnect_with_flags(int,int)", "onDisconnect(int)", "onPublish(int)",
              "onMessage(int,QString,QString,int,int,bool)", "onSubscribe(int,int,const int*)", "onUnsubscribe(int)",
              "onLog(int,QString)"}) {
            for (const char* const action : {"ask", "connect", "connect anew", "delete", "delete in an event loop"}) {
                QTest::addRow("%s: %s", signal, action) << QByteArray(signal) << QString::fromLatin1(action);
            }
        }
    }

    void insideSignal()
    {
        QFETCH(QByteArray, signal);
        QFETCH(QString, action);
        const QPointer<client_t> client = new client_t;
        client->setLogging(true);
        int calls = 0;
        answer = [&] {
            if (++calls > 1) { // only the first one counts
            } else if (action == "ask"_s) {
                client->say("x"_s, 0);
                client->say("x"_s, 2);
                client->subscribe(nullptr, "house/b"_s, 2);
                client->unsubscribe(nullptr, "house/b"_s);
            } else if (action == "connect"_s) {
                client->joinsWaiting(broker.port());
            } else if (action == "connect anew"_s) {
                client->disconnect_sync();
                client->dial(broker.port());
            } else if (action == "delete"_s) {
                delete client;
            } else {
                QTimer::singleShot(0, [&] { delete client; });
                QTest::qWait(5);
            }
        };
        QVERIFY(QObject::connect(client, QByteArray('2' + signal), this, SLOT(run())));
        // One life after the other, each slower than the one before, until the signal has come.
        for (int round = 0; client && round < 400 && (calls == 0 || round < 8); ++round) {
            switch (round % 8) {
            case 0: client->dial(broker.port()); break;
            case 2: client->subscribe(nullptr, "house/a"_s, 2); break;
            case 3: client->say("x"_s, 0); break;
            case 4: client->say("x"_s, 2); break;
            case 5: client->unsubscribe(nullptr, "house/a"_s); break;
            case 7: client->disconnect_sync(); break;
            default: break;
            }
            QTest::qWait(1 + round / 8);
        }
        QTRY_VERIFY(calls > 0);
        if (client) {
            client->disconnect_sync();
            QVERIFY(client->joins(broker.port()));
            const int mid = client->say("x"_s);
            QTRY_VERIFY(client->acknowledged.contains(mid));
            delete client;
        }
    }

    // Certificates that the host reads, its signals and its children do no harm to the link, nor the link to them.
    void goodGuest()
    {
        broker_t secure(certificates.listener("good"_s));
        void (*const own)(int) = [](int) {};
        signal(SIGPIPE, own);
        auto client = std::make_unique<client_t>();
        QCOMPARE(client->tls_set(certificates.file("ca"_s), {}, {}, {}), 0);
        QVERIFY(secure.start() && client->joins(secure.port()));
        const pid_t child = fork();
        if (child == 0) {
            client.reset();
            _exit(0);
        }
        waitpid(child, nullptr, 0);
        client->subscribe(nullptr, "house/a"_s, 2);
        QObject::connect(client.get(), &client_t::onMessage,
                         [] { QSslCertificate::fromData("-----BEGIN CERTIFICATE-----\nMIIB"); });
        client->say("x"_s);
        client->say("y"_s);
        QTRY_COMPARE(client->messages.size() + client->acknowledged.size(), 4);
        QVERIFY(client->losses.isEmpty() && signal(SIGPIPE, SIG_IGN) == own);
        for (int descriptor = 3; descriptor < 100; ++descriptor) {
            struct stat what = {};
            const bool isSocket = ::fstat(descriptor, &what) == 0 && S_ISSOCK(what.st_mode);
            QVERIFY(!isSocket || ::fcntl(descriptor, F_GETFD) == FD_CLOEXEC);
        }
    }

    // It may also leave while a line about what it has asked for is written.
    void deletedInSink()
    {
        QPointer<client_t> client = new client_t;
        log_recorder_t log;
        log.also = [&] { delete client; };
        QCOMPARE(client->dial(0), 3);
        QVERIFY(!client);
    }

    void deletedWhile_data() { addRows("resolving\nwaiting\nsecuring\ngreeting\nsending\nclosing"); }

    // At once, or some milliseconds later.
    void deletedWhile()
    {
        QFETCH(QStringList, cells);
        const QString moment = cells[0];
        for (int delay = 0; delay < 20; ++delay) {
            const bool silent = moment == "securing"_s || moment == "greeting"_s;
            peer_t peer(silent ? 0 : broker.port());
            peer.rules = silent ? QStringList{"ACCEPT"_s} : QStringList();
            client_t client;
            if (moment == "securing"_s) {
                QCOMPARE(client.tls_set(certificates.file("ca"_s), {}, {}, {}), 0);
            }
            const quint16 port = moment == "waiting"_s ? 1 : peer.port();
            client.connect_async(moment == "resolving"_s ? "x.invalid"_s : "127.0.0.1"_s, port, 60);
            client.say(QString(8 << 20, u'x'));
            QTest::qWait(delay);
            if (moment == "closing"_s) {
                client.disconnect_sync();
            }
        }
    }
};

QTEST_GUILESS_MAIN(adapter_reentrancy)
#include "adapter_reentrancy.moc"
