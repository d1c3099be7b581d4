// SPDX-License-Identifier: MIT
// Everything that can go wrong before a broker has accepted a client.
#include <flotrofobul/platform/mosquittopp/mosquittoqt.h>

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtTest/QSignalSpy>
#include <QtTest/QTest>

#include "support/broker.h"
#include "support/certificates.h"
#include "support/fake_broker.h"
#include "support/log_recorder.h"
#include "support/loop_watch.h"
#include "support/proxy.h"

#include <signal.h>
#include <sys/socket.h>

using comunication::mosquittopp::mosquittoqt;

namespace {

// What an attempt came to: the code of connect, of onDisconnect or of onConnect, whichever came first.
struct attempt_t {
    explicit attempt_t(mosquittoqt& client)
    {
        QObject::connect(&client, &mosquittoqt::onConnect, [this](int rc) { reports += rc; });
        QObject::connect(&client, &mosquittoqt::onDisconnect, [this](int rc) { reports += rc; });
    }
    QList<int> reports;
};

} // namespace

class adapter_connecting : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { QVERIFY(certificates.isValid()); }
    void deadEnd_data();
    void deadEnd();
    void answer_data();
    void answer();
    void tls_data();
    void tls();
    void authorityFile_data();
    void authorityFile();
    void authorityDisappears();
    void slowNetwork_data();
    void slowNetwork();
    void waiting_data();
    void waiting();
    void refusedValues();

private:
    certificates_t certificates;
};

void adapter_connecting::deadEnd_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<bool>("secure");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("words");
    const QString silent = QStringLiteral("silence");
    QTest::newRow("refused") << QStringLiteral("nobody") << false << 14 << QStringLiteral("is the broker running?");
    QTest::newRow("refused, TLS") << QStringLiteral("nobody") << true << 14 << QStringLiteral("is the broker running?");
    QTest::newRow("silence") << silent << false << 14 << QStringLiteral("does not answer, is it a broker?");
    QTest::newRow("handshake stalled") << silent << true << 8 << QStringLiteral("TLS: the handshake is not answered");
    QTest::newRow("reset at once") << QStringLiteral("reset") << false << 7
                                   << QStringLiteral("without an answer, does it expect TLS?");
    QTest::newRow("reset in the handshake")
        << QStringLiteral("reset") << true << 8 << QStringLiteral("has ended the handshake");
    QTest::newRow("closed in the handshake")
        << QStringLiteral("close") << true << 8 << QStringLiteral("has ended the handshake");
    QTest::newRow("TLS to a plain port") << QStringLiteral("text") << true << 8 << QStringLiteral("does not speak TLS");
    QTest::newRow("name that does not resolve")
        << QStringLiteral("name") << false << 15 << QStringLiteral("does not resolve");
    QTest::newRow("black hole") << QStringLiteral("hole") << false << 14 << QStringLiteral("the host does not answer");
    QTest::newRow("black hole, TLS") << QStringLiteral("hole") << true << 14
                                     << QStringLiteral("the host does not answer");
}

void adapter_connecting::deadEnd()
{
    QFETCH(QString, kind);
    QFETCH(bool, secure);
    log_recorder_t log(::utility::logs::info);
    fake_broker_t broker;
    broker.greeting = [&] {
        if (kind == QStringLiteral("reset")) {
            broker.reset();
        } else if (kind == QStringLiteral("close")) {
            broker.close();
        } else if (kind == QStringLiteral("text")) {
            broker.send("HTTP/1.1 400 Bad Request\r\n\r\n");
        }
        return true;
    };
    // A listener whose queue is full answers no further connection: a network that swallows everything.
    QTcpServer hole;
    QTcpSocket fillers[3];
    quint16 port = broker.port();
    if (kind == QStringLiteral("hole")) {
        hole.listen(QHostAddress::LocalHost);
        hole.pauseAccepting();
        const int backlogOfOne = ::listen(static_cast<int>(hole.socketDescriptor()), 0);
        QCOMPARE(backlogOfOne, 0);
        for (QTcpSocket& filler : fillers) {
            filler.connectToHost(QHostAddress::LocalHost, hole.serverPort());
        }
        QTest::qWait(100);
        port = hole.serverPort();
    } else if (kind == QStringLiteral("nobody")) {
        port = freePort();
    }

    mosquittoqt client(QStringLiteral("panel"), true, true);
    client.setConnectTimeout(1);
    if (secure) {
        QCOMPARE(client.tls_set(certificates.authority(), QString(), QString(), QString()), 0);
    }
    attempt_t attempt(client);
    loop_watch_t watch;
    const QString host = kind == QStringLiteral("name") ? QStringLiteral("nowhere.invalid") : broker.host();
    const int rc = client.connect_async(host, port, 60);
    if (rc != 0) {
        attempt.reports += rc;
    }
    QTRY_VERIFY_WITH_TIMEOUT(!attempt.reports.isEmpty(), 2500);
    QTEST(attempt.reports.value(0), "code");
    QTest::qWait(200);
    QCOMPARE(attempt.reports.size(), 1);
    QCOMPARE(log.count(QStringLiteral(" failed: ")), 1);
    QFETCH(QString, words);
    QVERIFY2(log.count(words) == 1, qPrintable(log.lines.join(QLatin1Char('\n'))));
    QVERIFY2(watch.longestGap() < 50, QByteArray::number(watch.longestGap()));
    QVERIFY2(watch.load() < 20, QByteArray::number(watch.load()));
    QCOMPARE(client.disconnect_sync(), 0);
    QCOMPARE(client.disconnect_sync(), 4);
}

void adapter_connecting::answer_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("words");
    for (const int code : {1, 2, 3, 4, 5, 6, 255}) {
        QTest::addRow("CONNACK %d", code)
            << QByteArray("\x20\x02\x00", 3) + char(code) << code << QStringLiteral("(%1)").arg(code);
    }
    QTest::newRow("short CONNACK") << QByteArray("\x20\x01\x00", 3) << 2 << QStringLiteral("not that of a broker");
    QTest::newRow("something else") << QByteArray("\xd0\x00", 2) << 2 << QStringLiteral("not that of a broker");
    QTest::newRow("garbage") << QByteArray("\xff\xff\xff\xff\xff\xff") << 2 << QStringLiteral("not that of a broker");
    QTest::newRow("CONNACK twice") << QByteArray("\x20\x02\x00\x00\x20\x02\x00\x00", 8) << 0 << QString();
}

void adapter_connecting::answer()
{
    QFETCH(QByteArray, bytes);
    QFETCH(int, code);
    QFETCH(QString, words);
    log_recorder_t log(::utility::logs::info);
    fake_broker_t broker;
    broker.script = [&](int type, const QByteArray&) {
        if (type == CONNECT) {
            broker.send(bytes);
        }
        return type == CONNECT;
    };
    mosquittoqt client(QStringLiteral("panel"), true, true);
    client.setConnectTimeout(1);
    attempt_t attempt(client);
    QCOMPARE(client.connect_async(broker.host(), broker.port(), 60), 0);
    QTRY_COMPARE_WITH_TIMEOUT(attempt.reports.size(), 1, 2500);
    QTest::qWait(50);
    QCOMPARE(attempt.reports, QList<int>{code});
    QCOMPARE(client.getConnected(), code == 0);
    if (code != 0) {
        QCOMPARE(log.lines.size(), 1);
        QVERIFY2(log.lines[0].contains(words), qPrintable(log.lines[0]));
        // A broker that refuses is not asked again within a second.
        const bool refused = words.startsWith(QLatin1Char('('));
        const double wait =
            log.lines[0].section(QStringLiteral("next attempt in "), 1).section(QLatin1Char(' '), 0, 0).toDouble();
        QVERIFY2(refused ? wait > 20 : wait <= 1, qPrintable(log.lines[0]));
    }
}

void adapter_connecting::tls_data()
{
    QTest::addColumn<QString>("certificate");
    QTest::addColumn<QString>("authority");
    QTest::addColumn<QString>("host");
    QTest::addColumn<bool>("insecure");
    QTest::addColumn<QString>("words");
    const QString good = QStringLiteral("good");
    const QString ca = QStringLiteral("ca");
    const QString name = QStringLiteral("localhost");
    QTest::newRow("good, by name") << good << ca << name << false << QString();
    QTest::newRow("good, by address") << good << ca << QStringLiteral("127.0.0.1") << false << QString();
    QTest::newRow("wrong authority") << good << QStringLiteral("other") << name << false
                                     << QStringLiteral(
                                            "TLS: certificate of host localhost was not signed by an authority in ");
    QTest::newRow("wrong host") << QStringLiteral("stranger") << ca << name << false
                                << QStringLiteral("TLS: certificate of host localhost is for panel.example");
    QTest::newRow("wrong address") << QStringLiteral("stranger") << ca << QStringLiteral("127.0.0.1") << false
                                   << QStringLiteral("TLS: certificate of host 127.0.0.1 is for panel.example");
    QTest::newRow("wrong address, short form") << QStringLiteral("stranger") << ca << QStringLiteral("127.1") << false
                                               << QStringLiteral("TLS: certificate of host 127.1 is for panel.example");
    QTest::newRow("wrong host, insecure") << QStringLiteral("stranger") << ca << name << true << QString();
    QTest::newRow("wrong authority, insecure")
        << good << QStringLiteral("other") << name << true << QStringLiteral("was not signed");
    QTest::newRow("expired") << QStringLiteral("expired") << ca << name << false
                             << QStringLiteral("TLS: certificate of host localhost has expired");
    QTest::newRow("plain to a TLS port") << good << QString() << name << false << QStringLiteral("does it expect TLS?");
}

void adapter_connecting::tls()
{
    QFETCH(QString, certificate);
    QFETCH(QString, authority);
    QFETCH(QString, host);
    QFETCH(bool, insecure);
    QFETCH(QString, words);
    broker_t broker(certificates.listener(certificate));
    QVERIFY(broker.start());
    log_recorder_t log(::utility::logs::info);
    mosquittoqt client(QStringLiteral("panel"), true, true);
    if (!authority.isEmpty()) {
        QCOMPARE(client.tls_set(certificates.file(authority + QStringLiteral(".pem")), QString(), QString(), QString()),
                 0);
        client.tls_insecure_set(insecure);
    }
    attempt_t attempt(client);
    // To an address on loopback the handshake may be over, and refused, before the call returns.
    if (const int rc = client.connect_async(host, broker.port(), 60); rc != 0) {
        attempt.reports.append(rc);
    }
    QTRY_COMPARE(attempt.reports.size(), 1);
    QCOMPARE(client.getConnected(), words.isEmpty());
    QCOMPARE(log.lines.size(), words.isEmpty() ? 0 : 1);
    if (!words.isEmpty()) {
        QVERIFY2(log.lines[0].contains(words), qPrintable(log.lines[0]));
        QCOMPARE(attempt.reports[0], authority.isEmpty() ? 7 : 8);
    }
}

void adapter_connecting::authorityFile_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("words");
    QTest::newRow("none") << QString() << 3 << QStringLiteral("is configured");
    QTest::newRow("missing") << QStringLiteral("nothing.pem") << 3 << QStringLiteral("does not exist");
    QTest::newRow("empty") << QStringLiteral("empty.pem") << 1 << QStringLiteral("holds no whole certificate");
    QTest::newRow("truncated") << QStringLiteral("half.pem") << 1 << QStringLiteral("holds no whole certificate");
    QTest::newRow("directory") << QStringLiteral(".") << 1 << QStringLiteral("is a directory");
}

void adapter_connecting::authorityFile()
{
    QFETCH(QString, path);
    QFile whole(certificates.authority());
    QVERIFY(whole.open(QIODevice::ReadOnly));
    QFile half(certificates.file(QStringLiteral("half.pem")));
    QVERIFY(half.open(QIODevice::WriteOnly) && half.write(whole.readAll().left(200)) == 200);
    half.close();
    QVERIFY(QFile(certificates.file(QStringLiteral("empty.pem"))).open(QIODevice::WriteOnly));

    log_recorder_t log(::utility::logs::info);
    fake_broker_t broker;
    mosquittoqt client(QStringLiteral("panel"), true, true);
    QTEST(client.tls_set(path.isEmpty() ? path : certificates.file(path), QString(), QString(), QString()), "code");
    QCOMPARE(client.connect_async(broker.host(), broker.port(), 60), 8);
    QTest::qWait(100);
    QCOMPARE(broker.connections(), 0);
    QFETCH(QString, words);
    QVERIFY2(log.count(words) == 2, qPrintable(log.lines.join(QLatin1Char('\n'))));
}

void adapter_connecting::authorityDisappears()
{
    const QString path = certificates.file(QStringLiteral("copy.pem"));
    QVERIFY(QFile::copy(certificates.authority(), path));
    broker_t broker(certificates.listener(QStringLiteral("good")));
    QVERIFY(broker.start());
    log_recorder_t log(::utility::logs::info);
    mosquittoqt client(QStringLiteral("panel"), true, true);
    QCOMPARE(client.tls_set(path, QString(), QString(), QString()), 0);
    QCOMPARE(client.connect_sync(QStringLiteral("localhost"), broker.port(), 60), 0);
    QVERIFY(QFile::remove(path));
    broker.kill(SIGKILL);
    QTRY_VERIFY(!client.getConnected());
    QVERIFY(broker.start());
    QTRY_VERIFY_WITH_TIMEOUT(log.count(QStringLiteral("does not exist")) > 0, 3000);
    QVERIFY(!client.getConnected());
    QVERIFY(QFile::copy(certificates.authority(), path));
    QTRY_VERIFY_WITH_TIMEOUT(client.getConnected(), 3000);
}

void adapter_connecting::slowNetwork_data()
{
    QTest::addColumn<bool>("secure");
    QTest::addColumn<bool>("trickle");
    QTest::newRow("slow accept") << false << false;
    QTest::newRow("slow accept, TLS") << true << false;
    QTest::newRow("one byte at a time") << false << true;
    QTest::newRow("one byte at a time, TLS") << true << true;
}

void adapter_connecting::slowNetwork()
{
    QFETCH(bool, secure);
    broker_t broker(secure ? certificates.listener(QStringLiteral("good")) : QString());
    QVERIFY(broker.start());
    proxy_t proxy(broker.port());
    QFETCH(bool, trickle);
    proxy.trickle = trickle;
    proxy.delay = trickle ? 0 : 500;
    mosquittoqt client(QStringLiteral("panel"), true, true);
    if (secure) {
        QCOMPARE(client.tls_set(certificates.authority(), QString(), QString(), QString()), 0);
    }
    loop_watch_t watch;
    QCOMPARE(client.connect_async(proxy.host(), proxy.port(), 60), 0);
    QTRY_VERIFY(client.getConnected());
    QVERIFY2(watch.longestGap() < 50, QByteArray::number(watch.longestGap()));
    if (!trickle) {
        QVERIFY2(watch.load() < 20, QByteArray::number(watch.load()));
    }
}

void adapter_connecting::waiting_data()
{
    QTest::addColumn<QString>("settings");
    QTest::addColumn<QString>("host");
    QTest::addColumn<int>("code");
    const QString open = QStringLiteral("listener @port 127.0.0.1\nallow_anonymous true\n");
    QTest::newRow("accepted") << open << QStringLiteral("127.0.0.1") << 0;
    QTest::newRow("accepted, by name") << open << QStringLiteral("localhost") << 0;
    QTest::newRow("not authorised") << QStringLiteral("listener @port 127.0.0.1\nallow_anonymous false\n")
                                    << QStringLiteral("127.0.0.1") << 5;
    QTest::newRow("name that does not resolve") << open << QStringLiteral("nowhere.invalid") << 15;
    QTest::newRow("stopped broker") << open + QStringLiteral("# stopped\n") << QStringLiteral("127.0.0.1") << 14;
}

void adapter_connecting::waiting()
{
    QFETCH(QString, settings);
    QFETCH(QString, host);
    broker_t broker(settings);
    QVERIFY(broker.start());
    if (settings.contains(QStringLiteral("stopped"))) {
        broker.kill(SIGSTOP);
    }
    mosquittoqt client(QStringLiteral("panel"), true, false);
    client.setConnectTimeout(1);
    QSignalSpy signals(&client, SIGNAL(onConnect(int)));
    QElapsedTimer clock;
    clock.start();
    QTEST(client.connect_sync(host, broker.port(), 60), "code");
    QVERIFY2(clock.elapsed() < 1100, QByteArray::number(clock.elapsed()));
    QCOMPARE(signals.count(), 0);
    QFETCH(int, code);
    QCOMPARE(client.getConnected(), code == 0);
    QTest::qWait(20);
    QCOMPARE(signals.count(), code < 8 ? 1 : 0);
}

void adapter_connecting::refusedValues()
{
    const QString longText(65536, QLatin1Char('x'));
    const QString deep = QStringLiteral("a/").repeated(200) + QLatin1Char('a');
    const QString secret = QStringLiteral("secret") + QChar(0);
    log_recorder_t log(::utility::logs::info);
    mosquittoqt client(QStringLiteral("panel"), true, false);
    const auto publishTo = [&](const QString& topic, int qos = 0) {
        int mid = -1;
        const int rc = client.publish(&mid, topic, QStringLiteral("x"), qos, false);
        return rc == 0 ? 1000 + mid : rc + mid;
    };
    const auto subscribeTo = [&](const QString& filter) {
        int mid = -1;
        return client.subscribe(&mid, filter, 0) + mid;
    };
    const auto connectAs = [&](const QString& id) {
        client.setClientId(id);
        return client.connect_async(QStringLiteral("127.0.0.1"), 1, 60);
    };
    const QList<QPair<int, int>> results = {
        {publishTo(QString()), 3},
        {publishTo(QStringLiteral("a/+")), 3},
        {publishTo(QStringLiteral("#")), 3},
        {publishTo(QStringLiteral("a\nb")), 18},
        {publishTo(QStringLiteral("a\u0085b")), 18},
        {publishTo(longText), 18},
        {publishTo(deep), 3},
        {publishTo(QStringLiteral("a"), 3), 3},
        {subscribeTo(QString()), 3},
        {subscribeTo(QStringLiteral("a#")), 3},
        {subscribeTo(deep), 3},
        {client.will_set(QStringLiteral("a/#"), QString(), 0, false), 3},
        {client.will_set(QStringLiteral("a"), longText, 0, false), 9},
        {client.will_set(QStringLiteral("a"), QString(), 3, false), 3},
        {client.username_pw_set(QString(), QStringLiteral("secret")), 3},
        {client.username_pw_set(longText, QString()), 18},
        {client.username_pw_set(QStringLiteral("a"), secret), 3},
        {client.username_pw_set(QStringLiteral("a"), longText), 3},
        {client.connect_async(QString(), 1883, 60), 3},
        {client.connect_async(QStringLiteral("a"), 0, 60), 3},
        {client.connect_async(QStringLiteral("a"), 65536, 60), 3},
        {client.connect_async(QStringLiteral("a"), 1883, 4), 3},
        {connectAs(QString()), 3},
        {connectAs(QStringLiteral("a\tb")), 18},
    };
    for (int i = 0; i < results.size(); ++i) {
        QVERIFY2(
            results[i].first == results[i].second,
            qPrintable(QStringLiteral("%1: %2 instead of %3").arg(i).arg(results[i].first).arg(results[i].second)));
    }
    QCOMPARE(log.lines.size(), results.size());
    QVERIFY(log.lines.filter(QStringLiteral("secret")).isEmpty());
    QVERIFY(!client.hasWill());
    QCOMPARE(publishTo(QStringLiteral("a/").repeated(199) + QLatin1Char('a')), 1001);
}

QTEST_GUILESS_MAIN(adapter_connecting)
#include "adapter_connecting.moc"
