// SPDX-License-Identifier: MIT
// The topic grammar: its examples and edges, and every other topic against the expression that defines it.
#include <flotrofobul/define/topic_t.h>

#include "support/log_recorder.h"

#include <QtCore/QRandomGenerator>
#include <QtCore/QRegExp>
#include <QtTest/QtTest>

using comunication::utility::topic_t;
using ::utility::logs::classlogs;

namespace {

// ok, origin, local, plain, sender, destination, value
QStringList partsOf(const QString& text)
{
    bool ok = false;
    const topic_t topic(text, &ok);
    return {ok ? "ok"_s : "-"_s, topic.getOrigin(),      topic.getLocal(), topic.getPlain(),
            topic.getSender(),   topic.getDestination(), topic.getValue()};
}

// What the expression says of a topic, step by step.
QStringList referenceOf(const QString& text)
{
    QRegExp expression(topic_t::tmp_regex_allowed_topic_plain, Qt::CaseSensitive, QRegExp::RegExp);
    QStringList parts{"-"_s, QString(), QString(), QString(), QString(), QString(), QString()};
    if (expression.exactMatch(text) && expression.captureCount() >= topic_t::getTopic_min_len()) {
        int next = 2;
        parts[0] = "ok"_s;
        parts[1] = expression.cap(1);
        if (expression.cap(2) == "local"_s) {
            parts[2] = expression.cap(2);
            next = 3;
        }
        for (int part = 3; part < 7; ++part, ++next) {
            parts[part] = expression.cap(next);
        }
    }
    return parts;
}

bool compare(const QString& topic)
{
    const QStringList found = partsOf(topic);
    const QStringList expected = referenceOf(topic);
    if (found != expected) {
        qWarning() << "differs:" << topic << found << expected;
    }
    return found == expected;
}

} // namespace

class unit_topic : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void cleanup() { classlogs::getInstance()->setLevel(4); }
    void examples_data();
    void examples();
    void installationIds();
    void asTheExpression_data();
    void asTheExpression();
    void everyCharacter();
};

void unit_topic::examples_data()
{
    QTest::addColumn<QString>("topic");
    QTest::addColumn<QString>("parts"); // "" where the topic is refused
    const auto row = [](const char* rule, const char* topic, const char* parts) {
        QTest::newRow(rule) << QString::fromUtf8(topic) << QString::fromUtf8(parts);
    };
    row("plain", "local/1234/clientA/all/status/DB/persistent", "|local|1234|clientA|all|status/DB/persistent");
    row("bridge", "forward-bridge/local/1234/srv1/own_server/master",
        "forward-bridge|local|1234|srv1|own_server|master");
    row("every bridge", "other-cloud-bridge/local/1/s/d/v", "other-cloud-bridge|local|1|s|d|v");
    row("bridge without a slash", "cloud-bridgelocal/1/s/d/v", "cloud-bridge|local|1|s|d|v");
    row("leading slash, any run of the id's characters", "/local/4321/a/b/c", "|local|4321|a|b|c");
    row("repeated characters of the id", "local/11/a/b/c", "|local|11|a|b|c");
    row("value takes every further level, empty ones too", "local/1/a/b//c/", "|local|1|a|b|/c/");
    row("admitted marks", "local/1/{}[]()/?^$!:/.,=;@+'-_", "|local|1|{}[]()|?^$!:|.,=;@+'-_");
    row("pound sign and letters beyond ASCII", "local/1/\u00a3/\u00e9/\u0416", "|local|1|\u00a3|\u00e9|\u0416");
    row("four levels", "local/1234/clientA/all", "");
    row("empty value", "local/1234/clientA/all/", "");
    row("a foreign character in the id's level", "local/12a4/x/y/z", "");
    row("empty sender", "local/1//b/c", "");
    row("unknown bridge", "third-bridge/local/1/a/b/c", "");
    row("two slashes before local", "remote-bridge//local/1/a/b/c", "");
    row("other case", "Local/1/a/b/c", "");
    row("broker", "$SYS/broker/load", "");
    row("blank", "local/1/a b/c/d", "");
    row("hash", "local/1/a/b/#", "");
    row("percent", "local/1/a/%/d", "");
    row("ampersand", "local/1/a/b/c&", "");
    row("star", "local/1/*/b/c", "");
    row("line end", "local/1/a/b/c\n", "");
    row("nothing", "", "");
}

void unit_topic::examples()
{
    QFETCH(QString, topic);
    QFETCH(QString, parts);
    topic_t::setInstallationid("1234"_s);
    log_recorder_t log;
    bool ok = parts.isEmpty();
    QCOMPARE(topic_t(topic, &ok).getOriginal(), topic);
    QCOMPARE(ok, !parts.isEmpty());
    const QStringList expected = (parts.isEmpty() ? "-||||||"_s : "ok|"_l1 + parts).split(u'|');
    QCOMPARE(partsOf(topic), expected);
    // Each parse of a refused topic is told once.
    QCOMPARE(log.records.size(), parts.isEmpty() ? 2 : 0);
    for (const auto& record : qAsConst(log.records)) {
        QCOMPARE(log_recorder_t::textOf(record), "2 topic_t Unknown topic not processing messsage: "_l1 + topic);
        QCOMPARE(record.file, "libscomunication/libmosquittoproto/define/topic_t"_s);
        QCOMPARE(record.line, 67);
    }
}

void unit_topic::installationIds()
{
    const QString pattern = topic_t::regex_allowed_topic_plain;
    const QString topic = "local/12/a/b/c"_s;
    topic_t::setInstallationid("21"_s);
    QCOMPARE(partsOf(topic)[0], "ok"_s);
    topic_t::setInstallationid("x@y"_s);
    QCOMPARE(topic_t::installation_id, "x@y"_s);
    QCOMPARE(partsOf(topic)[0], "-"_s);
    QCOMPARE(topic_t::regex_allowed_topic_plain, pattern);
    QCOMPARE(topic_t::tmp_regex_allowed_topic_plain, QString(pattern).replace("@installation_id"_s, "x@y"_s));
    // The placeholder itself as an id: its characters.
    topic_t::setInstallationid("@installation_id"_s);
    QCOMPARE(partsOf("local/lion/a/b/c"_s)[0], "ok"_s);
    // Without an id the class swallows what follows, and a group is lost: the parts move on by one.
    topic_t::setInstallationid(QString());
    QCOMPARE(partsOf(topic), "ok||local|12/a|b|c|"_s.split(u'|'));
}

void unit_topic::asTheExpression_data()
{
    QTest::addColumn<QString>("id");
    QTest::addColumn<int>("topics");
    const auto row = [](const char* id, int topics) {
        QTest::newRow(*id == 0 ? "(empty)" : id) << QString::fromUtf8(id) << topics;
    };
    row("1234", 50000);
    row("House_7", 20000);
    row("", 2500);
    for (const QString& id :
         "- a-z z-a ] a]b ^ ^1 / 1/2 \\ \\d 1\\ @ _ \u00a3 \u00e9\u0416 [ ( () + \\1 1|2 @installation_id"_s.split(
             u' ')) {
        row(qPrintable(id), 2500);
    }
}

void unit_topic::asTheExpression()
{
    QFETCH(QString, id);
    QFETCH(int, topics);
    topic_t::setInstallationid(id);
    classlogs::getInstance()->setLevel(1);
    // Valid topics, changed at a few places.
    const QStringList bridges{QString(),        "remote-bridge"_s,      "forward-bridge"_s,
                              "cloud-bridge"_s, "other-cloud-bridge"_s, "local"_s};
    const QString pieces =
        "//////lloca12-_{}[]()?^$\u00a3!:.,=;@+'abcAZ \t\n#%&*\\\"|~<>\u00e9\u00df\u0416\u0661\u20ac\u0301\u00aa\U0001f600\ufffd"_s %
        QChar(0) % id;
    QRandomGenerator random(static_cast<quint32>(qHash(id, 1)));
    const auto below = [&random](int bound) { return static_cast<int>(random.bounded(bound)); };
    const auto level = [&](const QString& characters) {
        QString text;
        for (int length = 1 + below(4); length > 0 && !characters.isEmpty(); --length) {
            text += characters.at(below(characters.size()));
        }
        return text;
    };
    const QString letters = "abcXYZ019_-.@+"_s;
    int accepted = 0;
    for (int n = 0; n < topics; ++n) {
        QString topic = bridges[below(bridges.size())] + (below(4) != 0 ? "/"_s : QString()) + "local/"_l1 +
                        level(id.isEmpty() ? letters : id) + u'/' + level(letters) + u'/' + level(letters) + u'/' +
                        level(letters);
        for (int changes = below(4); changes > 0; --changes) {
            const int place = below(topic.size() + 1);
            switch (below(3)) {
            case 0: topic.insert(place, pieces.at(below(pieces.size()))); break;
            case 1: topic.remove(place, 1 + below(3)); break;
            default: topic.replace(place, 1, pieces.at(below(pieces.size())));
            }
        }
        QVERIFY(compare(topic));
        accepted += partsOf(topic)[0] == "ok"_s ? 1 : 0;
    }
    if (topics > 10000) {
        QVERIFY2(accepted > topics / 10 && accepted < topics * 9 / 10, qPrintable(QString::number(accepted)));
    }
}

// Every character of the basic plane in every part of a topic.
void unit_topic::everyCharacter()
{
    classlogs::getInstance()->setLevel(1);
    topic_t::setInstallationid("1234"_s);
    const QStringList places{"%1/local/1/s/d/v"_s, "local/%1/s/d/v"_s, "local/1%1/s/d/v"_s,
                             "local/1/s%1/d/v"_s,  "local/1/s/%1/v"_s, "local/1/s/d/%1"_s};
    for (const QString& place : places) {
        for (int character = 0; character <= 0xffff; ++character) {
            QVERIFY(compare(QString(place).replace("%1"_l1, QString(QChar(character)))));
        }
    }
}

QTEST_GUILESS_MAIN(unit_topic)
#include "unit_topic.moc"
