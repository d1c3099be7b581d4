// SPDX-License-Identifier: MIT
// Everything that can go wrong before a broker has accepted a client.
#include <flotrofobul/platform/mosquittopp/resolver.h>
#include <flotrofobul/testkit/broker.h>

#include "support/certificates.h"
#include "support/client.h"
#include "support/peer.h"

#include <dlfcn.h>
#include <netdb.h>
#include <sys/socket.h>

#include <cstring>
#include <list>

using comunication::mosquittopp::lookup_t;
using comunication::testkit::broker_t;

// In place of the C library's: two.test has two addresses on loopback.
extern "C" __attribute__((visibility("default"))) int getaddrinfo(const char* name, const char* service,
                                                                  const addrinfo* hints, addrinfo** found)
{
    static const auto ask = reinterpret_cast<decltype(&::getaddrinfo)>(dlsym(RTLD_NEXT, "getaddrinfo"));
    if (name == nullptr || std::strcmp(name, "two.test") != 0) {
        return ask(name, service, hints, found);
    }
    const int rc = ask("127.0.0.2", service, hints, found);
    return rc != 0 ? rc : ask("127.0.0.1", service, hints, &(*found)->ai_next);
}

/// Its queue is full, so that it answers no more.
class hole_t : public QTcpServer {
public:
    explicit hole_t(const QHostAddress& address, quint16 port = 0)
    {
        listen(address, port);
        pauseAccepting();
        ::listen(static_cast<int>(socketDescriptor()), 0);
        for (QTcpSocket& filler : fillers) {
            filler.connectToHost(address, serverPort());
        }
    }

private:
    QTcpSocket fillers[3];
};

// Lives longer than OpenSSL, which ends with exit().
struct last_client_t : client_t {
    ~last_client_t() override { tls_set({}, {}, {}, {}); }
};
std::unique_ptr<last_client_t> lastClient;

class adapter_connecting : public QObject {
    Q_OBJECT

    const certificates_t certificates;

private Q_SLOTS:
    // name | other side | host | files for TLS, or none | code | part of the log line
    // The other side: nobody, a real broker, perhaps behind a bad network, or the rule of a peer.
    // The code is that of connect, onConnect or onDisconnect, whichever comes first; "3 8": tls_set gave 3 before.
    void attempt_data()
    {
        addRows(R"(
not authorised      | strict             | 127.0.0.1 | -                | 5   | does not authorise this client (5)
refused             | nobody             | 127.0.0.1 | -                | 14  | is the broker running?
refused, TLS        | nobody             | 127.0.0.1 | ca               | 14  | is the broker running?
unknown name        | plain              | x.invalid | -                | 15  | does not resolve
black hole          | hole               | 127.0.0.1 | ca               | 14  | the host does not answer
silence             | ACCEPT             | 127.0.0.1 | -                | 14  | does not answer, is it a broker?
handshake stalled   | ACCEPT             | 127.0.0.1 | ca               | 8   | TLS: the handshake is not answered
reset               | ACCEPT !           | 127.0.0.1 | -                | 7   | an answer, does it expect TLS?
handshake reset     | ACCEPT !           | 127.0.0.1 | ca               | 8   | has ended the handshake, is this a port without TLS?
handshake ended     | ACCEPT .           | 127.0.0.1 | ca               | 8   | has ended the handshake, is this a port without TLS?
no TLS there        | CONNECT 2002000020 | 127.0.0.1 | ca               | 8   | does not speak TLS
old protocol        | CONNECT 20020001   | 127.0.0.1 | -                | 1   | speak this version of the protocol (1)
refused id          | CONNECT 20020002   | 127.0.0.1 | -                | 2   | the broker refuses the client id (2)
unavailable         | CONNECT 20020003   | 127.0.0.1 | -                | 3   | the broker is not available (3)
refused user        | SECRET 20020004    | 127.0.0.1 | -                | 4   | the user name or the password (4)
unknown code        | CONNECT 200200ff   | 127.0.0.1 | -                | 255 | with an unknown code (255)
short answer        | CONNECT 200100     | 127.0.0.1 | -                | 2   | the answer is not that of a broker
TLS by name         | good               | localhost | ca               | 0   |
TLS by address      | good               | 127.0.0.1 | ca               | 0   |
slow network        | good slowly        | 127.0.0.1 | ca               | 0   |
other authority     | good               | localhost | stranger any     | 8   | signed by an authority in /
other name          | stranger           | localhost | ca               | 8   | of host localhost is for panel.example
other address       | stranger           | 127.1     | ca               | 8   | of host 127.1 is for panel.example
any name            | stranger           | localhost | ca any           | 0   |
expired             | expired            | localhost | ca               | 8   | of host localhost has expired
own certificate     | mutual             | localhost | ca good good.key | 0   |
own key wrong       | mutual             | localhost | ca good ca.key   | 1 8 | cannot be used with the certificate
no authority        | good               | localhost |                  | 3 8 | is configured
authority truncated | good               | localhost | half             | 1 8 | holds no whole certificate
authority directory | good               | localhost | .                | 1 8 | is a directory, not a file
)");
    }

    void attempt()
    {
        QFETCH(QStringList, cells);
        const QString side = cells[1].section(u' ', 0, 0);
        broker_t broker(side == "strict"_s   ? "listener @port 127.0.0.1\nallow_anonymous false"_s
                        : side == "mutual"_s ? certificates.listener("good"_s) + "require_certificate true"_s
                        : QFile::exists(certificates.file(side)) ? certificates.listener(side)
                                                                 : QString());
        QVERIFY(side == "nobody"_s || broker.start());
        peer_t peer(cells[1].endsWith("slowly"_s) ? broker.port() : 0);
        peer.rules << cells[1];
        const hole_t hole(QHostAddress::LocalHost);
        const bool isPeer = side == side.toUpper() || side != cells[1];
        const quint16 port = isPeer ? peer.port() : side == "hole"_s ? hole.serverPort() : broker.port();

        const int code = cells[4].section(u' ', -1).toInt();
        QStringList files = cells[3].split(u' ');
        const bool anyName = files.removeAll("any"_s) > 0;
        const auto file = [&](int i) { return certificates.file(files.value(i)); };
        // What is in this process cannot answer while somebody waits.
        const bool twice = !isPeer || cells[1] == "ACCEPT"_s;
        for (const bool waits : twice ? QList<bool>{false, true} : QList<bool>{false}) {
            client_t client;
            client.setConnectTimeout(1);
            client.username_pw_set("user"_s, "SECRET"_s);
            client.tls_insecure_set(anyName);
            const int set = files[0] == "-"_s ? 0 : client.tls_set(file(0), {}, file(1), file(2));
            QCOMPARE(set, cells[4].section(u' ', 0, -2).toInt());
            log_recorder_t log(::utility::logs::info);
            const loop_watch_t watch;
            const auto connectTo = waits ? &client_t::connect_sync : &client_t::connect_async;
            const int rc = (client.*connectTo)(cells[2], port, 60);
            // To an address on loopback all may be over before the call returns; who has the code gets no signal.
            if (rc > 5) {
                client.losses << rc;
            }
            QVERIFY(waits ? rc == code : client.connects.isEmpty());
            QTRY_VERIFY_WITH_TIMEOUT(client.connects.size() + client.losses.size() > 0, 3000);
            QVERIFY(watch.wasCalm(waits ? 1300 : 300, 250));
            QTest::qWait(30);
            QCOMPARE(client.connects + client.losses, QList<int>{code});
            QCOMPARE(client.getConnected(), code == 0);
            QCOMPARE(log.lines.size(), code == 0 ? 0 : 1);
            const QString line = log.lines.value(0);
            QVERIFY2(line.contains(cells[5]) && line.contains(client.linkProblem()), qPrintable(line));
            QCOMPARE(client.linkProblem().isEmpty(), code == 0);
            // A broker that refuses is not asked again within a second.
            const double wait = line.section("next attempt in "_s, 1).section(u' ', 0, 0).toDouble();
            QVERIFY2(cells[5].endsWith(u')') ? wait > 20 : wait <= 1, qPrintable(line));
            QCOMPARE(code == 0 ? client.connect_async(cells[2], port, 60) : 0, 0); // changes nothing
            QCOMPARE(client.disconnect_sync(), 0);
            QCOMPARE(client.disconnect_sync(), 4);
            QTRY_COMPARE(client.connects + client.losses, code == 0 ? QList<int>({0, 0}) : QList<int>{code});
        }
    }

    // name | at the first address of the broker's name | how it connects | codes of onDisconnect, that of the end last
    void otherAddress_data()
    {
        addRows(R"(
silence           | hole    | async       | 0
waiting           | hole    | sync        | 0
same session      | hole    | async twice | 0 0
no broker         | accepts | async       | 14 0
)");
    }
    // An address that does not answer costs the next one a moment, and one that only accepts one attempt.
    void otherAddress()
    {
        QFETCH(QStringList, cells);
        broker_t broker;
        QVERIFY(broker.start());
        const QHostAddress first("127.0.0.2"_s);
        const std::unique_ptr<QTcpServer> other(cells[1] == "hole"_l1 ? new hole_t(first, broker.port())
                                                                      : new QTcpServer);
        QVERIFY(other->isListening() || other->listen(first, broker.port()));
        const bool twice = cells[2].endsWith("twice"_l1);
        client_t client(!twice);
        client.setConnectTimeout(cells[1] == "hole"_l1 ? 2 : 1);
        for (int i = 0; i <= int(twice); ++i) {
            const auto connectTo = cells[2] == "sync"_l1 ? &client_t::connect_sync : &client_t::connect_async;
            QCOMPARE((client.*connectTo)("two.test"_s, broker.port(), 60), 0);
            QTRY_VERIFY(client.getConnected());
            QCOMPARE(client.disconnect_sync(), 0);
            QTRY_COMPARE(client.losses.count(0), i + 1);
        }
        QList<int> losses;
        for (const QString& code : cells[3].split(u' ')) {
            losses << code.toInt();
        }
        QCOMPARE(client.losses, losses);
        QCOMPARE(client.connects.size(), int(twice) + 1);
    }

    // More than there may be threads for.
    void manyLookUps()
    {
        std::list<lookup_t> all;
        while (all.size() < 50) {
            all.emplace_back("localhost"_s);
        }
        for (const lookup_t& one : all) {
            QTRY_VERIFY(one.isDone());
            QVERIFY(one.addresses().contains("127.0.0.1"_s));
        }
    }

    // What is in the file when a connection begins counts.
    void authorityChanges()
    {
        const QString path = certificates.file("copy.pem"_s);
        broker_t broker(certificates.listener("good"_s));
        QVERIFY(QFile::copy(certificates.file("ca"_s), path) && broker.start());
        log_recorder_t log(::utility::logs::info);
        lastClient = std::make_unique<last_client_t>();
        client_t& client = *lastClient;
        QCOMPARE(client.tls_set(path, {}, {}, {}), 0);
        QVERIFY(client.joins(broker.port()) && QFile::remove(path) && QFile::copy(certificates.file("half"_s), path));
        broker.kill(SIGKILL);
        QTRY_COMPARE_WITH_TIMEOUT(log.count("no whole certificate"_s), 1, 3000);
        QVERIFY(QFile::remove(path) && QFile::copy(certificates.file("ca"_s), path) && broker.start());
        QTRY_VERIFY_WITH_TIMEOUT(client.getConnected(), 3000);
    }

    // Who has new credentials does not wait for the answer to the old ones; a name that was typed may have a blank.
    void newCredentials()
    {
        peer_t peer;
        peer.rules << "WRONG "_s;
        client_t client;
        client.username_pw_set("user"_s, "WRONG"_s);
        QCOMPARE(client.connect_async(" 127.0.0.1"_s, peer.port(), 60), 0);
        QTRY_VERIFY(peer.rules.isEmpty());
        client.username_pw_set("user"_s, "RIGHT"_s);
        QCOMPARE(client.connect_async(" 127.0.0.1"_s, peer.port(), 60), 0);
        QTRY_VERIFY_WITH_TIMEOUT(client.getConnected(), 1000);
    }

    void refusedValues()
    {
        const QString longText(65536, u'x');
        log_recorder_t log(::utility::logs::info);
        client_t client;
        const auto publishTo = [&](const QString& topic) { return client.publish(nullptr, topic, {}, 0, false); };
        const auto subscribeTo = [&](const QString& filter) { return client.subscribe(nullptr, filter, 0); };
        const auto said = [&](int code) -> QString {
            const QString why = log.take().join(u' ').section(" Refused "_s, 1).replace(longText.left(120), "..."_s);
            return QString::number(code) + u' ' + why;
        };
        const QList<QPair<QString, QString>> refusals = {
            {said(publishTo(QString())), "3 message to: the topic is empty"_s},
            {said(publishTo("a/+"_s)), "3 message to a/+: the topic of a message holds a wildcard"_s},
            {said(publishTo("a\nb"_s)), "18 message to a\nb: it holds control characters"_s},
            {said(publishTo("\u0085"_s)), "18 message to \u0085: it holds characters that the protocol forbids"_s},
            {said(publishTo(longText)), "18 message to ...: it is longer than 65535 bytes"_s},
            {said(publishTo("/"_s.repeated(200))).right(36), ": the topic has more than 200 levels"_s},
            {said(client.publish(nullptr, "a"_s, {}, 3, false)), "3 message to a: the qos is not 0, 1 or 2"_s},
            {said(client.subscribe(nullptr, "a"_s, 3)), "3 subscription of a: the qos is not 0, 1 or 2"_s},
            {said(subscribeTo(QString())), "3 subscription of: the topic is empty"_s},
            {said(subscribeTo("a#"_s)), "3 subscription of a#: a wildcard stands where none may be"_s},
            {said(client.will_set("#"_s, {}, 0, false)), "3 last will to #: the topic of a message holds a wildcard"_s},
            {said(client.will_set("a"_s, longText, 0, {})),
             "9 last will to a: its payload is longer than 65535 bytes"_s},
            {said(subscribeTo("a"_s)), "4 "_s},
            {said(client.username_pw_set({}, "b"_s)), "3 password: it needs a user name"_s},
            {said(client.username_pw_set(longText, {})), "18 user name ...: it is longer than 65535 bytes"_s},
            {said(client.username_pw_set("a"_s, "b"_s + QChar(0))), "3 password: it holds a zero byte"_s},
            {said(client.username_pw_set("a"_s, longText)), "3 password: it is longer than 65535 bytes"_s},
            {said(client.connect_async({}, 1883, 60)), "3 host of the broker: it is empty"_s},
            {said(client.connect_async("a"_s, 0, 60)), "3 port of the broker 0: it is not 1 to 65535"_s},
            {said(client.connect_async("a"_s, 65536, 60)), "3 port of the broker 65536: it is not 1 to 65535"_s},
            {said(client.connect_async("a"_s, 1883, 4)), "3 keep-alive 4: it is not 0 or 5 to 65535 seconds"_s},
            {said(publishTo("/"_s.repeated(199))), "0 "_s},
        };
        for (const auto& [was, wanted] : refusals) {
            QCOMPARE(was, wanted);
        }
        QVERIFY(!client.hasWill());
        // Taken, with a warning where a session is kept.
        for (const bool clean : {true, false}) {
            for (const int length : {499, 500}) {
                client_t named(clean);
                named.setClientId(QString(length, u'x'));
                named.dial(comunication::testkit::freePort());
                QCOMPARE(log.count("The client id is longer than 499 bytes"_s), int(!clean && length == 500));
            }
        }
        log.take();
        client.setClientId({});
        QCOMPARE(said(client.connect_async("a"_s, 1883, 60)), "3 client id: it is empty"_s);
    }
};

QTEST_GUILESS_MAIN(adapter_connecting)
#include "adapter_connecting.moc"
