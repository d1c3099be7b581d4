// SPDX-License-Identifier: MIT
// The face of the picture of a house under somebody's hands: the time line, playing, pages, keys, the start page. A
// recording stands still while one looks, so nothing here waits for a house.
#include "support/client.h"
#include "support/face.h"

#include <flotrofobul/testkit/broker.h>

#include <QtCore/QTemporaryDir>
#include <QtQml/QQmlComponent>
#include <QtQml/QQmlExpression>

using comunication::testkit::broker_t;
using comunication::tools::connection_t;
using comunication::view::picture_t;

namespace {

constexpr int length = 300; // seconds of the recording

QByteArray presentation(bool isHere)
{
    return QByteArray(R"({"d":{"clientid":"panel-2","type":"client","connected":)") + (isHere ? "true" : "false") +
           R"(,"masterid":"tarnel-server-1"}})";
}

} // namespace

class view_face : public QObject, private face_t {
    Q_OBJECT

    QTemporaryDir directory;
    const QString path = directory.filePath("monday.rec"_s);

    void lookAtRecording(bool dark = false)
    {
        look([this](picture_t& chosen) { chosen.open(path); }, dark);
        QVERIFY(window() != nullptr);
        QTRY_VERIFY(!picture->isLoading());
    }
    void show(int second)
    {
        picture->show(picture->begin().addSecs(second));
        QTRY_VERIFY(!picture->isLoading());
    }
    double second() const { return double(picture->begin().msecsTo(picture->time())) / 1000; }

private Q_SLOTS:
    // A panel asks each second and is answered 40 ms later; another one is there from 120 to 200.
    void initTestCase()
    {
        QByteArray lines = R"({"flotrofobul_recording":1,"broker":"box:1883","began":"2020-01-01T00:00:00.000Z"})";
        const auto add = [&](double at, const QByteArray& topic, QByteArray payload, bool retain = false) {
            lines += "\n{\"at\":" + QByteArray::number(at, 'f', 3) + ",\"topic\":\"forward-bridge/local/house1/" +
                     topic + "\",\"qos\":2,\"retain\":" + (retain ? "true" : "false") + ",\"payload\":\"" +
                     payload.replace('"', "\\\"") + "\"}";
        };
        for (int i = 0; i < length; ++i) {
            if (i == 120 || i == 200) {
                add(i, "panel-2/all/connection/presentation", presentation(i == 120));
            }
            add(i, "panel-1/tarnel-server-1/request/DB/x",
                R"({"d":{"wifiPass":"wordofpass","number":)" + QByteArray::number(i) + "}}", i == 250);
            add(i + 0.04, "tarnel-server-1/all/status/DB/x", i == 240 ? QByteArray() : QByteArray(R"({"d":"on"})"));
        }
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(lines + '\n');
    }
    void init()
    {
        const QByteArray next = QTest::currentTestFunction();
        if (next != "starting" && (next != "timeLine" || !engine)) { // its rows can do with one window
            lookAtRecording();
        }
    }
    void cleanupTestCase() { close(); }

    // from which second, and what is done on the time line | the second that is shown then
    void timeLine_data()
    {
        addRows(R"(
100 Home              | 0
100 End               | 299
100 Left              | 99
100 Right             | 101
100 Shift+Left        | 90
100 Shift+Right       | 110
100 PgUp              | 40
100 PgDown            | 160
0 Left                | 0
290 PgDown            | 299
100 press 0.25        | 75
100 press 0.25 0.5    | 150
100 press 0.5 1.2     | 299
100 press 0.5 -0.2    | 0
100 wheel 120         | 97
100 wheel -240        | 106
100 tilt -120         | 103
100 live              | 299
)");
    }
    void timeLine()
    {
        QFETCH(QStringList, cells);
        QStringList words = cells[0].split(u' ');
        show(words.takeFirst().toInt());
        QQuickItem* const line = seen("timeline"_s);
        const auto placeAt = [&](int word) {
            const double track = line->width() - 20;
            return placeOf(line, (10 + track * words[word].toDouble()) / line->width());
        };
        if (words[0] == "press"_l1) {
            QTest::mousePress(window(), Qt::LeftButton, {}, placeAt(1));
            if (words.size() > 2) {
                QTest::mouseMove(window(), placeAt(2));
            }
            QTest::mouseRelease(window(), Qt::LeftButton, {}, placeAt(words.size() - 1));
        } else if (words[0] == "wheel"_l1 || words[0] == "tilt"_l1) {
            const int turned = words[1].toInt();
            const QPoint place = placeOf(line);
            QWheelEvent event(place, place, {}, words[0] == "wheel"_l1 ? QPoint(0, turned) : QPoint(turned, 0), {}, {},
                              Qt::NoScrollPhase, false);
            QCoreApplication::sendEvent(window(), &event);
        } else if (words[0] == "live"_l1) {
            click(seen("live"_s));
        } else {
            const QKeySequence keys(words[0]);
            line->forceActiveFocus();
            QTest::keySequence(window(), keys);
        }
        QTRY_VERIFY(!picture->isLoading());
        QVERIFY2(std::abs(second() - cells[1].toInt()) < 1, qPrintable(QString::number(second())));
        // All the rest follows: the words, the handle, the nodes.
        QCOMPARE(said("time"_s), picture->time().toString("yyyy-MM-dd HH:mm:ss"_s));
        QCOMPARE(presence("panel-2"_s), second() < 120 ? QString() : second() < 200 ? "here"_s : "gone"_s);
        const QQuickItem* const panel = seen("node_panel-2"_s);
        for (const QQuickItem* const part : panel == nullptr ? QList<QQuickItem*>() : panel->childItems()) {
            const QVariant drawn = part->property("presence");
            QVERIFY(!drawn.isValid() || drawn == presence("panel-2"_s));
        }
        const auto children = line->childItems();
        const auto handle = std::find_if(children.begin(), children.end(), [](auto* child) {
            return qFuzzyCompare(child->width(), 10) && child->isVisible();
        });
        QVERIFY(handle != children.end());
        const double along = (line->width() - 20) * second() / picture->begin().secsTo(picture->end());
        QVERIFY(std::abs((*handle)->x() + 5 - 10 - along) < 2);
    }

    // A step of a player is as long as its speed says, however late it comes.
    void playing()
    {
        show(length); // all is read, so time never stands
        QCOMPARE(said("play"_s), "Play"_s);
        for (const int speed : {1, 10, 60, 1}) {
            show(20);
            QCOMPARE(said("speed"_s), QString::number(speed) + u'\u00d7');
            double moved = 0;
            qint64 passed = 0;
            int steps = 0;
            QElapsedTimer clock;
            const auto step = connect(picture.get(), &picture_t::timeChanged, [&] {
                moved = second() - 20;
                passed = clock.elapsed();
                ++steps;
            });
            clock.start();
            click(seen("play"_s));
            QCOMPARE(said("play"_s), "Pause"_s);
            QTRY_VERIFY(steps >= 2);
            click(seen("play"_s));
            disconnect(step);
            const double expected = double(passed) / 1000 * speed;
            QVERIFY2(moved <= expected + 0.01 && moved > expected / 2,
                     qPrintable("%1 s in %2 ms at %3"_s.arg(moved).arg(passed).arg(speed)));
            QVERIFY(!picture->isPlaying());
            click(seen("speed"_s));
        }
        // From its end on it begins anew.
        show(length);
        click(seen("play"_s));
        QTRY_VERIFY(picture->isPlaying() && second() < 200);
    }

    // What is pointed at, or reached with the arrow keys, is told of.
    void selecting()
    {
        show(150);
        for (const char* const node : {"panel-1", "panel-2", "tarnel-server-1"}) {
            click(seen("node_"_s + QLatin1String(node)));
            QCOMPARE(said("heading"_s), QLatin1String(node));
            QVERIFY(seen("node_"_s + QLatin1String(node))->property("isSelected").toBool());
        }
        QVERIFY(picture->details().size() > 3);
        for (const QVariant& row : picture->details()) {
            QVERIFY(reads(row.toMap()["name"_s].toString(), "details"));
            QVERIFY(reads(row.toMap()["value"_s].toString(), "details"));
        }
        click(seen("close"_s));
        QVERIFY(seen("details"_s) == nullptr);
        // Off everything there is nothing.
        click(seen("node_panel-1"_s));
        QTest::mouseClick(window(), Qt::LeftButton, {}, seen("broker_box:1883"_s)->mapToScene({-5, -9}).toPoint());
        QVERIFY(seen("details"_s) == nullptr);

        press(Qt::Key_Right); // there has to be a beginning
        QVERIFY(!picture->selected().isEmpty());
        const std::pair<Qt::Key, QPointF> ways[] = {
            {Qt::Key_Left, {-1, 0}}, {Qt::Key_Right, {1, 0}}, {Qt::Key_Up, {0, -1}}, {Qt::Key_Down, {0, 1}}};
        for (const auto& [key, way] : ways) {
            QQuickItem* const broker = seen("broker_box:1883"_s);
            const auto isAhead = [this, broker, towards = way](const QString& node) {
                const QPointF to = placeOf(seen("node_"_s + node)) - placeOf(broker);
                return QPointF::dotProduct(to, towards) > 1;
            };
            click(broker);
            QCOMPARE(picture->selectedKind(), "broker"_s);
            press(key);
            const bool isReached = picture->selectedKind() == "node"_l1;
            QCOMPARE(isReached, isAhead("panel-1"_s) || isAhead("panel-2"_s) || isAhead("tarnel-server-1"_s));
            QVERIFY(!isReached || isAhead(picture->selected()));
        }
        press(Qt::Key_Escape);
        QVERIFY(picture->selected().isEmpty());
        // Where there is no room beside the picture, what is told does not hide what it tells of.
        resize({800, 480});
        QTRY_COMPARE(picture->viewWidth(), 784.0);
        for (const char* const node : {"panel-1", "panel-2", "tarnel-server-1"}) {
            QQuickItem* const item = seen("node_"_s + QLatin1String(node));
            click(item);
            QQuickItem* const details = seen("details"_s);
            QVERIFY(details != nullptr);
            QVERIFY(!details->contains(details->mapFromScene(placeOf(item))));
            click(seen("close"_s));
        }
    }

    void details()
    {
        show(150);
        click(seen("node_panel-1"_s));
        click(seen("page_packets"_s));
        QQuickItem* const packets = seen("packets"_s);
        QVERIFY(packets != nullptr);
        QTRY_COMPARE(packets->property("count").toInt(), 100);
        const auto fields = [&](int row) {
            QQuickItem* item = nullptr;
            QMetaObject::invokeMethod(packets, "itemAtIndex", Q_RETURN_ARG(QQuickItem*, item), Q_ARG(int, row));
            return item == nullptr ? QStringList() : textsIn(item);
        };
        QTRY_COMPARE(fields(0).value(2), R"x({"d":{"number":150,"wifiPass":"(not shown)"}})x"_s);
        QVERIFY(fields(0)[0].endsWith(":30.000   QoS 2"_l1));
        QVERIFY(fields(0)[1].endsWith("panel-1/tarnel-server-1/request/DB/x"_l1));
        QTRY_COMPARE(faults(), QString());
        const auto current = [&] { return packets->property("currentIndex").toInt(); };
        click(packets, 0.5, 20 / packets->height());
        QCOMPARE(current(), 0);
        press(Qt::Key_Down);
        QCOMPARE(current(), 1);
        press(Qt::Key_Up);
        click(packets, 0.5, 20 / packets->height());
        QCOMPARE(current(), -1);
        show(250);
        QTRY_VERIFY(fields(0).value(0).endsWith("kept"_l1));
        // None is later than what is shown.
        show(200);
        QTRY_COMPARE(packets->property("count").toInt(), 50);
        show(10);
        QTRY_VERIFY(reads("No packet of it is kept."_s, "packets"));

        click(seen("page_record"_s));
        QVERIFY(seen("packets"_s) == nullptr);
        QVERIFY(reads("It has not presented itself."_s, "details"));
        show(150);
        click(seen("node_panel-2"_s));
        QVERIFY(reads("\"clientid\": \"panel-2\""_s, "details"));
        QTRY_COMPARE(faults(), QString());
        click(seen("node_tarnel-server-1"_s));
        click(seen("page_packets"_s));
        show(242);
        QTRY_COMPARE(fields(0).value(2), R"({"d":"on"})"_s);
        show(241);
        QTRY_COMPARE(fields(0).value(2), "(empty)"_s);
        // A broker has no pages.
        click(seen("broker_box:1883"_s));
        QVERIFY(seen("page_state"_s) == nullptr && seen("packets"_s) == nullptr && reads("box:1883"_s, "details"));
    }

    // An event leads to its moment.
    void events()
    {
        for (const QSize& size : {QSize(1280, 800), QSize(800, 480)}) {
            resize(size);
            show(length);
            if (size.width() == 800) {
                QVERIFY(seen("events"_s) == nullptr && seen("plot"_s) == nullptr);
                click(seen("sheet_events"_s));
            }
            QQuickItem* const list = seen("events"_s);
            QVERIFY(list != nullptr);
            QVERIFY(reads("panel-2 has left"_s, "events"));
            auto* const rows = picture->events();
            const double place = rows->data(rows->index(0), rows->roleNames().key("place")).toDouble();
            QVERIFY(std::abs(place - 200.0 / picture->begin().secsTo(picture->end())) < 0.01);
            QTRY_COMPARE(layout::faults(*window()->contentItem()).join(u'\n'), QString());
            click(list, 0.5, 24 / list->height());
            QCOMPARE(second(), 200.0);
            QCOMPARE(presence("panel-2"_s), "gone"_s);
            press(Qt::Key_Down);
            press(Qt::Key_Return);
            QCOMPARE(second(), 120.0);
            QCOMPARE(presence("panel-2"_s), "here"_s);
        }
        for (const bool isByKey : {true, false}) {
            click(seen("sheet_plot"_s)); // in place of the list
            QTRY_VERIFY(seen("events"_s) == nullptr && seen("plot"_s) != nullptr);
            isByKey ? press(Qt::Key_Escape) : click(seen("sheet_plot"_s));
            QTRY_VERIFY(seen("plot"_s) == nullptr);
            QVERIFY(!seen("sheet_plot"_s)->property("chosen").toBool());
        }
    }

    void plots()
    {
        show(150);
        QQuickItem* const plot = seen("plot"_s);
        const auto number = [plot](const QString& expression) {
            return QQmlExpression(qmlContext(plot), plot, expression).evaluate().toDouble();
        };
        QTRY_VERIFY(number("rates.count"_s) > 100 && number("trips.count"_s) > 100);
        for (const auto& [series, last, most] :
             {std::tuple("rates"_s, 2.0, "rates.axisY.max"_s), std::tuple("trips"_s, 40.0, "trips.axisYRight.max"_s)}) {
            const double x = number(series + ".at("_l1 + series + ".count - 1).x"_l1);
            const double y = number(series + ".at("_l1 + series + ".count - 1).y"_l1);
            QVERIFY2(x > -2 && x <= 0 && std::abs(y - last) < last / 4,
                     qPrintable("%1: %2, %3"_s.arg(series).arg(x).arg(y)));
            QVERIFY(number(most) >= y && number(most) < 5 * y);
        }
        QCOMPARE(seen("rate"_s)->property("value"), QVariant("%1/s"_s.arg(picture->rate(), 0, 'f', 1)));
        QCOMPARE(seen("roundTrip"_s)->property("value"), QVariant("40.0 ms"_s));
    }

    // Both sets of colours can be read: 4.5 to 1 for words, 3 to 1 for signs.
    void colours()
    {
        QVERIFY(said("dark"_s) == "Dark"_l1);
        const QColor bright = window()->color();
        click(seen("dark"_s));
        QCOMPARE(said("dark"_s), "Light"_s);
        QVERIFY(window()->color().lightness() < bright.lightness() / 2);
        click(seen("dark"_s));
        QCOMPARE(window()->color(), bright);
        QQmlComponent component(engine.get());
        component.setData("import QtQuick 2.15\nQtObject { property var theme: Theme }",
                          QUrl::fromLocalFile(QStringLiteral(FACE "/x.qml")));
        const std::unique_ptr<QObject> object(component.create());
        QVERIFY2(object, qPrintable(component.errorString()));
        auto* const theme = object->property("theme").value<QObject*>();
        const auto light = [&](const char* name) {
            const QColor color = theme->property(name).value<QColor>();
            const auto part = [](double value) {
                return value <= 0.03928 ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4);
            };
            return 0.2126 * part(color.redF()) + 0.7152 * part(color.greenF()) + 0.0722 * part(color.blueF());
        };
        for (const bool dark : {true, false}) {
            theme->setProperty("dark", dark);
            for (const QByteArray& pair :
                 QByteArray("text/background text/card text/raised quiet/background quiet/card quiet/raised "
                            "accent/background accent/card accentText/accent bad/badCard bad/card bad/raised "
                            "packet/card accentText/master good/card -line/card -line/background -master/card")
                     .split(' ')) {
                const QList<QByteArray> names = pair.mid(pair[0] == '-').split('/');
                const double one = light(names[0]) + 0.05;
                const double other = light(names[1]) + 0.05;
                QVERIFY2(std::max(one, other) / std::min(one, other) >= (pair[0] == '-' ? 3 : 4.5), pair.constData());
            }
        }
        lookAtRecording(true);
        QCOMPARE(said("dark"_s), "Light"_s);
    }

    // The dialog itself is the system's; what it answers is ours.
    void dialog()
    {
        QObject* loader = nullptr;
        for (QObject* const child : window()->findChildren<QObject*>()) {
            if (child->property("source").toUrl().fileName() == "OpenDialog.qml"_l1) {
                loader = child;
            }
        }
        QVERIFY(loader != nullptr && !loader->property("active").toBool());
        const QString standIn = directory.filePath("Asked.qml"_s);
        QFile file(standIn);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("import QtQuick 2.15\nQtObject { property url fileUrl; property int asked: 0; signal accepted()\n"
                   "function open() { ++asked } }");
        file.close();
        loader->setProperty("source", QUrl::fromLocalFile(standIn));
        show(100);
        press(Qt::Key_O, Qt::ControlModifier);
        auto* const asked = loader->property("item").value<QObject*>();
        QVERIFY(asked != nullptr && asked->property("asked").toInt() == 1);
        click(seen("node_panel-1"_s));
        for (const bool isByKey : {true, false}) { // it can be put away, and only it
            click(seen("another"_s));
            QVERIFY(reads("Look at another house"_s, "start"));
            QCOMPARE(window()->activeFocusItem()->parentItem()->objectName(), "host"_s);
            for (int i = 0; i < 8; ++i) { // what lies below cannot be reached
                press(Qt::Key_Tab);
                QVERIFY(seen("start"_s)->isAncestorOf(window()->activeFocusItem()));
            }
            isByKey ? press(Qt::Key_Escape) : click(seen("cancel"_s));
            QVERIFY(seen("start"_s) == nullptr);
            QCOMPARE(said("heading"_s), "panel-1"_s);
        }
        click(seen("another"_s));
        click(seen("open"_s));
        QCOMPARE(asked->property("asked").toInt(), 2);

        const QString broken = directory.filePath("broken.rec"_s);
        QVERIFY(QFile::copy(standIn, broken));
        asked->setProperty("fileUrl", QUrl::fromLocalFile(broken));
        QMetaObject::invokeMethod(asked, "accepted");
        QVERIFY(said("problem"_s).contains("is no recording"_l1));
        QCOMPARE(second(), 100.0); // what was shown stays
        asked->setProperty("fileUrl", QUrl::fromLocalFile(path));
        QMetaObject::invokeMethod(asked, "accepted");
        QVERIFY(seen("start"_s) == nullptr);
        QTRY_COMPARE(second(), 0.0);
        QCOMPARE(said("title"_s), "monday.rec"_s);
    }

    // host | port | installation | what is said, "-": that nothing can be pressed, "": that it is listened to
    void starting_data()
    {
        addRows(R"(
nothing       |           | @open   |        | -
no port       | 127.0.0.1 |         |        | -
no such port  | 127.0.0.1 | 0       |        | -
too high      | 127.0.0.1 | 65536   |        | -
a URL         | mqtt://x  | @open   |        | The host is a name or an address.
installation  | 127.0.0.1 | @open   | a-b    | An installation id has letters and digits only.
nobody        | 127.0.0.1 | @nobody |        | no broker: Connection to 127.0.0.1:@nobody failed: nobody listens there, is the broker running?
locked        | 127.0.0.1 | @locked |        | no broker: Connection to 127.0.0.1:@locked failed: the broker does not authorise this client (5)
one           | 127.0.0.1 | @open   | house1 |
with spaces   | _127.0.0.1_ | @open  |        |
)");
    }
    void starting()
    {
        QFETCH(QStringList, cells);
        static broker_t open;
        static broker_t locked("listener @port 127.0.0.1\nallow_anonymous false"_s);
        QVERIFY((open.isRunning() || open.start()) && (locked.isRunning() || locked.start()));
        const QString nobody = QString::number(comunication::testkit::freePort());
        // Nobody has said where to look.
        connection_t guess;
        guess.host = "127.0.0.1"_s;
        guess.port = nobody.toInt();
        guess.keepalive = 60;
        guess.timeout = 5;
        guess.maxPacketBytes = 1 << 20;
        look([&](picture_t& chosen) { chosen.watch({guess, guess}, true); });
        QVERIFY(reads("No broker yet"_s, "start"));
        QVERIFY(seen("cancel"_s) == nullptr);
        QTRY_VERIFY(said("problem"_s).startsWith("no broker: "_l1));
        if (cells[0] == "nothing"_l1) {
            QTRY_COMPARE(faults(), QString());
        }
        const auto type = [this](const char* field, const QString& text) {
            seen(QLatin1String(field))->setProperty("text", text);
        };
        const auto filled = [&](int cell) {
            QString text = cells[cell];
            return text.replace(u'_', u' ')
                .replace("@open"_l1, QString::number(open.port()))
                .replace("@locked"_l1, QString::number(locked.port()))
                .replace("@nobody"_l1, nobody);
        };
        type("host", filled(1));
        const QString port = filled(2);
        type("port", port);
        type("installation", cells[3]);
        const bool isClosed = cells[4].isEmpty() || cells[4].startsWith("no broker"_l1);
        QCOMPARE(seen("connect"_s)->isEnabled(), cells[4] != "-"_l1);
        if (cells[0] == "one"_l1) {
            click(seen("connect"_s));
        } else {
            press(Qt::Key_Return); // the cursor stands in the first field
        }
        QCOMPARE(seen("start"_s) == nullptr, isClosed);
        if (!isClosed) {
            QCOMPARE(picture->notice(), cells[4] == "-"_l1 ? QString() : filled(4));
            return;
        }
        const auto condition = [&] {
            const QQuickItem* const broker = seen("broker_127.0.0.1:"_s + port.trimmed());
            return broker == nullptr ? QString() : broker->property("condition").toString();
        };
        QTRY_COMPARE(condition(), cells[4].isEmpty() ? "listening"_s : "connecting"_s);
        QTRY_COMPARE(said("alarm"_s), filled(4));
        QCOMPARE(said("title"_s), (cells[3].isEmpty() ? QString() : cells[3] + " at "_l1) + "127.0.0.1:"_l1 + port);
        QCOMPARE(picture->brokers()->count(), 1);
    }
};

QTEST_MAIN(view_face)
#include "view_face.moc"
