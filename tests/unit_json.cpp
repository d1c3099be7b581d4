// SPDX-License-Identifier: MIT
// What is read from JSON and written as JSON: the configuration, the record of a node, texts of foreign hands.
#include <flotrofobul/platform/config/mosquittocnf.h>
#include <flotrofobul/platform/jsonserializer/json_text.h>
#include <flotrofobul/platform/jsonserializer/qjsonserializer.h>
#include <flotrofobul/platform/secrets.h>
#include <flotrofobul/utility/system_t.h>

#include "support/log_recorder.h"

#include <QtCore/QJsonArray>
#include <QtCore/QPropertyAnimation>
#include <QtTest/QtTest>

#include <malloc.h>

using comunication::documentFromForeignJson;
using comunication::config::mosquittocnf;
using comunication::utility::system_t;

namespace {

// With ' for ", which reads better in a table.
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
    "{'mqtt':{'global':{'installation_id':'','host':'127.0.0.1','port':1883,'interval':1000,'autoconnect':true,"
    "'logging':false},'connect':{'keepalive':60,'cleansession':true,'username':'','password':'','timeout':10,"
    "'outbox_messages':1000,'outbox_bytes':8388608,'max_packet_bytes':16777216},"
    "'security':{'tls_enable':false,'tls_insecure':false,'ca_file':''}}}";

} // namespace

class unit_json : public QObject {
    Q_OBJECT

    const QJsonSerializer serializer;

private Q_SLOTS:
    void configurations_data()
    {
        QTest::addColumn<QByteArray>("given");
        QTest::addColumn<QByteArray>("taken");
        QTest::addColumn<QString>("refused"); // key: value, what is allowed
        const auto row = [](const char* rule, const char* given, const char* taken, const char* refused = "") {
            QTest::newRow(rule) << QByteArray(given) << QByteArray(taken) << QString::fromLatin1(refused);
        };
        row("nothing", "{}", "{}");
        row("some keys, ends of ranges and unknown ones",
            "{'a':[1],'mqtt':{'b':{'c':null},'global':{'d':1.5,'Port':'x','port':1,'interval':6e4},"
            "'connect':{'timeout':1.0,'max_packet_bytes':268435455},'security':{'e':[]}}}",
            nullptr); // all of it
        row("numbers",
            "{'mqtt':{'global':{'port':0,'interval':60001},'connect':{'keepalive':1.5,'timeout':1e300,"
            "'outbox_messages':'1','outbox_bytes':null,'max_packet_bytes':true}}}",
            "{}",
            "global.port: 0, a whole number from 1 to 65535|global.interval: 60001, a whole number from 1 to 60000|"
            "connect.keepalive: 1.5, a whole number from 0 to 65535|"
            "connect.timeout: 1e+300, a whole number from 1 to 600|"
            "connect.outbox_messages: \"1\", a whole number from 1 to 65000|"
            "connect.outbox_bytes: null, a whole number from 1024 to 1073741824|"
            "connect.max_packet_bytes: true, a whole number from 1024 to 268435455");
        row("no numbers, a password and good values among them",
            "{'x':1,'mqtt':{'y':2,'global':{'z':3,'installation_id':'1234','host':127,'logging':1,'autoconnect':"
            "'123456789012345678901234567890123456789012345678901234567890123!'},"
            "'connect':{'cleansession':[1],'username':'u','password':271828},"
            "'security':{'tls_enable':null,'tls_insecure':true,'ca_file':{}}}}",
            "{'x':1,'mqtt':{'y':2,'global':{'z':3,'installation_id':'1234'},'connect':{'username':'u'},"
            "'security':{'tls_insecure':true}}}",
            "global.host: 127, a text|global.autoconnect: "
            "\"123456789012345678901234567890123456789012345678901234567890123..., true or false|"
            "global.logging: 1, true or false|connect.cleansession: an array, true or false|"
            "connect.password: (not shown), a text|security.tls_enable: null, true or false|"
            "security.ca_file: an object, a text");
        row("passwords in the place of a section",
            "{'mqtt':{'global':'{\\'password\\':\\'271828\\'}','connect':[{'password':'271828'}],'security':null}}",
            "{}", "global: a text, an object|connect: an array, an object|security: null, an object");
    }

    void configurations()
    {
        QFETCH(QByteArray, given);
        QFETCH(QByteArray, taken);
        QFETCH(QString, refused);
        log_recorder_t log;
        mosquittocnf model;
        QVERIFY(model.deserialize(parse(given)));
        QStringList lines = refused.replace(", "_l1, ", allowed: "_l1).split(u'|', Qt::SkipEmptyParts);
        for (QString& line : lines) {
            line.prepend("2 deserialize Refused configuration value mqtt."_l1);
        }
        QCOMPARE(log.take(), lines);
        const QJsonObject inForce = merged(parse(defaults), parse(taken.isNull() ? given : taken));
        QCOMPARE(model.serialize(), inForce);

        // Taken over another: nothing of it is lost, no other unknown key either.
        mosquittocnf second;
        QVERIFY(second.deserialize(parse("{'mqtt':{'global':{'host':'other'},'old':1}}")));
        QVERIFY(second.deserialize(inForce));
        QVERIFY(!second.deserialize(parse("{'mqtt':'{}','old':2}")));
        QCOMPARE(second.serialize(), merged(inForce, parse("{'mqtt':{'old':1},'old':2}")));
        QCOMPARE(log.lines[0], "2 deserialize Refused configuration value mqtt: a text, allowed: an object"_s);
        QCOMPARE(log.records[0].file, "libscomunication/libmosquittoconfig/mosquittocnf"_s);
    }

    void everyGetterReadsItsOwnKey()
    {
        mosquittocnf model;
        auto* const global = model.getMqtt()->getGlobal();
        auto* const connect = model.getMqtt()->getConnect();
        auto* const security = model.getMqtt()->getSecurity();
        QVERIFY(model.deserialize(parse(
            "{'mqtt':{'global':{'installation_id':'i','host':'h','port':1,'interval':2,'autoconnect':false,"
            "'logging':true},'connect':{'keepalive':3,'cleansession':false,'username':'u','password':'p','timeout':4,"
            "'outbox_messages':5,'outbox_bytes':6000,'max_packet_bytes':7000},"
            "'security':{'tls_enable':true,'tls_insecure':true,'ca_file':'c'}}}")));
        QVariantList values;
        values << global->getInstallation_id() << global->getHost() << global->getPort() << global->getInterval()
               << global->getAutoconnect() << global->getLogging() << connect->getKeepalive()
               << connect->getCleansession() << connect->getUsername() << connect->getPassword()
               << connect->getTimeout() << connect->getOutbox_messages() << connect->getOutbox_bytes()
               << connect->getMax_packet_bytes() << security->getTls_enable() << security->getTls_insecure()
               << security->getCa_file();
        QCOMPARE(values, (QVariantList{"i"_s, "h"_s, 1, 2, false, true, 3, false, "u"_s, "p"_s, 4, 5, 6000, 7000, true,
                                       true, "c"_s}));
        global->setLogging(false);
        QVERIFY(!global->getLogging());
    }

    // A value and what it becomes in the record, "-" where it is refused. The last key is unknown.
    void properties()
    {
        const QByteArray rows = // the class itself is not kept
            "clientid 1.5 ['1.5']|clientid true ['true']|clientid null -|connected 'off' [true]|"
            "connected 'False' [false]|connected 0.4 [false]|connected [] -|masterData '{}' -|"
            "masterData {'k':[1,null]} [{'k':[1,null]}]|objectName 'x' ['x']|@class 'system_t' -|"
            "@class 'comunication::utility::system_t' [null]|Clientid {'unknown':[0.5]} [{'unknown':[0.5]}]";
        for (const QByteArray& row : rows.split('|')) {
            const QByteArrayList parts = row.split(' ');
            const QJsonObject json = parse("{'os':'debian','zone':1,'" + parts[0] + "':" + parts[1] + "}");
            QObject parent;
            QByteArray found = "-";
            try {
                const auto* const record = serializer.deserialize<system_t*>(json, &parent);
                const QJsonArray value{QJsonValue::fromVariant(record->property(parts[0]))};
                found = QJsonDocument(value).toJson(QJsonDocument::Compact).replace('"', '\'');
                QCOMPARE(record->getOs() + record->property("zone").toString(), "debian1"_s);
            } catch (const QJsonDeserializationException&) {
            }
            QCOMPARE(parts[0] + ' ' + parts[1] + ' ' + found, row);
            QCOMPARE(parent.children().size(), found == "-" ? 0 : 1); // nothing is left of what was refused
        }
    }

    void refusals()
    {
        try {
            Q_UNUSED(serializer.deserialize<system_t*>(parse("{'os':[]}")));
            QFAIL("taken");
        } catch (const QJsonSerializerException& exception) {
            QVERIFY(QByteArray(exception.what()).endsWith(" type of comunication::utility::system_t::os: QString"));
            const std::unique_ptr<QException> copy(exception.clone());
            QVERIFY_EXCEPTION_THROWN(copy->raise(), QJsonDeserializationException);
        }
        // A variant among its properties, and no constructor that can be invoked.
        const QPropertyAnimation other;
        QVERIFY_EXCEPTION_THROWN((void)serializer.serialize<QPropertyAnimation*>(&other), QJsonSerializationException);
        QCOMPARE(serializer.serialize<QPropertyAnimation*>(nullptr), QJsonObject());
        QVERIFY_EXCEPTION_THROWN((void)serializer.deserialize<QPropertyAnimation*>({}), QJsonDeserializationException);

        // A key with a zero character is not the property that its beginning names.
        const std::unique_ptr<system_t> strange(serializer.deserialize<system_t*>(parse("{'os\\u0000x':'y'}")));
        QCOMPARE(strange->getOs(), QString());

        QJsonObject flood;
        for (int key = 0; key < 1000; ++key) {
            flood.insert(QString::number(key), key);
        }
        delete serializer.deserialize<system_t*>(flood);
        flood.insert("one more"_s, 1);
        QVERIFY_EXCEPTION_THROWN((void)serializer.deserialize<system_t*>(flood), QJsonDeserializationException);
    }

    // Qt's parser leaks the earlier values of a repeated key.
    void foreignTextsLeakNothing()
    {
        const QByteArray rows =
            // The same keys on other levels, repeats in their turn repeated, brackets and backslashes in texts,
            "{'a':{'a':{'a':[1]}},'d':{'a':{'b':1},'c':[1,{'a':2}]}} "
            "{'a':{'b':1},'x':[],'a':2,'a':[{'d':1}],'a':{'c':1}} "
            "{'d':[{'a':[1],'a':[1]},{'a':[1]},{'c':{'a':{'b':1},'a':{'c':1}}}]} "
            "{'a':{'a':{'b':[1],'b':{'c':1}},'a':0},'a':[2]} "
            "{'\\'a':{'b':1},'\\u0022a':{'c':1}} {'a':'{[','b':[']}','\\\\'],'b':['\\\\'],'c':'\\'{','a':[1],'a':[2]} "
            // and what is no JSON.
            "{'d':{,,,bad},'d':1} {'d':{'x':tru},'d':{}} a:{'b':1}}}],'a':[] {'a':{'b':1},'a':{'c {'a\\";
        for (QByteArray text : rows.split(' ')) {
            text.replace('\'', '"');
            QJsonParseError expected{};
            QJsonParseError error{};
            const QJsonDocument reference = QJsonDocument::fromJson(text, &expected);
            QVERIFY2(documentFromForeignJson(text, &error) == reference && error.error == expected.error, text);
            // Says nothing under AddressSanitizer, which counts leaks itself.
            const auto before = mallinfo2().uordblks;
            for (int i = 0; i < 500; ++i) {
                documentFromForeignJson(text);
            }
            QVERIFY2(mallinfo2().uordblks < before + 500 * 16, text);
        }
    }

    // Every node writes the same, whatever Qt it stands on.
    // A password that is shown cannot be taken back, and a compass that is hidden helps nobody.
    void secrets_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<bool>("isSecret");
        QTest::addColumn<bool>("isNameOfSecret");
        const auto rows = [](bool isSecret, bool isName, const QByteArray& texts) {
            for (const QByteArray& text : texts.split(' ')) {
                QTest::newRow(text.constData()) << text << isSecret << isName;
            }
        };
        rows(true, true, "pass PASS Pass passwd password passwords passphrase Passwort userpass wifiPass WIFIPASS");
        rows(true, true, "userPass1 my_pass pass-1 ComPass compass_pass PASSword pASSWORD bypasspassword passWord");
        rows(true, true,
             "pw PW Pw userPw user_pw wifipw pw2 PW_HASH pwHash 1pw pwd Pwd userPWD pwdHash secret topSecret");
        rows(true, true, R"({"user":"somebody","apw":"x","other":"somethingElse"})");
        rows(false, true, "token apiToken TOKENS api_key apiKey APIKEY api-key privateKey credentials");
        rows(false, false, "compass Compass COMPASS userCompass compass_2 compassWidth bypass passage passed passive");
        rows(false, false, "secretary upward PWM pwm_duty mapWidth lampWatts key keyboard monkey pas word");
        rows(false, false, "AAAAAAAAAAAAAAAAAAAAAAAAAAAAAA7pwAAAAAAAAAAAAAAAAAAAAAA=");
    }
    void secrets()
    {
        QFETCH(QByteArray, text);
        QFETCH(bool, isSecret);
        QFETCH(bool, isNameOfSecret);
        QCOMPARE(comunication::isSecret(QString::fromLatin1(text)), isSecret);
        QCOMPARE(comunication::isNameOfSecret(QString::fromLatin1(text)), isNameOfSecret);
        QVERIFY(comunication::maybeSecret(text) || !isNameOfSecret); // nothing is looked at that it does not find
    }

    void numbersAreDoubles()
    {
        const QByteArray given =
            "{'a':[9007199254740993,-9223372036854775808,9223372036854775807,18446744073709551615],"
            "'b':[1e15,-311e15,1e20,1e22,1e-7,-7,0.5,123456789012345,0.30000000000000004],"
            "'c':'9007199254740993\\\\','d\\\"9007199254740993':1}";
        const QByteArray written =
            "{'a':[9007199254740992,-9223372036854776000,9223372036854776000,18446744073709552000],"
            "'b':[1000000000000000,-311000000000000000,1e+20,1e+22,1e-07,-7,0.5,123456789012345,"
            "0.30000000000000004],"
            "'c':'9007199254740993\\\\','d\\\"9007199254740993':1}";
        QCOMPARE(comunication::jsonOf(QJsonDocument(parse(given))), QByteArray(written).replace('\'', '"'));
        const QJsonArray made{qint64(9007199254740993), 311e15, -5e17, 1e19, 2e19};
        QCOMPARE(comunication::jsonOf(QJsonDocument(made)),
                 QByteArray("[9007199254740992,311000000000000000,-500000000000000000,10000000000000000000,2e+19]"));
    }

    // Qt sorts many members as it likes, where the last of equal keys must win all the same.
    void lastOfMany()
    {
        QByteArray text = R"({"k3":{"first":1},)";
        for (int key = 0; key < 17; ++key) {
            text += "\"k" + QByteArray::number(key) + "\":0,";
        }
        const QJsonObject object = documentFromForeignJson(text + R"("\u006b3":{"last":1}})").object();
        QCOMPARE(object.size(), 17);
        QCOMPARE(object["k3"_l1], QJsonValue(parse("{'last':1}")));
    }

    // What the parser refuses in no time must not cost more before it gets there.
    void hostileTextsStayCheap()
    {
        const QByteArray repeats = QByteArray("{\"a\":").repeated(1000) + "0" + QByteArray(",\"a\":0}").repeated(1000);
        QElapsedTimer clock;
        clock.start();
        for (const QByteArray& text : {QByteArray(16 * 1024 * 1024, '['), repeats}) {
            QJsonParseError error{};
            QVERIFY(documentFromForeignJson(text, &error).isNull());
            QCOMPARE(error.error, QJsonParseError::DeepNesting);
        }
        QVERIFY2(clock.elapsed() < 2000, qPrintable(QString::number(clock.elapsed())));
    }
};

QTEST_APPLESS_MAIN(unit_json)
#include "unit_json.moc"
