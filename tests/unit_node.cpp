// SPDX-License-Identifier: MIT
// Who a node is, what its broker says of itself (which topic fills which field, what the flags gate), how it logs.
#include <flotrofobul/utility/statusbroker.h>
#include <flotrofobul/utility/system_t.h>

#include "support/log_recorder.h"

#include <QtCore/QRegularExpression>
#include <QtTest/QtTest>

using namespace comunication::brokerdiagnostic;
using namespace comunication::utility;

namespace {

// Topics below $SYS/broker/ in the order of the fields that they fill. A level that a pattern names may be written in
// any case, a compared one not.
const QStringList single =
    "version,timestamp,uptime,bytes/received,bytes/sent,heap/current,Heap/maximum,clients/total,clients/maximum,"
    "clients/inactive,clients/disconnected,clients/active,clients/connected,CLIENTS/expired,MESSAGES/stored,"
    "messages/received,messages/sent,publish/messages/dropped,publish/messages/received,publish/messages/sent,"
    "Publish/bytes/received,publish/bytes/sent,store/messages/count,STORE/Messages/bytes,subscriptions/count,"
    "retained messages/count"_s.split(u',');
const QStringList averages =
    "connections,sockets,bytes/received,bytes/sent,publish/dropped,publish/received,publish/sent,"
    "messages/sent,messages/received,messages/stored"_s.split(u',');

QStringList fieldsOf(const diagnostic_broker& broker)
{
    const auto* const clients = broker.clients;
    const auto* const messages = broker.messages;
    const auto* const load = broker.load;
    QStringList fields;
    fields << broker.version << broker.timestamp << broker.uptime << broker.bytes->received << broker.bytes->sent
           << broker.heap->current << broker.heap->maximum << clients->total << clients->maximum << clients->inactive
           << clients->disconnected << clients->active << clients->connected << clients->expired
           << messages->message->stored << messages->message->received << messages->message->sent
           << messages->publish->dropped << messages->publish->received << messages->publish->sent
           << messages->publishBytes->received << messages->publishBytes->sent << messages->store->count
           << messages->store->bytes << broker.storage->subscriptions << broker.storage->retained;
    for (const auto* average : {load->connections, load->sockets, load->bytes->received, load->bytes->sent,
                                load->publish->dropped, load->publish->received, load->publish->sent,
                                load->messagesSent, load->messagesReceived, load->messagesStored}) {
        fields << average->min1 << average->min5 << average->min15;
    }
    return fields;
}

// Passes topics below $SYS/broker/, each with itself as payload, and tells which of them were reported.
QStringList reported(diagnostic_broker& broker, const QStringList& topics)
{
    log_recorder_t log;
    for (const QString& topic : topics) {
        broker.updateMessage("$SYS/broker/"_l1 + topic, topic);
    }
    static const QRegularExpression line(R"((?s)^3 updateMessage \$SYS/broker/(.*) \.{10} NO REGISTER$)"_s);
    return log.lines.replaceInStrings(line, "\\1"_s);
}

} // namespace

class unit_node : public QObject {
    Q_OBJECT
private Q_SLOTS:
    // An id is kept as it is given; without one the record asks the machine.
    void nodes()
    {
        const system_t given("3.2"_s, service_t::server, " panel "_s, nullptr);
        const system_t computed("3.2"_s, service_t::client, " \t "_s, nullptr);
        const QString host = QSysInfo::machineHostName();
        const QString id = QString(host).remove(QRegularExpression("[^a-zA-Z0-9-]"_s));
        const QStringList os{QSysInfo::prettyProductName(), QSysInfo::productType(),
                             QSysInfo::productVersion(),    QSysInfo::kernelType(),
                             QSysInfo::kernelVersion(),     QSysInfo::currentCpuArchitecture()};
        QCOMPARE(given.getClientid() + given.getVersionLib() + given.getHostname() + given.getOs(), " panel "_s);
        QCOMPARE(computed.getType() + computed.getClientid(), "clientclient@%1"_s.arg(id));
        QCOMPARE(computed.getVersionApp() + computed.getTypeStr() + computed.getVersionLib(), "3.2client1.1.2"_s);
        QCOMPARE(computed.getHostname() + computed.getOs(), host + os.join(u'/'));

        system_t record;
        QVERIFY(given.getServiceType() == service_t::server && record.getServiceType() == service_t::client);
        record.setPublishDate(QDateTime(QDate(2024, 2, 29), QTime(13, 5, 9)));
        QCOMPARE(record.getPublishDate() + record.getId_prefix(), "Thu Feb 29 13:05:09 2024tarnel-"_s);
        record.setClientId("ab c_d!-1\\2s\u00e9\u0416@/+#."_s);
        QCOMPARE(record.getClientid(), "@abcd-12s"_s);
    }

    void masters()
    {
        system_t record;
        QSignalSpy changes(&record, &system_t::changeMasterIdEvent);
        record.setMasterId(QString());
        record.setMasterId("a"_s);
        record.setMaster("a"_s, {{"n"_s, 1}}); // the same master with other data
        QCOMPARE(record.getMasterData(), (QJsonObject{{"n"_s, 1}}));
        record.setMaster(QString(), {});
        QCOMPARE(changes, (QList<QVariantList>{{"a"_s}, {QString()}}));
    }

    // The raw digest is read as UTF-8.
    void hashes()
    {
        QFile self(QCoreApplication::applicationFilePath());
        QVERIFY(self.open(QIODevice::ReadOnly));
        const QString digest = QString::fromUtf8(QCryptographicHash::hash(self.readAll(), QCryptographicHash::Md5));
        system_t record;
        record.AddHash(self.fileName());
        record.AddHash("/nowhere"_s);
        record.AddHash("/proc/self/mem"_s); // opens and cannot be read
        QCOMPARE(record.getHash(),
                 (QMap<QString, QString>{{self.fileName(), digest}, {"/nowhere"_s, {}}, {"/proc/self/mem"_s, {}}}));
    }

    // Every IPv4 address of the machine but its own loop, whatever they are.
    void network()
    {
        const QRegularExpression line(
            R"(^checkNetwork libscomunication/libmosquittoproto/utility/system_t (190 6 Check network|211 4 [A-Z]\w+ )"
            R"(-- (IsUp|IsDown)( \| IsRunning)?( \| IsPointToPoint)? > .+ - [\d.]+ - (?!00:00:00:00:00:00)[\dA-F:]*)$)"_s);
        log_recorder_t log;
        const bool up = system_t().checkNetwork();
        QCOMPARE(up, log.count("-- IsUp"_s) > 0);
        for (const auto& one : qAsConst(log.records)) {
            const QString place = "%1 %2 %3 %4 "_s.arg(one.function, one.file).arg(one.line).arg(one.level);
            QVERIFY2(line.match(place + one.message).hasMatch(), qPrintable(place + one.message));
        }
        for (const QHostAddress& address : QNetworkInterface::allAddresses()) {
            const bool told = address.protocol() == QAbstractSocket::IPv4Protocol && !address.isLoopback();
            QCOMPARE(log.count(" - %1 - "_s.arg(address.toString())), told ? 1 : 0);
        }
    }

    void statistics()
    {
        QStringList topics = single;
        for (const QString& average : averages) {
            topics += "load/%1/1min,load/%1/5min,load/%1/15min"_s.arg(average).split(u',');
        }
        diagnostic_broker broker;
        QCOMPARE(reported(broker, topics), topics);
        QVERIFY(fieldsOf(broker).join(QString()).isEmpty() && broker.lastUpdate.isNull());
        broker.setStoreBrokerStatistics(true);
        QCOMPARE(reported(broker, topics), QStringList());
        QCOMPARE(fieldsOf(broker), topics);
        QVERIFY(broker.lastUpdate > QDateTime::currentDateTime().addSecs(-60));
    }

    void noStatistics()
    {
        const QStringList unknown =
            "|UPTIME|bytes/SENT|retained messages/COUNT|clients/Total|load/sockets/1MIN|load/sockets/10min|"
            "load/Sockets/5min|load/sockets/sent/5min|version/|version/x|uptime\n|messages/dropped|publish/messages|"
            "publish/bytes/dropped|store/messages/sent|heap/current size|connection/a-b/state|log/N"_s.split(u'|');
        diagnostic_broker broker;
        broker.setStoreBrokerStatistics(true);
        QCOMPARE(reported(broker, unknown), unknown);
        QVERIFY(broker.rawMessages.isEmpty() && broker.bridges->isEmpty() && broker.logging->lines->isEmpty());

        log_recorder_t log;
        broker.setStoreBrokerMessage(true);
        const QString foreign = "|$SYS/broker|$sys/broker/uptime|x$SYS/broker/uptime|\n$SYS/broker/x"_s;
        for (const QString& topic : foreign.split(u'|')) {
            broker.updateMessage(topic, "7"_s);
            QCOMPARE(log.records[0].file, "libscomunication/libmosquittoproto/utility/statusbroker"_s);
            QCOMPARE(log.take(), QStringList("3 updateMessage No match generic topic"_s));
            QCOMPARE(broker.rawMessages.take(topic), "7"_s);
        }
        QVERIFY(fieldsOf(broker).join(QString()).isEmpty() && broker.lastUpdate.isNull());
    }

    void bridges()
    {
        diagnostic_broker broker;
        broker.setStoreBrokerBridgeConnection(true);
        const QStringList refused =
            "connection/a.b/state|connection/a b/state|connection/\u00e9/state|connection//state|"
            "connection/a/b/state|connection/a/states|connection/a"_s.split(u'|');
        QCOMPARE(reported(broker, refused), refused);
        QVERIFY(broker.bridges->isEmpty() && broker.lastUpdate.isNull());
        // The end of a pattern also stands before a final line break.
        QCOMPARE(reported(broker, {"connection/a-b/state"_s, "CONNECTION/{0_9}[Z]/State\n"_s}), QStringList());
        QCOMPARE(broker.bridges->keys(), (QStringList{"a-b"_s, "{0_9}[Z]"_s}));
        QVERIFY(!broker.lastUpdate.isNull());
        QVERIFY(!broker.bridges->value("a-b"_s).connected);
        broker.updateMessage("$SYS/broker/connection/a-b/state"_s, "1"_s);
        QVERIFY(broker.bridges->value("a-b"_s).connected);
        QCOMPARE(broker.bridges->value("a-b"_s).name, "a-b"_s);
    }

    // Log lines are kept, and reported all the same: they are no statistics.
    void logLines()
    {
        const QStringList topics = "log/N|LOG/m/SUBSCRIBE|log/N/subscribe|log/|log/N1"_s.split(u'|');
        diagnostic_broker broker;
        broker.setStoreBrokerLogs(true);
        QCOMPARE(reported(broker, topics), topics);
        QCOMPARE(QStringList(*broker.logging->lines), topics.mid(0, 2));
        QVERIFY(broker.lastUpdate.isNull());
    }

    // Without a sink a line reaches the Qt category in its weight.
    void logLevels()
    {
        const log_recorder_t log;
        auto* const logs = ::utility::logs::classlogs::getInstance();
        logs->setSink({});
        const QtMsgType types[] = {QtCriticalMsg, QtCriticalMsg, QtCriticalMsg, QtWarningMsg, QtInfoMsg, QtInfoMsg};
        for (int level = 0; level < 6; ++level) {
            QTest::ignoreMessage(types[level], qPrintable(QString::number(level)));
            logs->log(QString::number(level), level, QString(), QString(), 0);
        }
    }
};

QTEST_GUILESS_MAIN(unit_node)
#include "unit_node.moc"
