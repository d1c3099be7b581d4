// SPDX-License-Identifier: MIT
// JSON of foreign hands: the same document as Qt's own parser gives, without its leak.
#include <flotrofobul/platform/jsonserializer/json_text.h>

#include <QtTest/QtTest>

#include <malloc.h>

class unit_json_text : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void repeatedKeysLeakNothing_data()
    {
        QTest::addColumn<QByteArray>("text");
        const struct {
            const char* name;
            const char* text;
        } rows[] = {
            {"no key twice", "{'d':{'a':{'b':1},'c':[1,{'a':2}]}}"},
            {"object twice", "{'a':{'b':1},'a':{'c':1}}"},
            {"array twice", "{'a':[1],'a':[2]}"},
            {"object, then number", "{'a':{'b':1},'a':2}"},
            {"number, then object", "{'a':2,'a':{'b':1}}"},
            {"three times", "{'a':{'b':1},'x':[],'a':{'c':1},'a':[{'d':1}]}"},
            {"in an object within", "{'d':{'a':{'b':1},'a':{'c':1}}}"},
            {"in an array within", "{'d':[{'a':[1],'a':[1]},{'a':[1]}]}"},
            {"within a repeated value", "{'a':{'b':[1],'b':[2]},'a':3}"},
            {"written with an escape", "{'a':{'b':1},'\\u0061':{'c':1}}"},
            {"quote in the key", "{'\\\"a':{'b':1},'\\u0022a':{'c':1}}"},
            {"brackets in texts", "{'a':'{[','b':[']}'],'b':['\\\\'],'c':'\\\"{'}"},
            {"same key on two levels", "{'a':{'a':{'a':[1]}}}"},
            {"no JSON in a repeated value", "{'d':{,,,bad},'d':1}"},
            {"no JSON within a repeated value", "{'d':{'x':tru},'d':{}}"},
            {"repeats within repeats", "{'a':{'a':{'a':{'b':1},'a':{'c':1}},'a':0},'a':[2]}"},
            {"unfinished", "{'a':{'b':1},'a':{'c':1"},
            {"too many ends", "{'a':{'b':1}}}],'a':[]"},
            {"end within an escape", "{'a\\"},
            {"no JSON", "a:{b},a:{c}"},
        };
        for (const auto& row : rows) {
            QTest::newRow(row.name) << QByteArray(row.text).replace('\'', '"');
        }
    }

    void repeatedKeysLeakNothing()
    {
        QFETCH(QByteArray, text);
        QJsonParseError expected{};
        QJsonParseError error{};
        const QJsonDocument reference = QJsonDocument::fromJson(text, &expected);
        QCOMPARE(comunication::documentFromForeignJson(text, &error), reference);
        QCOMPARE(error.error, expected.error);
#ifndef __SANITIZE_ADDRESS__ // which counts leaks itself and allocates its own way
        const auto before = mallinfo2().uordblks;
        constexpr std::size_t times = 1000;
        for (std::size_t i = 0; i < times; ++i) {
            comunication::documentFromForeignJson(text);
        }
        QVERIFY2(mallinfo2().uordblks < before + times * 16, "memory grows with every document");
#endif
    }

    // What the parser refuses in no time must not cost more before it gets there.
    void hostileTextsStayCheap()
    {
        constexpr int size = 4 * 1024 * 1024;
        QElapsedTimer clock;
        clock.start();
        QJsonParseError error{};
        QVERIFY(comunication::documentFromForeignJson(QByteArray(size, '['), &error).isNull());
        QCOMPARE(error.error, QJsonParseError::DeepNesting);
        QByteArray nested = "0";
        for (int depth = 0; depth < 1000; ++depth) {
            nested = "{\"a\":" + nested + ",\"a\":0}";
        }
        QVERIFY(comunication::documentFromForeignJson(nested, &error).isNull());
        QCOMPARE(error.error, QJsonParseError::DeepNesting);
        QVERIFY2(clock.elapsed() < 1000, qPrintable(QString::number(clock.elapsed())));
    }

    // One pass, however often a key is repeated.
    void manyKeysStayCheap()
    {
#ifdef __SANITIZE_ADDRESS__
        const int count = 5000; // its reallocation copies at every step
#else
        const int count = 100000;
#endif
        QByteArray text = "{";
        for (int i = 0; i < count; ++i) {
            text += "\"k" + QByteArray::number(i) + "\":[],";
        }
        text += "\"k0\":[1]}";
        QElapsedTimer clock;
        clock.start();
        const QJsonDocument document = comunication::documentFromForeignJson(text);
        QCOMPARE(document.object().size(), count);
        QVERIFY2(clock.elapsed() < 5000, qPrintable(QString::number(clock.elapsed())));
    }
};

QTEST_APPLESS_MAIN(unit_json_text)
#include "unit_json_text.moc"
