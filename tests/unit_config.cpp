// SPDX-License-Identifier: MIT
// The configuration model: what it takes, what it refuses and says about it, what it writes back.
#include <flotrofobul/platform/config/mosquittocnf.h>
#include <flotrofobul/platform/logs/log_line.h>

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtTest/QtTest>

#include <limits>

using comunication::literals::operator""_l1;
using comunication::config::mosquittocnf;
using ::utility::logs::classlogs;
using ::utility::logs::LogRecord;

namespace {

// JSON with ' for ", which reads better in a table.
QJsonObject parse(QByteArray text)
{
    const QJsonDocument document = QJsonDocument::fromJson(text.replace('\'', '"'));
    [&] { QVERIFY2(document.isObject(), text.constData()); }();
    return document.object();
}

QJsonObject merged(QJsonObject into, const QJsonObject& from)
{
    for (auto it = from.begin(); it != from.end(); ++it) {
        const QJsonValue old = into.value(it.key());
        into.insert(it.key(), old.isObject() ? QJsonValue(merged(old.toObject(), it->toObject())) : *it);
    }
    return into;
}

// Everything that can be set and its default.
const char* const defaults =
    "{ 'mqtt': { "
    "'global':   { 'installation_id': '', 'host': '127.0.0.1', 'port': 1883, "
    "'interval': 1000, 'autoconnect': true, 'logging': false }, "
    "'connect':  { 'keepalive': 60, 'cleansession': true, 'username': '', 'password': '', 'timeout': 10, "
    "'outbox_messages': 1000, 'outbox_bytes': 8388608, 'max_packet_bytes': 16777216 }, "
    "'security': { 'tls_enable': false, 'tls_insecure': false, 'ca_file': '' } } }";

} // namespace

class unit_config : public QObject {
    Q_OBJECT

    QStringList lines;

private Q_SLOTS:
    void init()
    {
        lines.clear();
        classlogs::getInstance()->setSink([this](const LogRecord& record) {
            lines << QString(QString::number(record.level) + " "_l1 + record.function + " "_l1 + record.message);
            QCOMPARE(record.file, QStringLiteral("libscomunication/libmosquittoconfig/mosquittocnf"));
        });
    }

    void cleanup() { classlogs::getInstance()->setSink({}); }

    void everyKeyHasItsDefault() { QCOMPARE(mosquittocnf().serialize(), parse(defaults)); }

    void everyGetterReadsItsOwnKey()
    {
        mosquittocnf model;
        auto* const global = model.getMqtt()->getGlobal();
        auto* const connect = model.getMqtt()->getConnect();
        auto* const security = model.getMqtt()->getSecurity();
        QVERIFY(model.deserialize(parse(
            "{ 'mqtt': { "
            "'global':   { 'installation_id': 'i', 'host': 'h', 'port': 1, 'interval': 2, 'autoconnect': false, "
            "'logging': true }, "
            "'connect':  { 'keepalive': 3, 'cleansession': false, 'username': 'u', 'password': 'p', 'timeout': 4, "
            "'outbox_messages': 5, 'outbox_bytes': 6000, 'max_packet_bytes': 7000 }, "
            "'security': { 'tls_enable': true, 'tls_insecure': true, 'ca_file': 'c' } } }")));
        QCOMPARE(global->getInstallation_id() + "|"_l1 + global->getHost(), QStringLiteral("i|h"));
        QCOMPARE(connect->getUsername() + "|"_l1 + connect->getPassword(), QStringLiteral("u|p"));
        QCOMPARE(security->getCa_file(), QStringLiteral("c"));
        QCOMPARE(
            (QList<int>{global->getPort(), global->getInterval(), connect->getKeepalive(), connect->getTimeout(),
                        connect->getOutbox_messages(), connect->getOutbox_bytes(), connect->getMax_packet_bytes()}),
            (QList<int>{1, 2, 3, 4, 5, 6000, 7000}));
        QCOMPARE((QList<bool>{global->getAutoconnect(), global->getLogging(), connect->getCleansession(),
                              security->getTls_enable(), security->getTls_insecure()}),
                 (QList<bool>{false, true, false, true, true}));
        QCOMPARE(lines, QStringList());

        global->setLogging(false);
        const QJsonObject mqtt = model.serialize()["mqtt"_l1].toObject();
        QCOMPARE(mqtt["global"_l1].toObject()["logging"_l1], QJsonValue(false));
        QCOMPARE(mqtt["connect"_l1].toObject()["password"_l1], QJsonValue("p"_l1));
    }

    // What a configuration changes in the one in force, when nothing is refused.
    void taken_data()
    {
        QTest::addColumn<QByteArray>("json");

        QTest::newRow("nothing at all") << QByteArray("{}");
        QTest::newRow("empty sections") << QByteArray("{'mqtt':{'global':{},'connect':{},'security':{}}}");
        QTest::newRow("a missing key keeps its value") << QByteArray("{'mqtt':{'global':{'port':8883}}}");
        QTest::newRow("unknown keys on every level") << QByteArray(
            "{'a':[1],'mqtt':{'b':{'c':null},'global':{'d':1.5,'Port':'x'},'connect':{'e':{}},'security':{'f':[]}}}");
        QTest::newRow("texts of any length") << QByteArray("{'mqtt':{'global':{'installation_id':']-^','host':''}}}");
        QTest::newRow("lowest numbers") << QByteArray(
            "{'mqtt':{'global':{'port':1,'interval':1},'connect':{'keepalive':0, "
            "'timeout':1,'outbox_messages':1,'outbox_bytes':1024,'max_packet_bytes':1024}}}");
        QTest::newRow("highest numbers") << QByteArray(
            "{'mqtt':{'global':{'port':65535,'interval':60000},'connect':{ "
            "'keepalive':65535,'timeout':600,'outbox_messages':65000,'outbox_bytes':1073741824, "
            "'max_packet_bytes':268435455}}}");
        QTest::newRow("a whole number in another notation")
            << QByteArray("{'mqtt':{'global':{'port':1.884e3,'interval':20.0}}}");
    }

    void taken()
    {
        QFETCH(QByteArray, json);
        const QJsonObject given = parse(json);

        mosquittocnf model;
        QVERIFY(model.deserialize(given));
        const QJsonObject inForce = model.serialize();
        QCOMPARE(inForce, merged(parse(defaults), given));
        QCOMPARE(lines, QStringList());

        mosquittocnf second;
        QVERIFY(second.deserialize(parse("{'mqtt':{'global':{'host':'other'},'old':1}}")));
        QVERIFY(second.deserialize(inForce));
        QCOMPARE(second.serialize(), merged(inForce, parse("{'mqtt':{'old':1}}")));
    }

    void refused_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QJsonValue>("value");
        QTest::addColumn<QString>("shown");
        QTest::addColumn<QString>("allowed");

        const auto row = [](const char* path, const QJsonValue& value, const char* shown, const char* allowed) {
            QTest::addRow("%s: %s", path, shown)
                << QString::fromLatin1(path) << value << QString::fromLatin1(shown) << QString::fromLatin1(allowed);
        };
        const char* const port = "a whole number from 1 to 65535";
        row("mqtt.global.port", 0, "0", port);
        row("mqtt.global.port", 65536, "65536", port);
        row("mqtt.global.port", -1, "-1", port);
        row("mqtt.global.port", 1883.5, "1883.5", port);
        row("mqtt.global.port", 1e300, "1e+300", port);
        row("mqtt.global.port", std::numeric_limits<double>::quiet_NaN(), "null", port);
        row("mqtt.global.port", "1883"_l1, "\"1883\"", port);
        row("mqtt.global.port", true, "true", port);
        row("mqtt.global.port", QJsonValue::Null, "null", port);
        row("mqtt.global.port", QJsonArray{1883}, "an array", port);
        row("mqtt.global.interval", 0, "0", "a whole number from 1 to 60000");
        row("mqtt.global.interval", 60001, "60001", "a whole number from 1 to 60000");
        row("mqtt.connect.keepalive", -1, "-1", "a whole number from 0 to 65535");
        row("mqtt.connect.keepalive", 65536, "65536", "a whole number from 0 to 65535");
        row("mqtt.connect.timeout", 0, "0", "a whole number from 1 to 600");
        row("mqtt.connect.timeout", 601, "601", "a whole number from 1 to 600");
        row("mqtt.connect.outbox_messages", 0, "0", "a whole number from 1 to 65000");
        row("mqtt.connect.outbox_bytes", 1023, "1023", "a whole number from 1024 to 1073741824");
        row("mqtt.connect.max_packet_bytes", 268435456, "268435456", "a whole number from 1024 to 268435455");
        row("mqtt.global.autoconnect", 1, "1", "true or false");
        row("mqtt.connect.cleansession", "true"_l1, "\"true\"", "true or false");
        row("mqtt.security.tls_enable", QJsonValue::Null, "null", "true or false");
        row("mqtt.global.host", 127, "127", "a text");
        row("mqtt.security.ca_file", QJsonObject(), "an object", "a text");
        row("mqtt.connect.password", 271828, "(not shown)", "a text");
        row("mqtt.connect", "{\"password\":\"271828\"}"_l1, "a text", "an object");
        row("mqtt.connect", QJsonArray{QJsonObject{{"password"_l1, "271828"_l1}}}, "an array", "an object");
        row("mqtt.security", QJsonValue::Null, "null", "an object");
        row("mqtt.global.port", QString(QString(80, QLatin1Char('x')) + "271828"_l1),
            "\"xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx...", port);
    }

    void refused()
    {
        QFETCH(QString, path);
        QFETCH(QJsonValue, value);
        QFETCH(QString, shown);
        QFETCH(QString, allowed);

        // The value in force beside others that must be taken all the same.
        const QJsonObject others =
            parse("{'x':1,'mqtt':{'global':{'installation_id':'1234'},'connect':{'username':'u'}, "
                  "'security':{'tls_insecure':true},'y':2}}");
        QJsonObject expected = merged(parse(defaults), others);
        const QStringList keys = path.split(QLatin1Char('.'));
        QJsonObject mqtt = others["mqtt"_l1].toObject();
        QJsonObject section = mqtt[keys[1]].toObject();
        if (keys.size() == 3) {
            section.insert(keys[2], value);
            mqtt.insert(keys[1], section);
        } else {
            mqtt.insert(keys[1], value);
            QJsonObject untouched = expected["mqtt"_l1].toObject();
            untouched.insert(keys[1], parse(defaults)["mqtt"_l1].toObject()[keys[1]]);
            expected.insert("mqtt"_l1, untouched);
        }
        QJsonObject given = others;
        given.insert("mqtt"_l1, mqtt);

        mosquittocnf model;
        QVERIFY(model.deserialize(given));
        QCOMPARE(lines, QStringList("2 deserialize Refused configuration value "_l1 + path + ": "_l1 + shown +
                                    ", allowed: "_l1 + allowed));
        QVERIFY(!lines.join(QChar()).contains("271828"_l1));
        QCOMPARE(model.serialize(), expected);
    }

    void anObjectWithoutSettingsIsNotTaken()
    {
        mosquittocnf model;
        QVERIFY(!model.deserialize(parse("{'mqtt':'{}','kept':1}")));
        QCOMPARE(lines, QStringList("2 deserialize Refused configuration value mqtt: a text, allowed: an object"_l1));
        QCOMPARE(model.serialize(), merged(parse(defaults), parse("{'kept':1}")));
    }
};

QTEST_APPLESS_MAIN(unit_config)
#include "unit_config.moc"
