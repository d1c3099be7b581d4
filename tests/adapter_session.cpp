// SPDX-License-Identifier: MIT
// The broker adapter in an undisturbed session with a real broker.
#include <flotrofobul/platform/mosquittopp/mosquittoqt.h>

#include <QtTest/QSignalSpy>
#include <QtTest/QTest>

#include "support/broker.h"

using comunication::mosquittopp::mosquittoqt;

class adapter_session : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void conversation_data();
    void conversation();
};

void adapter_session::conversation_data()
{
    QTest::addColumn<int>("qos");
    QTest::addColumn<bool>("wait");
    QTest::newRow("QoS 0") << 0 << false;
    QTest::newRow("QoS 1, connect waits") << 1 << true;
    QTest::newRow("QoS 2") << 2 << false;
}

void adapter_session::conversation()
{
    QFETCH(int, qos);
    QFETCH(bool, wait);
    broker_t broker;
    QVERIFY(broker.start());
    mosquittoqt client(QStringLiteral("panel"), true, true);
    QSignalSpy connections(&client, SIGNAL(onConnect_with_flags(int, int)));
    QSignalSpy subscriptions(&client, SIGNAL(onSubscribe(int, int, const int*)));
    QSignalSpy publications(&client, SIGNAL(onPublish(int)));
    QSignalSpy messages(&client, SIGNAL(onMessage(int, QString, QString, int, int, bool)));
    QSignalSpy removals(&client, SIGNAL(onUnsubscribe(int)));
    QSignalSpy disconnections(&client, SIGNAL(onDisconnect(int)));

    const auto connectTo = wait ? &mosquittoqt::connect_sync : &mosquittoqt::connect_async;
    QCOMPARE((client.*connectTo)(broker.host(), broker.port(), 60), 0);
    QCOMPARE(client.getConnected(), wait);
    QTRY_COMPARE(connections.count(), 1);
    QVERIFY(client.getConnected());

    int mid = 7;
    QCOMPARE(client.subscribe(&mid, QStringLiteral("house/#"), qos), 0);
    QCOMPARE(mid, 1);
    QTRY_COMPARE(subscriptions, (QList<QVariantList>{{1, 1, subscriptions.value(0).value(2)}}));

    const QString payload = QStringLiteral("{\"d\":\"\u00e9\"}");
    QCOMPARE(client.publish(&mid, QStringLiteral("house/a"), payload, qos, false), 0);
    QCOMPARE(publications.count(), 0);
    QTRY_COMPARE(publications, (QList<QVariantList>{{2}}));
    QTRY_COMPARE(messages.count(), 1);
    QCOMPARE(messages[0].mid(1),
             (QVariantList{QStringLiteral("house/a"), payload, payload.toUtf8().size(), qos, false}));

    QCOMPARE(client.unsubscribe(&mid, QStringLiteral("house/#")), 0);
    QTRY_COMPARE(removals, (QList<QVariantList>{{3}}));
    QCOMPARE(client.disconnect_sync(), 0);
    QCOMPARE(disconnections.count(), 0);
    QTRY_COMPARE(disconnections, (QList<QVariantList>{{0}}));
    QVERIFY(!client.getConnected());
}

QTEST_GUILESS_MAIN(adapter_session)
#include "adapter_session.moc"
