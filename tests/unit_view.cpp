// SPDX-License-Identifier: MIT
// What the picture of a house shows: scenes from packets, where things stand, what is kept, what of a recording opens.
#include "history.h"
#include "layout.h"
#include "packet_rings.h"
#include "picture.h"
#include "reasons.h"
#include "recording_span.h"
#include "round_trips.h"
#include "rows.h"
#include "survey.h"
#include "watcher.h"

#include "support/client.h"

#include <flotrofobul/testkit/broker.h>

using comunication::testkit::broker_t;
using comunication::testkit::freePort;

using namespace comunication;
using namespace comunication::view;

namespace {

/// Feeds a survey of brokers "a", "b", "c", a tenth of a second after the other:
///
///     a S1 here S1      at broker a S1 (tarnel-server-1) presents itself, master S1; "gone" in place of "here"
///     ab P1 says x/y    a packet of a node at a that b hears over a bridge; "aboc": c over the cloud
///     -a P1 says x/y    heard at a over a bridge only; "~a": over the cloud
///     a P1 old x/y      a retained one
///     a bridge NAME 1   state of a bridge
///     a lost, a ready   the link to a broker
///     wait 6            seconds
struct feeder_t {
    explicit feeder_t(bool isReady = true)
    {
        for (int i = 0; isReady && i < 3; ++i) {
            survey.setLink(now, i, hearing_t::listening);
        }
    }

    static QString full(const QString& name)
    {
        return QString(name)
            .replace(QRegularExpression("^S(?=\\w)"_s), "tarnel-server-"_s)
            .replace(QRegularExpression("^P(?=\\w)"_s), "panel-"_s);
    }

    void feed(const QString& line)
    {
        const QStringList words = line.split(u' ');
        now += moment_t(100);
        if (words[0] == "wait"_l1) {
            now += std::chrono::seconds(words[1].toInt());
            look();
            return;
        }
        const QString places = QString(words[0]).remove(QRegularExpression("[-~]"_s));
        const int source = places[0].unicode() - u'a';
        if (words[1] == "bridge"_l1) {
            survey.take(now, source, "$SYS/broker/connection/%1/state"_s.arg(words[2]), words[3].toUtf8(), 0, true);
        } else if (words[1] == "lost"_l1 || words[1] == "ready"_l1) {
            survey.setLink(now, source, words[1] == "lost"_l1 ? hearing_t::lost : hearing_t::listening,
                           words[1] == "lost"_l1 ? "no answer"_s : QString());
        } else {
            QString prefix = words[0].startsWith(u'-')   ? "remote-bridge"_s
                             : words[0].startsWith(u'~') ? "cloud-bridge"_s
                                                         : "forward-bridge"_s;
            for (const QChar place : places) {
                packet(place.unicode() - u'a', prefix, words);
                prefix = "remote-bridge"_s;
            }
        }
        look();
    }

    void packet(int source, const QString& prefix, const QStringList& words)
    {
        const QString sender = full(words[1]);
        const bool presents = words[2] == "here"_l1 || words[2] == "gone"_l1;
        QJsonObject value;
        if (presents) {
            value = {{"clientid"_s, sender},
                     {"type"_s, sender.startsWith(u't') ? "server"_s : "client"_s},
                     {"connected"_s, words[2] == "here"_l1},
                     {"brokerip"_s, words.value(4)},
                     {"masterid"_s, full(words.value(3))}};
        }
        survey.take(now, source,
                    "%1/local/house1/%2/%3"_s.arg(prefix, sender,
                                                  presents ? "all/connection/presentation"_s
                                                           : full(words[3]).replace("/S"_l1, "/tarnel-server-"_l1)),
                    QJsonDocument(QJsonObject{{"d"_s, value}}).toJson(), 2, words[2] == "old"_l1);
    }

    void look()
    {
        scene = survey.scene(now);
        for (const scene_event_t& event : scene.events) {
            events[event.number] = event;
        }
    }

    static QString brief(QString text)
    {
        return text.replace("tarnel-server-"_l1, "S"_l1).replace("panel-"_l1, "P"_l1);
    }

    /// "a: S1 P1, S2 behind: S2; a-b up/down": nodes at their brokers, "!" gone, "?" unknown; lines.
    QString statement() const
    {
        QStringList brokers;
        for (int i = 0; i < scene.brokers.size(); ++i) {
            QStringList nodes;
            for (const scene_node_t& node : scene.nodes) {
                if (node.facts->broker == i) {
                    const house::presence_t presence = node.facts->presence;
                    nodes << node.facts->id + QLatin1String(presence == house::presence_t::gone      ? "!"
                                                            : presence == house::presence_t::unknown ? "?"
                                                                                                     : "");
                }
            }
            if (!nodes.isEmpty() || i > 2) {
                brokers << scene.brokers[i].name + u':' + nodes.join(u' ');
            }
        }
        QStringList lines;
        static const char* const words[] = {"unknown", "up", "down", "missing"};
        for (const scene_line_t& line : scene.lines) {
            lines << scene.brokers[line.from].name + u'-' + scene.brokers[line.to].name + u' ' +
                         QLatin1String(words[int(line.there)]) + u'/' + QLatin1String(words[int(line.back)]);
        }
        return brief(brokers.join(", "_l1) + (lines.isEmpty() ? QString() : "; "_l1 + lines.join(", "_l1)));
    }

    QString why(const QString& subject) const
    {
        for (const scene_node_t& node : scene.nodes) {
            if (node.facts->id == full(subject)) {
                return brief(node.facts->why);
            }
        }
        return {};
    }

    survey_t survey{"house1"_s, {"a"_s, "b"_s, "c"_s}};
    moment_t now{1600000000000};
    scene_t scene;
    QMap<quint64, scene_event_t> events; ///< as they read at last
};

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

class unit_view : public QObject {
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

    // name | what is heard | who sits where, and the lines | the alarm
    void scenes_data()
    {
        addRows(R"(
alone          | a S1 here S1; a P1 here S1                      | a:S1 P1 |
over a bridge  | ab S1 here S1; ba P2 here S1                    | a:S1, b:P2; a-b up/up |
one direction  | ab S1 here S1; b P2 says x/y                    | a:S1, b:P2; a-b up/unknown |
long ago       | ab S1 here S1; wait 121                         | a:S1; a-b unknown/unknown |
copy first     | -b S1 here S1; a S1 says x/y                    | a:S1; a-b up/unknown |
retained       | a S1 old all/status/x                           | a:S1? |
moved          | a P1 here S1; wait 6; b P1 here S1              | b:P1 |
loop           | a P1 here S1; b P1 here S1; wait 1; a P1 says x/y | a:P1 |
bridge by name | a bridge local_h-b-1-2 1; a S1 here S1; b S2 here S1 | a:S1, b:S2; a-b up/up |
bridge down    | a bridge h-b-1-2 1; ab S1 here S1; ba S2 here S1; wait 2; a bridge h-b-1-2 0 | a:S1, b:S2; a-b down/down | bridge h-b-1-2 is down
crosses anyway | a bridge h-b-1-2 0; ab S1 here S1; b S2 here S1; wait 2; ab S1 says x/y | a:S1, b:S2; a-b up/down | bridge h-b-1-2 is down
both dial      | a bridge h-b-1-2 0; b bridge h-b-2-1 1; a S1 here S1; b S2 here S1 | a:S1, b:S2; a-b down/up | bridge h-b-1-2 is down
lane of data   | a bridge hd-1-2 0; a S1 here S1; b S2 here S1   | a:S1, b:S2; a-b down/down | bridge hd-1-2 is down
dead box       | a bridge h-b-1-2 0; a S1 here S1                | a:S1, S2:; a-S2 down/down | bridge h-b-1-2 is down
ghost          | a S1 here S1; -a S2 here S1; -a P2 here S1      | a:S1, S2:S2 P2; a-S2 unknown/up |
two ghosts     | a S1 here S1; -a S2 here S1 10.0.0.2; -a S3 here S1 10.0.0.3; -a P3 here S1 10.0.0.3; -a P4 here S1 | a:S1, S2:S2, S3:S3 P3, behind a:P4; a-S2 unknown/up, a-S3 unknown/up, a-behind a unknown/up |
ghost is found | a S1 here S1; -a S2 here S1; b S2 says x/y      | a:S1, b:S2; a-b unknown/up |
cloud          | a S1 here S1; ~a P9 here S1; a bridge KEY 1     | a:S1, cloud:P9; a-cloud up/up |
at the cloud   | ~a S1 here S1; ~a P1 here S1; a P9 here S1      | a:P9, S1:S1 P1; a-S1 unknown/up |
star           | a S1 here S1; b S2 here S1; c S3 here S1; a bridge h-b-1-2 1; a bridge h-b-1-3 1; -c S2 says x/y | a:S1, b:S2, c:S3; a-b up/up, a-c up/up |
hub unheard    | a S1 here S1; a bridge h-b-9-1 1; -a S9 here S1; -a S2 here S1 | a:S1, S9:S9, S2:S2; a-S9 up/up, S9-S2 unknown/up |
copies first   | ab S1 here S1; b S2 here S1; ba S2 says all/status/x; -a S2 says all/status/x; b S2 says all/status/x; b S2 says all/status/x; b S2 says all/status/x; wait 6 | a:S1, b:S2; a-b up/up |
missing        | ab S1 here S1; b S2 here S1; b S2 says all/status/x; b S2 says all/status/x; wait 6 | a:S1, b:S2; a-b up/missing | nothing goes from b to a
too few        | ab S1 here S1; b S2 here S1; b S2 says all/status/x; wait 6 | a:S1, b:S2; a-b up/unknown |
not carried    | ab S1 here S1; b S2 here S1; b S2 says all/own; b S2 says all/own; wait 6 | a:S1, b:S2; a-b up/unknown |
too early      | ab S1 here S1; b S2 here S1; b S2 says all/status/x; b S2 says all/status/x; wait 4 | a:S1, b:S2; a-b up/unknown |
came after all | ab S1 here S1; b S2 here S1; b S2 says all/status/x; b S2 says all/status/x; wait 6; ba S2 says all/status/x | a:S1, b:S2; a-b up/up |
not listening  | ab S1 here S1; b S2 here S1; a lost; b S2 says all/status/x; b S2 says all/status/x; wait 6 | a:S1?, b:S2; a-b up/unknown | broker a is not heard: no answer
at the hub     | a S1 here S1; b S2 here S1; c S3 here S1; a bridge h-b-1-2 1; a bridge h-b-1-3 1; ba S2 says all/status/x; ba S2 says all/status/x; ba S2 says all/status/x; wait 6 | a:S1, b:S2, c:S3; a-b up/up, a-c up/up | nothing goes from b to c
all are lost   | a S1 here S1; a lost; b lost; c lost            | a:S1? | no broker: no answer
two masters    | a S1 here S1; a S2 here S2                      | a:S1 S2 | more than one master: S1, S2
no master      | a S1 here S1; a S1 gone; a P1 here              | a:S1! P1 | no master
way is gone    | a S1 here S1; -a S2 here S1; a bridge h-b-1-2 1; wait 2; a bridge h-b-1-2 0 | a:S1, S2:S2?; a-S2 down/down | bridge h-b-1-2 is down
still heard    | a S1 here S1; ab P1 here S1; a lost; wait 6; -b P1 says x/y | a:S1? P1; a-b up/unknown | broker a is not heard: no answer
)");
    }
    void scenes()
    {
        QFETCH(QStringList, cells);
        feeder_t feeder;
        for (const QString& line : cells[1].split("; "_l1)) {
            feeder.feed(line);
        }
        QCOMPARE(feeder.statement(), cells[2]);
        QCOMPARE(feeder_t::brief(feeder.scene.alarm), cells[3]);
    }

    // name | what is heard | of whom | why it is gone or unknown
    void reasons_data()
    {
        addRows(R"(
leaves       | a P1 here; wait 3; a P1 gone          | P1 | It took its leave, or its process ended; thought so because it was heard 3.2 s before
frozen       | a P1 here; a P1 says x/y; wait 90; a P1 gone | P1 | It is frozen or cut off, and its broker missed it; thought so because it was silent for 90 s before
often silent | a P1 here; wait 80; a P1 says x/y; wait 90; a P1 gone | P1 | It left, ended, was frozen or was cut off: it was silent for 90 s before, as it often is, so nothing tells which
not often    | a P1 here; wait 50; a P1 says x/y; wait 90; a P1 gone | P1 | It is frozen or cut off, and its broker missed it; thought so because it was silent for 90 s before
never heard  | a P1 gone; wait 1                     | P1 | Nothing tells why: it has not been heard before
power        | a P1 here; a P2 here; a P3 here; a S1 here; a P1 gone; a P2 gone; a P3 gone | P1 | Its box has lost its power or its network; thought so because 3 nodes at a went at the same time
two of two   | a P1 here; a P2 here; a P1 gone; a P2 gone | P1 | Its box has lost its power or its network; thought so because 2 nodes at a went at the same time
two of three | a P1 here; a P2 here; a P3 here; a P1 gone; a P2 gone | P2 | It took its leave, or its process ended; thought so because it was heard 0.3 s before
one by one   | a P1 here; a P2 here; a P1 gone; wait 4; a P2 says x/y; a P2 gone | P1 | It took its leave, or its process ended; thought so because it was heard 0.2 s before
elsewhere    | a P1 here; b P2 here; a P1 gone; b P2 gone | P1 | It took its leave, or its process ended; thought so because it was heard 0.2 s before
bridge       | a S1 here S1; -a S2 here S1; a bridge h-b-1-2 1; -a S2 gone; a bridge h-b-1-2 0 | S2 | The way to it is gone, it may live; thought so because the bridge h-b-1-2 went down at the same time
unreachable  | a S1 here S1; -a S2 here S1; a bridge h-b-1-2 1; wait 2; a bridge h-b-1-2 0 | S2 | The way to it is gone, it may live; thought so because the bridge h-b-1-2 is down
broker lost  | a P1 here; wait 1; a lost             | P1 | It may live; thought so because its broker a is lost to us
with broker  | a P1 here; a P1 gone; a lost          | P1 | Its box is off or cut off; thought so because its broker a was lost at the same time
retained     | a P1 old all/status/x                 | P1 | Only retained packets of it are known, which say nothing about now
)");
    }
    void reasons()
    {
        QFETCH(QStringList, cells);
        feeder_t feeder;
        for (const QString& line : cells[1].split("; "_l1)) {
            feeder.feed(line);
        }
        QCOMPARE(feeder.why(cells[2]), cells[3]);
        for (const scene_event_t& event : qAsConst(feeder.events)) {
            if (event.subject == feeder_t::full(cells[2]) && event.text.contains("has left"_l1)) {
                QCOMPARE(feeder_t::brief(event.why), cells[3]); // what was told first is told anew
            }
        }
    }

    // name | what is heard | everything that was told, with what it stands on
    void events_data()
    {
        addRows(R"(
a bridge told at both ends | a bridge local_h-b-1-2 1; b bridge h-b-1-2 1; a bridge local_h-b-1-2 0; b bridge h-b-1-2 0 | bridge h-b-1-2 is up; bridge h-b-1-2 is down
told anew after a loss     | a bridge h-b-1-2 1; a lost; a ready; a bridge h-b-1-2 1 | bridge h-b-1-2 is up; a is lost (no answer); a is listened to
a box that is off          | a S1 here; b S2 here; b bridge h-b-1-2 1; a lost; b bridge h-b-1-2 0 | bridge h-b-1-2 is up; a is lost (Its box is off or cut off; thought so because other brokers have lost it as well: the bridge h-b-1-2 is down); bridge h-b-1-2 is down
only from here             | ab P1 here; a lost; wait 6; -b P1 says x/y | a is lost (Only the way from here to it is gone; thought so because its nodes are still heard over bridges)
missing, and again         | ab S1 here; b S2 here; b S2 says all/status/x; b S2 says all/status/x; wait 6; wait 6; ba S2 says all/status/x | nothing goes from b to a (Thought so because nodes at b have spoken and nothing of it arrived at a: look at the topic lines of the bridge); packets go from b to a again
)");
    }
    void events()
    {
        QFETCH(QStringList, cells);
        feeder_t feeder;
        for (const QString& line : cells[1].split("; "_l1)) {
            feeder.feed(line);
        }
        QStringList told;
        for (const scene_event_t& event : qAsConst(feeder.events)) {
            if (event.number > 3 && !event.text.endsWith("is there"_l1)) { // the first are the three brokers
                told << event.text + (event.why.isEmpty() ? QString() : " ("_l1 + event.why + u')');
            }
        }
        QCOMPARE(feeder_t::brief(told.join("; "_l1)), cells[2]);
    }

    // A silent house is drawn once.
    void silence()
    {
        feeder_t feeder;
        feeder.survey.take(feeder.now, 0, "forward-bridge/local/house1/panel-1/all/status/x"_s, "{}", 0, false);
        QVERIFY(feeder.survey.sceneIfChanged(feeder.now));
        QVERIFY(feeder.survey.isMoving(feeder.now));
        feeder.now += std::chrono::seconds(30);
        QVERIFY(feeder.survey.sceneIfChanged(feeder.now)); // its rate has fallen
        feeder.now += std::chrono::seconds(30);
        QVERIFY(!feeder.survey.sceneIfChanged(feeder.now));
        QVERIFY(!feeder.survey.isMoving(feeder.now));
        feeder.survey.take(feeder.now, 0, "forward-bridge/local/house1/panel-1/all/status/x"_s, "{}", 0, false);
        const auto scene = feeder.survey.sceneIfChanged(feeder.now);
        QVERIFY(scene && !scene->isNews);
    }

    // name | what is heard | milliseconds of the round trips
    void roundTrips_data()
    {
        addRows(R"(
answer          | a P1 says S1/request/DB/x; a S1 says all/status/DB/x | 100
below           | a P1 says S1/request/DB/x; a S1 says all/status/DB/x/1 | 100
only the first  | a P1 says S1/request/DB/x; a S1 says all/status/DB/x; a S1 says all/status/DB/x | 100
asked twice     | a P1 says S1/request/DB/x; a P2 says S1/request/DB/x; a S1 says all/status/DB/x | 200
another subject | a P1 says S1/request/DB/x; a S1 says all/status/DB/xy |
another server  | a P1 says S1/request/DB/x; a S2 says all/status/DB/x |
too late        | a P1 says S1/request/DB/x; wait 10; a S1 says all/status/DB/x |
late copy       | a P1 says S1/request/DB/x; a S1 says all/status/DB/x; -b P1 says S1/request/DB/x; a S1 says all/status/DB/x | 100
retained        | a P1 says S1/request/DB/x; a S1 old all/status/DB/x |
overtaken       | ab P1 says S1/x; -b P1 says S1/request/DB/x; b S1 says all/status/DB/x; a P1 says S1/request/DB/x; -a S1 says all/status/DB/x | 100
again           | ab P1 says S1/request/DB/x; ba S1 says all/status/DB/x; ab P1 says S1/request/DB/x; ba S1 says all/status/DB/x | 100 100
)");
    }
    void roundTrips()
    {
        QFETCH(QStringList, cells);
        feeder_t feeder;
        QStringList trips;
        for (const QString& line : cells[1].split("; "_l1)) {
            feeder.feed(line);
            for (const double trip : qAsConst(feeder.scene.roundTrips)) {
                trips << QString::number(trip);
            }
        }
        QCOMPARE(trips.join(u' '), cells[2]);
        QCOMPARE(feeder.scene.roundTrip, trips.isEmpty() ? -1 : trips.last().toDouble());
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
        QCOMPARE(values.join(u' '), QString(cells[2]).remove(QRegularExpression("[a-z]"_s)));
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

QTEST_GUILESS_MAIN(unit_view)
#include "unit_view.moc"
