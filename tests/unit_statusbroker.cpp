// SPDX-License-Identifier: MIT
// The model of the broker's own statistics: which topic fills which field, what the flags gate, what is logged.
#include <flotrofobul/platform/logs/log_line.h>
#include <flotrofobul/utility/statusbroker.h>

#include <QtTest/QtTest>

using comunication::literals::operator""_l1;
using comunication::brokerdiagnostic::diagnostic_average;
using comunication::brokerdiagnostic::diagnostic_broker;
using ::utility::logs::classlogs;
using ::utility::logs::LogRecord;

namespace {

using fields_t = QMap<QString, QString>;

void addAverage(fields_t& fields, const QString& name, const diagnostic_average* average)
{
    fields.insert(name + ".min1"_l1, average->min1);
    fields.insert(name + ".min5"_l1, average->min5);
    fields.insert(name + ".min15"_l1, average->min15);
}

// Every statistics field by name, those without a value left out.
fields_t filled(const diagnostic_broker& broker)
{
    fields_t fields;
#define ADD(path) fields.insert(QStringLiteral(#path), broker.path)
    ADD(version), ADD(timestamp), ADD(uptime);
    ADD(bytes->received), ADD(bytes->sent), ADD(heap->current), ADD(heap->maximum);
    ADD(clients->total), ADD(clients->maximum), ADD(clients->inactive), ADD(clients->disconnected);
    ADD(clients->active), ADD(clients->connected), ADD(clients->expired);
    ADD(messages->message->stored), ADD(messages->message->received), ADD(messages->message->sent);
    ADD(messages->publish->dropped), ADD(messages->publish->received), ADD(messages->publish->sent);
    ADD(messages->publishBytes->received), ADD(messages->publishBytes->sent);
    ADD(messages->store->count), ADD(messages->store->bytes);
    ADD(storage->subscriptions), ADD(storage->retained);
#undef ADD
#define ADD(path) addAverage(fields, QStringLiteral(#path), broker.path)
    ADD(load->connections), ADD(load->sockets), ADD(load->bytes->received), ADD(load->bytes->sent);
    ADD(load->publish->dropped), ADD(load->publish->received), ADD(load->publish->sent);
    ADD(load->messagesSent), ADD(load->messagesReceived), ADD(load->messagesStored);
#undef ADD
    for (auto it = fields.begin(); it != fields.end();) {
        it = it->isNull() ? fields.erase(it) : it + 1;
    }
    return fields;
}

} // namespace

class unit_statusbroker : public QObject {
    Q_OBJECT

    QStringList lines;

    static QByteArray rowName(const QString& topic) { return topic.toUtf8().replace('\n', "\\n"); }

private Q_SLOTS:
    void init()
    {
        lines.clear();
        classlogs::getInstance()->setSink([this](const LogRecord& record) {
            lines << QString(QString::number(record.level) + " "_l1 + record.function + " "_l1 + record.message);
            QCOMPARE(record.file, QStringLiteral("libscomunication/libmosquittoproto/utility/statusbroker"));
        });
    }

    void cleanup() { classlogs::getInstance()->setSink({}); }

    // A topic below $SYS/broker/ and the one field it fills; none when it is not registered.
    void statistics_data()
    {
        QTest::addColumn<QString>("topic");
        QTest::addColumn<QString>("field");

        const auto row = [](const QString& topic, const QString& field) {
            QTest::newRow(rowName(topic).constData()) << topic << field;
        };
        const char* const taken[][2] = {
            {"version", "version"},
            {"timestamp", "timestamp"},
            {"uptime", "uptime"},
            {"bytes/received", "bytes->received"},
            {"bytes/sent", "bytes->sent"},
            {"messages/stored", "messages->message->stored"},
            {"messages/received", "messages->message->received"},
            {"messages/sent", "messages->message->sent"},
            {"publish/messages/dropped", "messages->publish->dropped"},
            {"publish/messages/received", "messages->publish->received"},
            {"publish/messages/sent", "messages->publish->sent"},
            {"publish/bytes/received", "messages->publishBytes->received"},
            {"publish/bytes/sent", "messages->publishBytes->sent"},
            {"store/messages/bytes", "messages->store->bytes"},
            {"store/messages/count", "messages->store->count"},
            {"subscriptions/count", "storage->subscriptions"},
            {"retained messages/count", "storage->retained"},
            {"heap/current", "heap->current"},
            {"heap/maximum", "heap->maximum"},
            {"clients/total", "clients->total"},
            {"clients/maximum", "clients->maximum"},
            {"clients/inactive", "clients->inactive"},
            {"clients/disconnected", "clients->disconnected"},
            {"clients/active", "clients->active"},
            {"clients/connected", "clients->connected"},
            {"clients/expired", "clients->expired"},
            // The level that a pattern names may be written in any case, a compared one not.
            {"MESSAGES/sent", "messages->message->sent"},
            {"Publish/bytes/sent", "messages->publishBytes->sent"},
            {"STORE/Messages/count", "messages->store->count"},
            {"Heap/current", "heap->current"},
            {"CLIENTS/active", "clients->active"},
            {"LOAD/sockets/1min", "load->sockets.min1"},
        };
        for (const auto& pair : taken) {
            row(QString::fromLatin1(pair[0]), QString::fromLatin1(pair[1]));
        }
        const char* const averages[][2] = {
            {"messages/received", "messagesReceived"},
            {"messages/sent", "messagesSent"},
            {"messages/stored", "messagesStored"},
            {"publish/sent", "publish->sent"},
            {"publish/received", "publish->received"},
            {"publish/dropped", "publish->dropped"},
            {"bytes/received", "bytes->received"},
            {"bytes/sent", "bytes->sent"},
            {"sockets", "sockets"},
            {"connections", "connections"},
        };
        for (const auto& pair : averages) {
            for (const int minutes : {1, 5, 15}) {
                row(QStringLiteral("load/%1/%2min").arg(QLatin1String(pair[0])).arg(minutes),
                    QStringLiteral("load->%1.min%2").arg(QLatin1String(pair[1])).arg(minutes));
            }
        }
        const char* const unregistered[] = {"",
                                            "UPTIME",
                                            "Bytes/sent",
                                            "bytes/SENT",
                                            "Subscriptions/count",
                                            "retained messages/COUNT",
                                            "retainedmessages/count",
                                            "clients/Total",
                                            "load/sockets/1MIN",
                                            "load/sockets/10min",
                                            "load/sockets",
                                            "load/Sockets/5min",
                                            "load/sockets/sent/5min",
                                            "load/bytes/stored/5min",
                                            "load//sockets/5min",
                                            "version/",
                                            "version/x",
                                            "uptime\n",
                                            "messages/dropped",
                                            "messages/sent/x",
                                            "publish/messages",
                                            "publish/bytes/dropped",
                                            "publish//sent",
                                            "store/messages/sent",
                                            "store/bytes",
                                            "heap/current size",
                                            "messages/count",
                                            "clients",
                                            "connection/a-b/state",
                                            "log/N"};
        for (const char* topic : unregistered) {
            row(QString::fromLatin1(topic), QString());
        }
    }

    void statistics()
    {
        QFETCH(QString, topic);
        QFETCH(QString, field);

        const QString whole = "$SYS/broker/"_l1 + topic;
        const QStringList notRegistered("3 updateMessage "_l1 + whole + " .......... NO REGISTER"_l1);
        diagnostic_broker broker;
        broker.updateMessage(whole, QStringLiteral("7"));
        QCOMPARE(filled(broker), fields_t());
        QCOMPARE(lines, notRegistered);

        lines.clear();
        broker.setStoreBrokerStatistics(true);
        const QDateTime before = QDateTime::currentDateTime();
        broker.updateMessage(whole, QStringLiteral("7"));
        if (field.isEmpty()) {
            QCOMPARE(filled(broker), fields_t());
            QCOMPARE(lines, notRegistered);
            QVERIFY(broker.lastUpdate.isNull());
        } else {
            QCOMPARE(filled(broker), (fields_t{{field, QStringLiteral("7")}}));
            QCOMPARE(lines, QStringList());
            QVERIFY(broker.lastUpdate >= before && broker.lastUpdate <= QDateTime::currentDateTime());
            QVERIFY(broker.clients->lastUpdate.isNull() && broker.load->lastUpdate.isNull());
        }
        QVERIFY(broker.rawMessages.isEmpty() && broker.bridges->isEmpty() && broker.logging->lines->isEmpty());
    }

    void topicsThatAreNotTheBrokers_data()
    {
        QTest::addColumn<QString>("topic");

        for (const char* topic : {"", "$SYS/broker", "$sys/broker/uptime", "$SYS/BROKER/uptime", "x$SYS/broker/uptime",
                                  "\n$SYS/broker/uptime", "local/1234/a/b/c"}) {
            const QString text = QString::fromLatin1(topic);
            QTest::addRow("\"%s\"", rowName(text).constData()) << text;
        }
    }

    void topicsThatAreNotTheBrokers()
    {
        QFETCH(QString, topic);

        diagnostic_broker broker;
        broker.setStoreBrokerMessage(true);
        broker.setStoreBrokerStatistics(true);
        broker.updateMessage(topic, QStringLiteral("7"));
        QCOMPARE(lines, QStringList(QStringLiteral("3 updateMessage No match generic topic")));
        QCOMPARE(filled(broker), fields_t());
        QCOMPARE(broker.rawMessages, (fields_t{{topic, QStringLiteral("7")}}));
    }

    void bridges_data()
    {
        QTest::addColumn<QString>("levels");
        QTest::addColumn<QString>("name");

        const auto row = [](const char* levels, const char* name) {
            const QString text = QString::fromUtf8(levels);
            QTest::newRow(rowName(text).constData()) << text << QString::fromLatin1(name);
        };
        row("connection/a-b/state", "a-b");
        row("connection/{0_9}[Z]/state", "{0_9}[Z]");
        row("CONNECTION/x/State", "x");
        row("connection/x/state\n", "x"); // the end of a pattern also stands before a final line break
        row("connection/a.b/state", "");
        row("connection/a b/state", "");
        row("connection/ä/state", "");
        row("connection//state", "");
        row("connection/a/b/state", "");
        row("connection/a/states", "");
        row("connection/a", "");
    }

    void bridges()
    {
        QFETCH(QString, levels);
        QFETCH(QString, name);

        diagnostic_broker broker;
        broker.setStoreBrokerBridgeConnection(true);
        for (const bool up : {true, false}) {
            broker.updateMessage("$SYS/broker/"_l1 + levels, up ? QStringLiteral("1") : QStringLiteral("1 "));
            QCOMPARE(broker.bridges->keys(), name.isEmpty() ? QStringList() : QStringList(name));
            if (!name.isEmpty()) {
                QCOMPARE(broker.bridges->value(name).name, name);
                QCOMPARE(broker.bridges->value(name).connected, up);
            }
        }
        QCOMPARE(broker.lastUpdate.isNull(), name.isEmpty());
        QCOMPARE(lines.size(), name.isEmpty() ? 2 : 0);
    }

    void logLines_data()
    {
        QTest::addColumn<QString>("levels");
        QTest::addColumn<bool>("kept");

        QTest::newRow("one level") << QStringLiteral("log/N") << true;
        QTest::newRow("several letters") << QStringLiteral("log/Notice") << true;
        QTest::newRow("below M") << QStringLiteral("log/M/subscribe") << true;
        QTest::newRow("other case") << QStringLiteral("LOG/m/SUBSCRIBE") << true;
        QTest::newRow("below another level") << QStringLiteral("log/N/subscribe") << false;
        QTest::newRow("nothing below") << QStringLiteral("log/") << false;
        QTest::newRow("digits") << QStringLiteral("log/N1") << false;
    }

    void logLines()
    {
        QFETCH(QString, levels);
        QFETCH(bool, kept);

        const QString topic = "$SYS/broker/"_l1 + levels;
        diagnostic_broker broker;
        broker.setStoreBrokerLogs(true);
        broker.setStoreBrokerMessage(true);
        broker.updateMessage(topic, QStringLiteral("first"));
        broker.updateMessage(topic, QStringLiteral("second"));
        QCOMPARE(QStringList(*broker.logging->lines),
                 kept ? QStringList({QStringLiteral("first"), QStringLiteral("second")}) : QStringList());
        QCOMPARE(broker.rawMessages, (fields_t{{topic, QStringLiteral("second")}}));
        const QString line = "3 updateMessage "_l1 + topic + " .......... NO REGISTER"_l1;
        QCOMPARE(lines, QStringList({line, line}));
        QVERIFY(broker.lastUpdate.isNull());
    }
};

QTEST_APPLESS_MAIN(unit_statusbroker)
#include "unit_statusbroker.moc"
