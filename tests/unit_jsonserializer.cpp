// SPDX-License-Identifier: MIT
// Objects to JSON and back: which properties, which values fit which type, what a refusal leaves behind.
#include <flotrofobul/platform/jsonserializer/qjsonserializer.h>
#include <flotrofobul/platform/logs/log_line.h>

#include <QtCore/QJsonArray>
#include <QtCore/QPoint>
#include <QtTest/QtTest>

#include <memory>

using comunication::literals::operator""_l1;

namespace house {

class room_t : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString name MEMBER name)
    Q_PROPERTY(bool lit MEMBER lit)
    Q_PROPERTY(QJsonObject data MEMBER data)
    Q_PROPERTY(QString derived READ getDerived STORED false)

public:
    Q_INVOKABLE explicit room_t(QObject* parent = nullptr) : QObject(parent) { ++alive; }
    ~room_t() override { --alive; }

    QString getDerived() const { return name; }

    QString name = QStringLiteral("kept");
    bool lit = true;
    QJsonObject data{{"kept"_l1, 1}};
    static int alive;
};

int room_t::alive = 0;

class hall_t : public QObject {
    Q_OBJECT
    Q_PROPERTY(QPoint size MEMBER size)

public:
    explicit hall_t(QObject* parent = nullptr) : QObject(parent) {}

    QPoint size;
};

} // namespace house

using house::hall_t;
using house::room_t;

class unit_jsonserializer : public QObject {
    Q_OBJECT

    QJsonSerializer serializer;

    static QVariant property(const QObject& object, const QString& key)
    {
        return object.property(key.toLatin1().constData());
    }

private Q_SLOTS:
    void cleanup() { QCOMPARE(room_t::alive, 0); }

    void writesTheStoredPropertiesOfTheClass()
    {
        room_t room;
        room.setObjectName(QStringLiteral("left out"));
        room.setProperty("dynamic", 1);
        room.data = QJsonObject{{"deep"_l1, QJsonArray{1.5, QJsonValue::Null}}};
        const QJsonObject expected{{"data"_l1, room.data}, {"lit"_l1, true}, {"name"_l1, "kept"_l1}};
        QCOMPARE(serializer.serialize<room_t*>(&room), expected);

        const room_t* const constant = &room;
        room.name = QString();
        QCOMPARE(serializer.serialize<room_t*>(constant)["name"_l1], QJsonValue(""_l1));
        QCOMPARE(serializer.serialize<QObject*>(constant), QJsonObject());
        QCOMPARE(serializer.serialize<room_t*>(nullptr), QJsonObject());
    }

    // A value with the result it has in the property of its key; an invalid result stands for a refusal.
    void reads_data()
    {
        QTest::addColumn<QString>("key");
        QTest::addColumn<QJsonValue>("value");
        QTest::addColumn<QVariant>("result");

        const auto row = [](const char* rule, QLatin1String key, const QJsonValue& value, const QVariant& result) {
            QTest::addRow("%s: %s", key.latin1(), rule) << QString(key) << value << result;
        };
        const auto text = [](const char* value) { return QVariant(QString::fromLatin1(value)); };
        const QVariant refused;
        const QJsonObject object{{"b"_l1, QJsonValue::Null}, {"a"_l1, 1}};

        row("text", "name"_l1, "x"_l1, text("x"));
        row("empty text", "name"_l1, ""_l1, text(""));
        row("whole number", "name"_l1, 5, text("5"));
        row("fraction", "name"_l1, 1.5, text("1.5"));
        row("large number", "name"_l1, 1e20, text("1e+20"));
        row("true", "name"_l1, true, text("true"));
        row("false", "name"_l1, false, text("false"));
        row("null", "name"_l1, QJsonValue::Null, refused);
        row("array", "name"_l1, QJsonArray{"x"_l1}, refused);
        row("object", "name"_l1, object, refused);

        row("false", "lit"_l1, false, false);
        row("true", "lit"_l1, true, true);
        row("any text", "lit"_l1, "off"_l1, true);
        row("text of a number", "lit"_l1, "0.0"_l1, true);
        row("text of false", "lit"_l1, "False"_l1, false);
        row("text of zero", "lit"_l1, "0"_l1, false);
        row("empty text", "lit"_l1, ""_l1, false);
        row("zero", "lit"_l1, 0, false);
        row("rounds to zero", "lit"_l1, 0.4, false);
        row("rounds away from zero", "lit"_l1, 0.5, true);
        row("negative", "lit"_l1, -1, true);
        row("null", "lit"_l1, QJsonValue::Null, refused);
        row("array", "lit"_l1, QJsonArray(), refused);
        row("object", "lit"_l1, object, refused);

        row("object", "data"_l1, object, object);
        row("text", "data"_l1, "{}"_l1, refused);
        row("number", "data"_l1, 1, refused);
        row("true", "data"_l1, true, refused);
        row("null", "data"_l1, QJsonValue::Null, refused);
        row("array", "data"_l1, QJsonArray{object}, refused);

        row("text", "objectName"_l1, "x"_l1, text("x"));
        row("null", "objectName"_l1, QJsonValue::Null, refused);

        row("null", "unknown"_l1, QJsonValue::Null, QVariant::fromValue(nullptr));
        row("whole number", "unknown"_l1, 7, QVariant(7LL));
        row("fraction", "unknown"_l1, 0.5, QVariant(0.5));
        row("text", "unknown"_l1, "x"_l1, text("x"));
        row("array", "unknown"_l1, QJsonArray{"x"_l1}, QVariantList{text("x")});
        row("object", "unknown"_l1, QJsonObject{{"a"_l1, 1}}, QVariantMap{{QStringLiteral("a"), 1LL}});
        row("other case", "Name"_l1, "x"_l1, text("x"));
        row("not stored", "derived"_l1, "x"_l1, text("kept"));

        row("the class itself", "@class"_l1, "house::room_t"_l1, QVariant::fromValue(nullptr));
        row("without the namespace", "@class"_l1, "room_t"_l1, refused);
        row("no text", "@class"_l1, QJsonValue::Null, refused);
    }

    void reads()
    {
        QFETCH(QString, key);
        QFETCH(QJsonValue, value);
        QFETCH(QVariant, result);

        // Sorted behind every key of the table: what comes after a refusal is not read either.
        const QJsonObject json{{key, value}, {"zone"_l1, 1}};
        QObject parent;
        if (!result.isValid()) {
            QVERIFY_EXCEPTION_THROWN(Q_UNUSED(serializer.deserialize<room_t*>(json, &parent)),
                                     QJsonDeserializationException);
            QCOMPARE(parent.children(), QObjectList());
            return;
        }
        auto* const room = serializer.deserialize<room_t*>(json, &parent);
        QCOMPARE(parent.children(), QObjectList{room});
        QCOMPARE(room->property("zone"), QVariant(1LL));
        if (key == "@class"_l1) {
            QVERIFY(!property(*room, key).isValid());
        } else {
            QCOMPARE(property(*room, key), result);
            QCOMPARE(property(*room, key).userType(), result.userType());
        }
        QCOMPARE(room->name, key == "name"_l1 ? result.toString() : QStringLiteral("kept"));
        QVERIFY(key == "lit"_l1 || room->lit);
        QVERIFY(key == "data"_l1 || room->data["kept"_l1] == 1);
    }

    void aRecordSurvivesTheWayThereAndBack()
    {
        room_t room;
        room.name = QStringLiteral("Küche");
        room.lit = false;
        room.data = QJsonObject{{"name"_l1, QJsonArray{1, QJsonObject()}}};
        const QJsonObject json = serializer.serialize<room_t*>(&room);
        const std::unique_ptr<room_t> copy(serializer.deserialize<room_t*>(json));
        QCOMPARE(serializer.serialize<room_t*>(copy.get()), json);
    }

    void aRefusalSaysWhatAndIsCaughtByEveryBase()
    {
        try {
            Q_UNUSED(serializer.deserialize<room_t*>(QJsonObject{{"lit"_l1, QJsonArray()}}));
            QFAIL("taken");
        } catch (const QJsonSerializerException& exception) {
            QCOMPARE(exception.what(), "The value does not fit the type of house::room_t::lit: bool");
            const std::unique_ptr<QException> copy(exception.clone());
            QVERIFY_EXCEPTION_THROWN(copy->raise(), QJsonDeserializationException);
        }
        hall_t hall;
        QVERIFY_EXCEPTION_THROWN(Q_UNUSED(serializer.serialize<hall_t*>(&hall)), QJsonSerializationException);
        QVERIFY_EXCEPTION_THROWN(Q_UNUSED(serializer.deserialize<hall_t*>(QJsonObject())),
                                 QJsonDeserializationException);
    }

    void aFloodOfUnknownKeysIsRefused()
    {
        QJsonObject json;
        for (int key = 0; key < 1000; ++key) {
            json.insert(QString::number(key), key);
        }
        const std::unique_ptr<room_t> room(serializer.deserialize<room_t*>(json));
        QCOMPARE(room->dynamicPropertyNames().size(), 1000);
        json.insert("one more"_l1, 1);
        QVERIFY_EXCEPTION_THROWN(Q_UNUSED(serializer.deserialize<room_t*>(json)), QJsonDeserializationException);
    }
};

QTEST_APPLESS_MAIN(unit_jsonserializer)
#include "unit_jsonserializer.moc"
