// SPDX-License-Identifier: MIT
// What the picture of a house shows: where things stand, what is kept, rows that change, recordings, real brokers.
#include "history.h"
#include "layout.h"
#include "packet_rings.h"
#include "picture.h"
#include "recording_span.h"
#include "rows.h"
#include "watcher.h"

#include "support/client.h"

#include <flotrofobul/testkit/broker.h>

using namespace comunication;
using namespace comunication::view;
using comunication::testkit::broker_t;
using comunication::testkit::freePort;

namespace {

scene_t someHouse(int brokers, int nodes)
{
    scene_t scene;
    for (int i = 0; i < brokers; ++i) {
        scene_broker_t broker;
        broker.name = QString::number(i);
        scene.brokers << broker;
        if (i > 0) {
            scene_line_t line;
            line.to = i;
            scene.lines << line;
        }
    }
    for (int i = 0; i < nodes; ++i) {
        auto facts = std::make_shared<scene_facts_t>();
        facts->id = "n%1"_s.arg(i);
        facts->role = i < brokers || i % 17 == 0 ? house::role_t::server : house::role_t::client;
        // Even, and with most of them at one broker.
        facts->broker = i % 2 == 0 ? i % brokers : 0;
        scene_node_t node;
        node.facts = facts;
        scene.nodes << node;
    }
    return scene;
}

QVariant valueOf(rows_t* rows, int row, const char* role)
{
    return rows->data(rows->index(row), rows->roleNames().key(role));
}

shared_scene_t sceneAt(int milliseconds, int nodes, bool isNews = true)
{
    scene_t scene = someHouse(1, nodes);
    scene.moment = moment_t(milliseconds);
    scene.isNews = isNews;
    scene.rate = milliseconds;
    return std::make_shared<const scene_t>(scene);
}

} // namespace

class unit_view_shown : public QObject {
    Q_OBJECT

    QTemporaryDir directory;

    QString recordingOf(const QByteArray& lines)
    {
        static int number = 0;
        const QString path = directory.filePath("%1.rec"_s.arg(++number));
        QFile file(path);
        file.open(QIODevice::WriteOnly);
        file.write(lines);
        return path;
    }

private Q_SLOTS:
    void initTestCase()
    {
        qRegisterMetaType<shared_scene_t>("comunication::view::shared_scene_t");
        qRegisterMetaType<moment_t>("comunication::view::moment_t");
        qRegisterMetaType<ring_view_t>("comunication::view::ring_view_t");
    }

    // Nothing overlaps, everything is on the canvas, and few nodes have their labels.
    void layout()
    {
        for (const QSizeF& size : {QSizeF(1280, 800), QSizeF(800, 480), QSizeF(780, 260)}) {
            for (int brokers = 1; brokers <= 6; ++brokers) {
                for (const int nodes : {1, 2, 5, 12, 30, 57, 100}) {
                    const layout_t layout = layoutOf(someHouse(brokers, nodes), size);
                    QVector<QRectF> places;
                    int labels = 0;
                    for (const broker_place_t& broker : layout.brokers) {
                        places << broker.mark << QRectF(broker.area.topLeft(), QSizeF(broker.area.width(), 26));
                    }
                    for (const node_place_t& node : layout.nodes) {
                        places << node.mark;
                        if (!node.label.isEmpty()) {
                            places << node.label;
                            ++labels;
                        }
                    }
                    const QString which = "%1 brokers, %2 nodes, %3"_s.arg(brokers).arg(nodes).arg(size.width());
                    const QRectF canvas = QRectF(QPointF(), size).adjusted(-0.01, -0.01, 0.01, 0.01);
                    for (int i = 0; i < places.size(); ++i) {
                        QVERIFY2(canvas.contains(places[i]) && places[i].isValid(), qPrintable(which));
                        for (int other = 0; other < i; ++other) {
                            const QRectF common = places[i] & places[other];
                            QVERIFY2(common.width() < 0.01 || common.height() < 0.01, qPrintable(which));
                        }
                    }
                    QVERIFY2(labels == nodes || nodes > 5 * brokers || size.height() < 400, qPrintable(which));
                    for (const line_place_t& line : layout.lines) {
                        QVERIFY2(!layout.brokers[0].mark.adjusted(1, 1, -1, -1).contains(line.line.p1()) &&
                                     canvas.contains(line.line.p2()),
                                 qPrintable(which));
                    }
                }
            }
        }
    }

    // What is kept is bounded, and what is kept is found.
    void past()
    {
        history_t history(1000);
        QVERIFY(!history.at(moment_t(0)));
        for (int i = 0; i < 100; ++i) {
            history.add(sceneAt(1000 * i, 99));
        }
        QVERIFY(history.elements() <= 1000 && history.elements() > 800);
        QCOMPARE(history.end(), moment_t(99000));
        QCOMPARE(history.at(moment_t(95999))->moment, moment_t(95000));
        QCOMPARE(history.at(moment_t(1))->moment, history.begin());
        QCOMPARE(history.rates(moment_t(50000), 10).size(), 11); // the plot goes back further
        QCOMPARE(history.rates(moment_t(50000), 10).last(), QPointF(0, 50000));

        history.clear();
        QVERIFY(!history.at(moment_t(50000)) && history.rates(moment_t(50000), 10).isEmpty());

        history_t busy;
        for (int i = 0; i < 100; ++i) { // ten a second, with news once
            busy.add(sceneAt(100 * i, 1, i == 42));
        }
        QCOMPARE(busy.at(moment_t(4250))->moment, moment_t(4200));
        QVERIFY(busy.elements() < 2 * 15);
        QCOMPARE(busy.at(busy.end())->moment, moment_t(9900));
    }

    void rings()
    {
        packet_rings_t rings(100000);
        for (int i = 0; i < 3 * packet_rings_t::mostOfOne; ++i) {
            rings.add(moment_t(i), "one"_s, "x"_s, QByteArray::number(i), 0, false);
        }
        QCOMPARE(rings.of("one"_s).packets.size(), packet_rings_t::mostOfOne);
        QCOMPARE(rings.of("one"_s).packets.last().payload, QByteArray("299"));
        rings.add(moment_t(1), "two"_s, "x"_s, QByteArray(5000, 'x'), 0, false);
        rings.add(moment_t(1), "two"_s, "x"_s, R"({"password":"wordofpass"})", 0, false);
        QCOMPARE(rings.of("two"_s).packets[0].payload.size(), packet_rings_t::longestPayload);
        QVERIFY(!rings.of("two"_s).packets[1].payload.contains("wordofpass"));
        for (int i = 0; i < 3000; ++i) {
            rings.add(moment_t(i), "n%1"_s.arg(i), "x"_s, QByteArray(10, 'x'), 0, false);
        }
        QVERIFY(rings.bytes() <= 100000);
        QVERIFY(rings.of("one"_s).packets.isEmpty()); // the oldest go first
        QCOMPARE(rings.of("n2999"_s).packets.size(), 1);
    }

    // name | rows before | rows then | signals: inserts, removals, moves, changes
    void lists_data()
    {
        addRows(R"(
the same  | a1 b2       | a1 b2       | 0 0 0 0
a value   | a1 b2       | a1 b3       | 0 0 0 1
more      | a1 b2       | a1 x1 y1 b2 | 1 0 0 0
fewer     | a1 b2 c3 d4 | a1 d4       | 0 1 0 0
apart     | a1 b2 c3    | b2          | 0 2 0 0
order     | a1 b2 c3    | c3 a1 b2    | 0 0 1 0
all       | a1 b2       | c1          | 1 1 0 0
)");
    }
    void lists()
    {
        QFETCH(QStringList, cells);
        const auto rowsOf = [](const QString& words) {
            QVector<row_t> rows;
            for (const QString& word : words.split(u' ')) {
                rows << row_t{word.left(1), {word.mid(1), "z"_s}};
            }
            return rows;
        };
        rows_t rows({"value", "same"});
        rows.show(rowsOf(cells[1]));
        const QSignalSpy inserts(&rows, &rows_t::rowsInserted);
        const QSignalSpy removals(&rows, &rows_t::rowsRemoved);
        const QSignalSpy moves(&rows, &rows_t::rowsMoved);
        const QSignalSpy changes(&rows, &rows_t::dataChanged);
        rows.show(rowsOf(cells[2]));
        QCOMPARE("%1 %2 %3 %4"_s.arg(inserts.size()).arg(removals.size()).arg(moves.size()).arg(changes.size()),
                 cells[3]);
        QStringList values;
        for (int i = 0; i < rows.count(); ++i) {
            values << rows.data(rows.index(i), Qt::UserRole).toString();
        }
        QString after = cells[2];
        QCOMPARE(values.join(u' '), after.remove(QRegularExpression("[a-z]"_s)));
        for (const QList<QVariant>& change : changes) {
            QCOMPARE(change[2].value<QVector<int>>(), QVector<int>{Qt::UserRole});
        }
    }

    // name | lines of the file | refused because | seconds that it seems to take | what is said at its end, and when
    void recordings_data()
    {
        addRows(R"(
whole    | H 1.0 2.5 9.0       |                                  | 8 | 9
cut off  | H 1.0 2.5 CUT       |                                  | 1.5 | 2.5 is cut off: line 4, the last one, is not whole and is left out
broken   | H 1.0 2.5 x 9.0     |                                  | 8 | 2.5 is broken at line 4: it is read up to there
backward | H 1.0 9.0 2.5 9.5   |                                  | 8.5 | 9.5
wild     | H 1.0 1e12 2.0      |                                  | 1 | 316224000
wilder   | H 1.0 1e30          |                                  | 316223999 | 316224000
none     | x 1.0               | is no recording of "flotrofobul record" | |
empty    | H                   | holds no packet                  | |
later    | L 1.0               | is a recording of a later form than this program reads | |
)");
    }
    void recordings()
    {
        QFETCH(QStringList, cells);
        QByteArray lines;
        for (const QString& word : cells[1].split(u' ')) {
            const QByteArray packet =
                R"({"at":%1,"topic":"forward-bridge/local/1/panel-1/all/status/x","payload":"{}"})"_s.arg(word)
                    .toUtf8();
            lines += word == "H"_l1
                         ? R"({"flotrofobul_recording":1,"broker":"box:1883","began":"2020-01-01T00:00:00.000Z"})"
                     : word == "L"_l1   ? R"({"flotrofobul_recording":2})"
                     : word == "x"_l1   ? "broken"
                     : word == "CUT"_l1 ? "{\"at\":9,\"to"
                                        : packet;
            lines += word == "CUT"_l1 ? "" : "\n";
        }
        const QString path = recordingOf(lines);
        recording_span_t span;
        QCOMPARE(recording_span_t::read(path, &span), cells[2]);
        if (!cells[2].isEmpty()) {
            return;
        }
        QCOMPARE(double((span.end - span.begin).count()) / 1000, cells[3].toDouble());
        watcher_t watcher;
        QSignalSpy reached(&watcher, &watcher_t::reached);
        QSignalSpy changed(&watcher, &watcher_t::changed);
        watcher.open(7, path);
        watcher.feedTo(span.begin + longestRecording);
        QTRY_COMPARE(reached.size(), 1);
        const moment_t began(1577836800000);
        const auto end = reached[0][1].value<moment_t>();
        const QString seconds = QString::number(double((end - began).count()) / 1000, 'g', 12);
        QCOMPARE(QString(seconds + u' ' + reached[0][3].toString()).trimmed(), cells[4]);
        QCOMPARE(reached[0][2], QVariant(true));
        QVERIFY(!changed.isEmpty());
        const auto last = changed.last()[1].value<shared_scene_t>();
        QCOMPARE(last->nodes.size(), 1);
        QCOMPARE(last->brokers[0].hearing, hearing_t::recording);
        // Back before what is kept: read anew, and only as far as asked for.
        watcher.feedAnewTo(7, span.begin);
        QTRY_COMPARE(reached.size(), 2);
        QCOMPARE(changed.last()[1].value<shared_scene_t>()->nodes[0].sent, qint64(1));
    }

    // A recording is a house whose clock one can turn.
    void playing()
    {
        QByteArray lines = R"({"flotrofobul_recording":1,"broker":"box:1883","began":"2020-01-01T00:00:00.000Z"})";
        for (int i = 0; i < 100; ++i) {
            const QString start = "\n{\"at\":%1,\"topic\":\"forward-bridge/local/1/"_s.arg(i);
            lines += QString(start +
                             "panel-%1/S1/request/DB/x\",\"payload\":\"{\\\"password\\\":\\\"wordofpass\\\"}\"}"_s.arg(
                                 i / 50) +
                             start + "S1/all/status/DB/x\",\"payload\":\"%1\"}"_s.arg(i))
                         .toUtf8();
        }
        const QString path = recordingOf(lines + '\n');
        picture_t picture;
        QVERIFY(picture.open(path));
        QTRY_VERIFY(!picture.isLoading());
        QCOMPARE(picture.time(), picture.begin());
        QCOMPARE(picture.begin().secsTo(picture.end()), 99);
        QCOMPARE(picture.nodes()->count(), 2);
        picture.select("node"_s, "S1"_s);
        for (const int second : {60, 10, 99, 49, 50}) { // what was read is not read again
            picture.show(picture.begin().addSecs(second));
            QTRY_VERIFY(!picture.isLoading());
            QCOMPARE(picture.begin().secsTo(picture.time()), second);
            QCOMPARE(picture.nodes()->count(), second < 50 ? 2 : 3);
            QTRY_COMPARE(valueOf(picture.packets(), 0, "payload"), QVariant(QString::number(second)));
        }
        QCOMPARE(picture.roundTrip(), 0.0);
        QCOMPARE(valueOf(picture.nodes(), 0, "brokerX"), valueOf(picture.brokers(), 0, "posX"));
        // Whoever goes on sees who speaks; whoever leaps does not.
        for (const int step : {1, 20, 1}) {
            const int before = valueOf(picture.nodes(), 1, "pulse").toInt();
            picture.show(picture.time().addSecs(step));
            QTRY_COMPARE(valueOf(picture.nodes(), 1, "pulse").toInt(), before + (step == 1 ? 1 : 0));
        }
        picture.select("node"_s, "panel-0"_s);
        QTRY_COMPARE(picture.packets()->count(), 50);
        QCOMPARE(valueOf(picture.packets(), 0, "payload"), QVariant("{\"password\":\"(not shown)\"}"_s));
        picture.show(picture.begin().addSecs(90));
        picture.setSpeed(60);
        picture.play();
        QVERIFY(picture.isPlaying());
        QTRY_VERIFY(!picture.isPlaying());
        QCOMPARE(picture.time(), picture.end());
        QVERIFY(!picture.open("/dev/zero"_s) && !picture.open("/none"_s) && !picture.notice().isEmpty());
        QCOMPARE(picture.nodes()->count(), 3); // what was shown stays
        QVERIFY(!picture.connectTo("user@box"_s, 1883, {}) && !picture.connectTo("box"_s, 0, {}) &&
                !picture.connectTo("box"_s, 1, "a-b"_s));
        QVERIFY(picture.isRecording());
    }

    // Two brokers, of which one goes and comes back, and neither answers in the end.
    void living()
    {
        broker_t one;
        broker_t two;
        QVERIFY(one.start() && two.start());
        const auto connectionTo = [](const broker_t& broker) {
            tools::connection_t connection;
            connection.host = broker.host();
            connection.port = broker.port();
            connection.timeout = 10;
            connection.keepalive = 60;
            connection.maxPacketBytes = 100000;
            return connection;
        };
        auto picture = std::make_unique<picture_t>();
        const auto stateOf = [&](int broker) { return valueOf(picture->brokers(), broker, "state").toString(); };
        const quint16 nobody = freePort();
        QVERIFY(picture->connectTo("127.0.0.1"_s, nobody, {}));
        QTRY_VERIFY(picture->alarm().startsWith("no broker: "_l1));
        picture->watch({connectionTo(one), connectionTo(two)}, true);
        QVERIFY(picture->isBlank());
        QTRY_COMPARE(stateOf(0) + u' ' + stateOf(1), "listening listening"_s);
        QVERIFY(!picture->isBlank());
        client_t panel;
        QVERIFY(panel.joins(two.port()));
        panel.say(R"({"d":"1"})"_s, 0, "forward-bridge/local/1/panel-1/tarnel-server-1/command/client/ready"_s);
        QTRY_COMPARE(picture->nodes()->count(), 1);
        QCOMPARE(valueOf(picture->nodes(), 0, "presence"), QVariant("here"_s));
        QCOMPARE(valueOf(picture->nodes(), 0, "brokerX"), valueOf(picture->brokers(), 1, "posX"));
        const QDateTime then = picture->time();
        panel.disconnect_sync();
        two.kill(SIGKILL);
        QTRY_COMPARE(stateOf(1), "lost"_s);
        QCOMPARE(valueOf(picture->nodes(), 0, "presence"), QVariant("unknown"_s));
        QVERIFY(picture->alarm().contains("is not heard"_l1));
        picture->show(then);
        QCOMPARE(stateOf(1), "listening"_s);
        QVERIFY(!picture->isLive() && picture->alarm().isEmpty());
        QVERIFY(two.start());
        QTRY_COMPARE_WITH_TIMEOUT(valueOf(picture->events(), 0, "tone"), QVariant("good"_s), 10000);
        QCOMPARE(picture->time(), then);
        picture->goLive();
        QCOMPARE(stateOf(1), "listening"_s);
        one.kill(SIGSTOP);
        two.kill(SIGSTOP);
        picture->watch({connectionTo(one), connectionTo(two)});
        QTest::qWait(100); // on the way to brokers that do not answer
        QElapsedTimer clock;
        clock.start();
        picture.reset();
        QVERIFY2(clock.elapsed() < 2000, qPrintable(QString::number(clock.elapsed())));
    }
};

QTEST_GUILESS_MAIN(unit_view_shown)
#include "unit_view_shown.moc"
