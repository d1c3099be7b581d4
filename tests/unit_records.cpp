// SPDX-License-Identifier: MIT
// The registry of pending requests, and the record of a node.
#include <flotrofobul/messages/messages.h>
#include <flotrofobul/platform/jsonserializer/qjsonserializer.h>
#include <flotrofobul/utility/system_t.h>

#include "support/log_recorder.h"

#include <QtCore/QPointer>
#include <QtCore/QRegularExpression>
#include <QtCore/QTemporaryDir>
#include <QtTest/QtTest>

using comunication::message::classmessages;
using comunication::message::classpublish;
using comunication::message::classsubscribe;
using comunication::utility::qos_t;
using comunication::utility::service_t;
using comunication::utility::state_req_t;
using comunication::utility::system_t;

class unit_records : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void records();
    void registry();
    void registryOwnsItsRecords();
    void constructors_data();
    void constructors();
    void clientIds_data();
    void clientIds();
    void json();
    void masters();
    void hashes_data();
    void hashes();
    void network();
};

void unit_records::records()
{
    const QDateTime before = QDateTime::currentDateTime();
    QObject parent;
    classsubscribe subscription("a/b"_s, qos_t(1), 7, state_req_t(2), &parent);
    classpublish publication("a/c"_s, "text"_s, 8, qos_t(2), true, state_req_t(1), &parent);
    QVERIFY(subscription.parent() == nullptr && publication.parent() == nullptr);
    QVERIFY(subscription.getTimeSubsciption().isNull() && publication.getTimePublication().isNull());
    QVERIFY(subscription.getTimeCreation() >= before && subscription.getTimeCreation() <= QDateTime::currentDateTime());
    QCOMPARE(subscription.getTimeCreation().timeSpec(), Qt::LocalTime);
    const auto properties = [](const QObject& record) {
        QVariantList values;
        for (int i = 1; i < record.metaObject()->propertyCount(); ++i) {
            const QVariant value = record.metaObject()->property(i).read(&record);
            values << (value.canConvert<QString>() ? value : QVariant(value.toInt()));
        }
        return values;
    };
    QCOMPARE(properties(subscription), (QVariantList{"a/b"_s, 1, 7, 2}));
    QCOMPARE(properties(publication), (QVariantList{"a/c"_s, 2, 8, 1, "text"_s, true, false}));
    QCOMPARE(properties(classsubscribe(nullptr)), (QVariantList{QString(), 0, 0, 0}));
    QCOMPARE(properties(classpublish(nullptr)), (QVariantList{QString(), 0, 0, 0, QString(), false, false}));
    QVERIFY(publication.setProperty("dubflag", true) && publication.getDubflag());
    QVERIFY(subscription.setProperty("qos", QVariant::fromValue(qos_t(2))) && subscription.getQos() == 2);
}

void unit_records::registry()
{
    classmessages registry;
    const QString topic = "topic"_s;
    QCOMPARE(registry.getMidSubsciption(topic), -1);
    QVERIFY(registry.addSubscription(9, "nine"_s, qos_t(2)));
    QVERIFY(registry.addSubscription(4, "four"_s, qos_t(1)));
    QVERIFY(registry.addPublication(4, topic, "payload"_s, qos_t(2), true));

    QCOMPARE(registry.getMidSubsciption("nine"_s), 4); // the lowest, whatever the topic
    QCOMPARE(registry.getSubsciption(9)->getTopic(), "nine"_s);
    QCOMPARE(int(registry.getSubsciption(9)->getState()), 1);
    QCOMPARE(registry.getSubsciption(5), nullptr);
    QCOMPARE(registry.getPublications(9), nullptr);
    const classpublish* const publication = registry.getPublications(4);
    QCOMPARE(publication->getTopic() + publication->getPayload(), "topicpayload"_s);
    QCOMPARE(int(publication->getState()), 1);
    QCOMPARE(int(publication->getQos()), 2);
    QVERIFY(publication->getRetainflag());

    QVERIFY(registry.addSubscription(9, "later"_s, qos_t(0)));
    QCOMPARE(registry.getSubscriptions()->keys(), (QList<int>{4, 9}));
    QCOMPARE(registry.getSubsciption(9)->getTopic(), "later"_s);
    QCOMPARE(registry.removeSubsciption(5), 0);
    QCOMPARE(registry.removeSubsciption(4), 1);
    QCOMPARE(registry.removeSubsciption(4), 0);
    QCOMPARE(registry.removePublications(9), 0);
    QCOMPARE(registry.getSubscriptions()->keys(), QList<int>{9});
    QCOMPARE(registry.getPublications()->keys(), QList<int>{4});
    QCOMPARE(registry.reset(), 0);
    QVERIFY(registry.getSubscriptions()->isEmpty() && registry.getPublications()->isEmpty());
}

void unit_records::registryOwnsItsRecords()
{
    QPointer<QObject> removed;
    QPointer<QObject> reset;
    QPointer<QObject> replaced;
    QPointer<QObject> left;
    {
        classmessages registry;
        registry.addPublication(1, QString(), QString(), qos_t(2), false);
        registry.addSubscription(2, QString(), qos_t(2));
        removed = registry.getPublications(1);
        reset = registry.getSubsciption(2);
        registry.removePublications(1);
        QVERIFY(removed.isNull() && !reset.isNull());
        registry.reset();
        QVERIFY(reset.isNull());
        registry.addSubscription(3, QString(), qos_t(2));
        replaced = registry.getSubsciption(3);
        registry.addSubscription(3, QString(), qos_t(2));
        left = registry.getSubsciption(3);
        QVERIFY(!replaced.isNull() && replaced != left); // a host may hold it
    }
    QVERIFY(left.isNull() && replaced.isNull());
}

void unit_records::constructors_data()
{
    QTest::addColumn<QString>("given");
    QTest::addColumn<bool>("computed");
    QTest::newRow("an id is kept") << "panel one"_s << false;
    QTest::newRow("blanks around an id are kept") << " panel "_s << false;
    QTest::newRow("nothing") << QString() << true;
    QTest::newRow("blanks only") << " \t "_s << true;
}

void unit_records::constructors()
{
    QFETCH(QString, given);
    QFETCH(bool, computed);
    const system_t record("3.2"_s, service_t::client, given, nullptr);
    QString host = QSysInfo::machineHostName();
    host.remove(QRegularExpression("[^a-zA-Z0-9-]"_s));
    QCOMPARE(record.getClientid(), computed ? "client@"_l1 + host : given);
    QCOMPARE(record.getHostname(), computed ? QSysInfo::machineHostName() : QString());
    QCOMPARE(record.getVersionLib(), computed ? "1.1.2"_s : QString());
    const QStringList os{QSysInfo::prettyProductName(), QSysInfo::productType(),   QSysInfo::productVersion(),
                         QSysInfo::kernelType(),        QSysInfo::kernelVersion(), QSysInfo::currentCpuArchitecture()};
    QCOMPARE(record.getOs(), computed ? os.join(u'/') : QString());
    QCOMPARE(record.getVersionApp(), "3.2"_s);
    QCOMPARE(record.getType(), "client"_s);
    QCOMPARE(record.getTypeStr(), "client"_s);
    QCOMPARE(record.getMasterId(), QString());
    QVERIFY(record.getMasterData().isEmpty() && record.getHash().isEmpty() && !record.getConnected());
    QCOMPARE(record.getId_prefix(), "tarnel-"_s);
}

void unit_records::clientIds_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("id");
    QTest::addColumn<QString>("clientid");
    const auto row = [](const char* rule, const char* type, const char* id, const char* clientid) {
        QTest::newRow(rule) << QString::fromUtf8(type) << QString::fromUtf8(id) << QString::fromUtf8(clientid);
    };
    row("letters only", "server", "ab c_d!", "server@abcd");
    row("host name", "client", "panel_01.home", "client@panel01home");
    row("digits and hyphens", "client", "a-1\\2s", "client@a-12s");
    row("ASCII letters only", "client", "\u00e9a\u0416", "client@a");
    row("nothing left", "server", "@/+#", "server@");
    row("a record without a type", "", "x", "@x");
}

void unit_records::clientIds()
{
    QFETCH(QString, type);
    QFETCH(QString, id);
    system_t record;
    record.setProperty("type", type);
    record.setClientId(id);
    QTEST(record.getClientid(), "clientid");
    QVERIFY(record.getServiceType() == (type == "server"_s ? service_t::server : service_t::client));
}

// What a presentation holds, and that reading one neither signals nor edits.
void unit_records::json()
{
    system_t record("3.2"_s, service_t::server, "srv"_s, nullptr);
    record.setMaster("m"_s, {{"k"_s, 1}});
    record.setBrokerip("127.0.0.1"_s);
    record.AddHash("/nowhere"_s);
    record.setPublishDate(QDateTime(QDate(2024, 2, 29), QTime(13, 5, 9)));
    record.setObjectName("not told"_s);
    QJsonSerializer serializer;
    const QJsonObject packet = serializer.serialize<system_t*>(&record);
    const auto text = [](const char* words) { return QJsonValue(QLatin1String(words)); };
    const QJsonObject expected{{"clientid"_s, text("srv")},
                               {"os"_s, text("")},
                               {"type"_s, text("server")},
                               {"versionLib"_s, text("")},
                               {"versionApp"_s, text("3.2")},
                               {"hostname"_s, text("")},
                               {"publishDate"_s, text("Thu Feb 29 13:05:09 2024")},
                               {"connected"_s, false},
                               {"brokerip"_s, text("127.0.0.1")},
                               {"masterid"_s, text("m")},
                               {"masterData"_s, QJsonObject{{"k"_s, 1}}}};
    QCOMPARE(packet, expected);

    QJsonObject foreign = packet;
    foreign["clientid"_s] = "a b!"_s;
    foreign["connected"_s] = true;
    const std::unique_ptr<system_t> read(serializer.deserialize<system_t*>(foreign));
    QCOMPARE(read->getClientid(), "a b!"_s);
    QVERIFY(read->getConnected());
    QCOMPARE(read->getMasterData(), record.getMasterData());
    QCOMPARE(serializer.serialize<system_t*>(read.get()), foreign);
    QSignalSpy changes(read.get(), &system_t::changeMasterIdEvent);
    read->setProperty("masterid", "other"_s);
    QCOMPARE(read->getMasterId(), "other"_s);
    QCOMPARE(changes.count(), 0);
}

void unit_records::masters()
{
    system_t record;
    QSignalSpy changes(&record, &system_t::changeMasterIdEvent);
    const QJsonObject first{{"n"_s, 1}};
    const QJsonObject second{{"n"_s, 2}};
    record.setMasterId(QString());
    record.setMasterId("a"_s);
    record.setMasterId("a"_s);
    record.setMaster("b"_s, first);
    QCOMPARE(record.getMasterData(), first);
    record.setMaster("b"_s, second);
    QCOMPARE(record.getMasterData(), second);
    record.setMaster(QString(), {});
    QCOMPARE(changes, (QList<QVariantList>{{"a"_s}, {"b"_s}, {QString()}}));
}

void unit_records::hashes_data()
{
    QTest::addColumn<QByteArray>("content");
    // The raw digest is read as UTF-8: "" gives d41d8cd98f00b204e9800998ecf8427e.
    QTest::newRow("an empty file") << QByteArray("");
    QTest::newRow("text") << QByteArray("panel");
    QTest::newRow("more than one block") << QByteArray(100000, 'x');
}

void unit_records::hashes()
{
    QFETCH(QByteArray, content);
    const QTemporaryDir folder;
    const QString path = folder.filePath("file"_s);
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write(content) == content.size());
    file.close();
    system_t record;
    const QString digest = QString::fromUtf8(QCryptographicHash::hash(content, QCryptographicHash::Md5));
    QCOMPARE(record.calculateHash(path), digest);
    record.AddHash(path);
    record.AddHash(folder.path()); // cannot be read
    record.AddHash("/nowhere"_s);
    QCOMPARE(record.getHash(),
             (QMap<QString, QString>{{path, digest}, {folder.path(), QString()}, {"/nowhere"_s, QString()}}));
}

// The interfaces of the machine, whatever they are: the lines, and that the result is what they say.
void unit_records::network()
{
    system_t record;
    log_recorder_t log;
    const bool up = record.checkNetwork();
    QStringList expected{"6 checkNetwork Check network"_s};
    const auto all = QNetworkInterface::allInterfaces();
    for (const QNetworkInterface& one : all) {
        const auto entries = one.addressEntries();
        for (const QNetworkAddressEntry& entry : entries) {
            if (entry.ip().protocol() != QAbstractSocket::IPv4Protocol ||
                one.hardwareAddress() == "00:00:00:00:00:00"_s) {
                continue;
            }
            const auto flag = [&one](QNetworkInterface::InterfaceFlag bit, const char* text) {
                return QLatin1String((one.flags() & bit) != 0 ? text : "");
            };
            expected << "4 checkNetwork "_l1 +
                            QLatin1String(
                                QMetaEnum::fromType<QNetworkInterface::InterfaceType>().valueToKey(one.type())) +
                            " -- "_l1 + ((one.flags() & QNetworkInterface::IsUp) != 0 ? "IsUp"_l1 : "IsDown"_l1) +
                            flag(QNetworkInterface::IsRunning, " | IsRunning") +
                            flag(QNetworkInterface::IsLoopBack, " | IsLoopBack") +
                            flag(QNetworkInterface::IsPointToPoint, " | IsPointToPoint") + " > "_l1 +
                            one.humanReadableName() + " - "_l1 + entry.ip().toString() + " - "_l1 +
                            one.hardwareAddress();
        }
    }
    QCOMPARE(log.lines, expected);
    QCOMPARE(up, !expected.filter("-- IsUp"_s).isEmpty());
    QCOMPARE(log.records[0].line, 190);
    for (int i = 1; i < log.records.size(); ++i) {
        QCOMPARE(log.records[i].line, 211);
    }
    QCOMPARE(log.records[0].file, "libscomunication/libmosquittoproto/utility/system_t"_s);
}

QTEST_GUILESS_MAIN(unit_records)
#include "unit_records.moc"
