// SPDX-License-Identifier: MIT
// The touch panel in a house that suffers: what it says in each state, and whether that can be read and touched. First
// the judge of that shows that it sees what is wrong.
#include "touch_panel/touch_panel.h"
#include "support/layout_check.h"
#include "support/log_recorder.h"

#include <flotrofobul/testkit/broker.h>

#include <QtCore/QTemporaryDir>
#include <QtQml/QQmlComponent>
#include <QtQuick/QQuickWindow>
#include <QtTest/QtTest>

using comunication::testkit::broker_t;
using comunication::testkit::child_t;
using comunication::testkit::memory_file_t;

namespace {

/// The item that a path of object names leads to.
QQuickItem* find(QQuickItem* from, const QString& path)
{
    const auto children = from->childItems();
    for (QQuickItem* child : children) {
        const bool isNext = child->objectName() == path.section(u'/', 0, 0);
        if (isNext && !path.contains(u'/')) {
            return child;
        }
        if (QQuickItem* const found = find(child, isNext ? path.section(u'/', 1) : path)) {
            return found;
        }
    }
    return nullptr;
}

} // namespace

class touch_panel : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        if (hasFailed) {
            QSKIP("The rows follow each other, and one has failed.");
        }
    }
    void cleanupTestCase()
    {
        server->kill();
        server->waitForFinished();
    }
    void cleanup() { hasFailed = hasFailed || QTest::currentTestFailed(); }

    void judge_data()
    {
        QTest::addColumn<QString>("items");
        QTest::addColumn<QString>("fault");
        const auto row = [](const char* tag, const char* items, const char* fault) {
            QTest::newRow(tag) << QString::fromLatin1(items) << QString::fromLatin1(fault);
        };
        row("good", "Text { text: 'a' } Text { y: 40; text: 'b' } T.Button { y: 60; width: 28; height: 28 }", "");
        row("wide", "Text { width: 20; text: 'too wide' }", "\"too wide\" .* is larger");
        row("high", "Text { width: 60; height: 20; wrapMode: Text.Wrap; text: 'two long lines' }", "is larger");
        row("padded", "Text { width: 80; rightPadding: 70; text: 'padded' }", "is larger");
        row("input", "TextInput { objectName: 'field'; width: 20; text: 'too wide' }", "field\\) is larger");
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0) // which says so only of texts that are elided
        row("lines", "Text { width: 60; wrapMode: Text.Wrap; maximumLineCount: 1; text: 'two lines' }", "is cut off");
#endif
        row("elided", "Text { width: 20; elide: Text.ElideRight; text: 'elided' }", "");
        row("outside", "Text { x: 190; text: 'outside' }", "sticks out: 10 x");
        row("clipped", "Item { clip: true; width: 60; height: 9; Text { text: 'low' } }", "sticks out: .* x 9");
        row("across", "Rectangle { width: 60; height: 60; Text { y: 50; text: 'low' } }", "across the edge of its box");
        row("beside", "Rectangle { width: 60; height: 60; Text { y: 70; text: 'name' } }", "");
        row("button outside", "T.Button { y: 80; width: 40; height: 40 }", "button .* sticks out: 40 x 20");
        row("scrolls down",
            "Flickable { clip: true; width: 40; height: 30; contentWidth: 40; contentHeight: 90\n"
            "Text { y: 20; text: 'low' } }",
            "");
        row("not across",
            "Flickable { clip: true; width: 40; height: 30; contentWidth: 40; contentHeight: 90\n"
            "Text { y: 20; text: 'wide words' } }",
            "sticks out: 40 x 10");
        row("overlap", "Text { text: 'lower' } Text { y: 5; text: 'upper' }", "\"lower\" .* and \"upper\" .* overlap");
        row("right",
            "Text { width: 200; text: 'left' }\n"
            "Text { width: 200; horizontalAlignment: Text.AlignRight; text: 'right' }",
            "");
        row("bottom",
            "Text { height: 99; text: 'top' }\n"
            "Text { height: 99; verticalAlignment: Text.AlignBottom; text: 'bottom' }",
            "");
        row("middle",
            "Text { x: 85; text: 'a word' }\n"
            "Text { width: 200; horizontalAlignment: Text.AlignHCenter; text: 'middle' }",
            "overlap");
        row("invisible",
            "Text { text: 'one' } Text { visible: false; text: 'no' }\n"
            "Item { opacity: 0; Text { text: 'nor this' } }",
            "");
        row("covered", "Text { text: 'lower' } Rectangle { width: 200; height: 99 } Text { text: 'upper' }", "");
        row("on top", "Text { z: 1; text: 'lower' } Rectangle { width: 200; height: 99 } Text { text: 'upper' }",
            "overlap");
        row("in part", "Text { text: 'lower' } Rectangle { width: 9; height: 99 }", "lower\" .* is covered in part");
        row("on a sheet",
            "Text { text: 'lower' }\n"
            "Rectangle { width: 99; height: 99; Rectangle { width: 9; height: 99; color: 'red' } }",
            "");
        row("small", "T.Button { width: 40; height: 27; text: 'x' }",
            "button \"x\" .* too small for a finger: 40 x 27");
        row("small tap", "Item { width: 20; height: 40; TapHandler {} }", "too small");
        row("touched twice",
            "MouseArea { objectName: 'low'; width: 50; height: 50 }\n"
            "Item { x: 40; width: 50; height: 50; TapHandler {} }",
            "button low and button .* overlap, by 10 x 50");
        row("within", "MouseArea { width: 99; height: 99; T.Button { width: 50; height: 50 } }", "");
        row("only hovers", "MouseArea { width: 9; height: 9; acceptedButtons: Qt.NoButton }", "");
    }
    void judge()
    {
        QFETCH(const QString, items);
        QFETCH(const QString, fault);
        QQmlEngine engine;
        QQmlComponent component(&engine);
        component.setData("import QtQuick 2.15\nimport QtQuick.Templates 2.15 as T\nItem { width: 200; height: 100\n" +
                              items.toUtf8() + "}",
                          QUrl());
        const std::unique_ptr<QObject> root(component.create());
        QVERIFY2(root, qPrintable(component.errorString()));
        auto& item = *qobject_cast<QQuickItem*>(root.get());
        const QString found = layout::faults(item).join(u'\n'); // one, or none
        QVERIFY2(QRegularExpression(fault.isEmpty() ? "^$"_s : "^.*%1.*$"_s.arg(fault)).match(found).hasMatch(),
                 qPrintable(found));
        QCOMPARE(!layout::faults(item, layout::mustBeWhole).isEmpty(), !fault.isEmpty() || items.contains("elide"_l1));
    }

    // The rows follow each other. English and German words; wanted: in the kitchen and in the living room.
    void life_data()
    {
        QTest::addColumn<QString>("deeds");
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("age");
        QTest::addColumn<QString>("wanted");
        QTest::addColumn<QString>("look");
        const QString offline = "No connection to the house|Keine Verbindung zum Haus"_s;
        const QString searching = "Waiting for the central unit|Warte auf die Zentrale"_s;
        const QString following = "Connected|Verbunden"_s;
        const QString asking = "Asking the central unit…|Frage die Zentrale …"_s;
        const QString silent = "The central unit does not answer|Die Zentrale antwortet nicht"_s;
        const QString none = "No values yet|Noch keine Werte"_s;
        const QString now = "Values of .*\\d.*|Werte von .*\\d.*"_s;
        const QString soon = "Values less than a minute old|Werte keine Minute alt"_s;
        const auto row = [](const char* tag, const char* deeds, const QString& title, const QString& age,
                            const char* wanted,
                            const char* look) { QTest::newRow(tag) << deeds << title << age << wanted << look; };
        row("no broker", "panel", offline, none, "", "empty");
        row("no master", "broker", searching, none, "", "empty");
        row("following", "server", following, now, "19 20", "current ready");
        row("clicked", "click kitchen/warmer", following, now, "19.5 20", "current ready");
        row("by keyboard", "tab living_room/cooler; space", following, now, "19.5 19.5", "current ready");
        row("asking", "freeze; click kitchen/warmer", asking, now, "19.5 19.5", "current");
        row("no answer", "", silent, soon, "19.5 19.5", "old ready again");
        row("asking again", "click again", asking, soon, "19.5 19.5", "old again");
        row("thawed", "thaw", following, now, "20 19.5", "current ready");
        row("four rooms", "rooms", following, now, "20 19.5", "current ready");
        row("silent", "freeze; measure", silent, soon, "20 19.5", "old ready again");
        row("dead", "kill", searching, soon, "20 19.5", "old");
        row("dead for long", "later", searching, "Values 5 minutes old|Werte 5 Minuten alt"_s, "20 19.5", "old");
        row("kept", "panel", searching, none, "", "empty");
        row("back", "server", following, now, "20 19.5", "current ready");
        row("no broker any more", "stop", offline, soon, "20 19.5", "old");
        row("all back", "broker", following, now, "20 19.5", "current ready");
    }
    void life()
    {
        QFETCH(const QString, deeds);
        for (const QString& deed : deeds.split("; "_l1)) {
            does(deed.section(u' ', 0, 0), deed.section(u' ', 1));
        }
        for (const char* language : {"en", "de"}) {
            panel->setLanguage(QLocale(QString::fromLatin1(language)));
            window->grabWindow(); // the cards are made anew
            says(language[0] == 'e' ? 0 : 1);
            if (QTest::currentTestFailed()) {
                return;
            }
            for (const QSize size : {QSize(800, 480), QSize(1280, 800)}) {
                window->resize(size);
                QTRY_COMPARE(window->contentItem()->size(), QSizeF(size));
                window->grabWindow(); // everything is in its place then
                for (const bool dark : {true, false}) {
                    does("click"_s, "colours"_s);
                    window->grabWindow();
                    QCOMPARE(window->color().lightness() < 128, dark);
                    const QStringList faults = layout::faults(*window->contentItem(), layout::mustBeWhole);
                    QVERIFY(of("rooms"_s, "contentHeight").toReal() <= of("rooms"_s, "height").toReal()); // all seen
                    QVERIFY2(faults.isEmpty(), qPrintable(faults.join(u'\n')));
                }
            }
        }
    }

private:
    bool hasFailed = false;

    QString textOf(const QString& path) const
    {
        const QQuickItem* const item = find(window->contentItem(), path);
        return item != nullptr && item->isVisible() ? item->property("text").toString() : QString();
    }
    QVariant of(const QString& path, const char* property) const
    {
        const QQuickItem* const item = find(window->contentItem(), path);
        return item != nullptr ? item->property(property) : QVariant();
    }

    /// Whether it says what the row expects.
    void says(int language)
    {
        QFETCH(const QString, title);
        QFETCH(const QString, age);
        QFETCH(const QString, wanted);
        QFETCH(const QString, look);
        QTRY_COMPARE_WITH_TIMEOUT(textOf("title"_s), title.section(u'|', language, language), 9000);
        QVERIFY(window->title().endsWith(textOf("title"_s)));
        const QRegularExpression words("^%1$"_s.arg(age.section(u'|', language, language)));
        QTRY_VERIFY2(words.match(textOf("age"_s)).hasMatch(), qPrintable(textOf("age"_s)));
        QCOMPARE(textOf("hint"_s).isEmpty(), !look.contains("empty"_l1));
        QCOMPARE(!textOf("again"_s).isEmpty(), look.contains("again"_l1));
        for (int i = 0; !wanted.isEmpty() && i < 2; ++i) {
            const QString room = i == 0 ? "kitchen"_s : "living_room"_s;
            const QString degrees = QLocale().toString(wanted.section(u' ', i, i).toDouble(), 'f', 1);
            QTRY_COMPARE(textOf(room + "/wanted"_l1), "%1 °C"_s.arg(degrees));
            QTRY_VERIFY(QRegularExpression("^\\d+[.,]\\d °C$"_s).match(textOf(room + "/measured"_l1)).hasMatch());
            // What is old is paler than the name of the room.
            QCOMPARE(of(room + "/measured"_l1, "color") != of(room + "/room"_l1, "color"), look.contains("old"_l1));
            QTRY_COMPARE(of(room + "/warmer"_l1, "enabled").toBool(), look.contains("ready"_l1));
        }
    }

    void does(const QString& deed, const QString& where)
    {
        if (deed == "panel"_l1) {
            makePanel();
        } else if (deed == "broker"_l1) {
            QVERIFY(broker.start());
        } else if (deed == "stop"_l1) {
            broker.kill(SIGKILL);
        } else if (deed == "server"_l1) {
            server = std::make_unique<child_t>();
            server->start(QStringLiteral(HOUSE_SERVER),
                          {"--master"_s, "--data"_s, directory.filePath("house.sqlite"_s), configuration.path()});
        } else if (deed == "freeze"_l1) {
            server->signal(SIGSTOP);
        } else if (deed == "thaw"_l1) {
            server->signal(SIGCONT);
        } else if (deed == "kill"_l1) {
            server->signal(SIGKILL);
            server->waitForFinished();
        } else if (deed == "measure"_l1) {
            QMetaObject::invokeMethod(window->findChild<QObject*>("measuring"_s), "triggered");
        } else if (deed == "rooms"_l1) {
            const QVariantMap rooms{{"bathroom"_s, 23}, {"bedroom"_s, 17.5}};
            QMetaObject::invokeMethod(window, "ask", Q_ARG(QVariant, QVariantMap({{"set"_s, rooms}})));
            QTRY_VERIFY(!textOf("bedroom/wanted"_s).isEmpty());
        } else if (deed == "later"_l1) {
            QObject* const bar = find(window->contentItem(), "bar"_s);
            bar->findChild<QObject*>("clock"_s)->setProperty("running", false);
            bar->setProperty("now", QDateTime::currentDateTime().addSecs(330));
        } else if (deed == "click"_l1) {
            QTRY_VERIFY(of(where, "enabled").toBool());
            const QQuickItem* const item = find(window->contentItem(), where);
            const QPointF middle = item->mapToScene(QPointF(item->width() / 2, item->height() / 2));
            QTest::mouseClick(window, Qt::LeftButton, Qt::NoModifier, middle.toPoint());
        } else if (deed == "tab"_l1) {
            QTRY_VERIFY(of(where, "enabled").toBool());
            const QQuickItem* const item = find(window->contentItem(), where);
            for (int i = 0; i < 9 && !item->hasActiveFocus(); ++i) {
                QTest::keyClick(window, Qt::Key_Tab);
            }
            QVERIFY(item->hasActiveFocus());
        } else if (deed == "space"_l1) {
            QTest::keyClick(window, Qt::Key_Space);
        }
    }

    void makePanel()
    {
        panel = nullptr;
        panel = std::make_unique<touch_panel_t>(configuration.path(), "touch"_s, false, QLocale::c());
        window = qobject_cast<QQuickWindow*>(panel->window());
        QVERIFY(window);
        window->findChild<QObject*>("house"_s)->setProperty("timeLimit", 3000);
        QVERIFY(QTest::qWaitForWindowActive(window));
    }

    QTemporaryDir directory;
    broker_t broker;
    const memory_file_t configuration{
        R"({"mqtt": {"global": {"installation_id": "house1", "port": %1}}})"_s.arg(broker.port()).toUtf8()};
    std::unique_ptr<child_t> server;
    std::unique_ptr<touch_panel_t> panel;
    QQuickWindow* window = nullptr;
};

QTEST_MAIN(touch_panel)
#include "touch_panel.moc"
