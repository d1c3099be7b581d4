// SPDX-License-Identifier: MIT
// What the picture of a house concludes from packets: who sits where, what is wrong, and why somebody is gone.
#include "survey.h"

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

} // namespace

class unit_view : public QObject {
    Q_OBJECT

private Q_SLOTS:
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
crosses anyway | a bridge h-b-1-2 0; ab S1 here S1; b S2 here S1; wait 1; ab S1 says x/y | a:S1, b:S2; a-b up/down | bridge h-b-1-2 is down
both dial      | a bridge h-b-1-2 0; b bridge h-b-2-1 1; a S1 here S1; b S2 here S1 | a:S1, b:S2; a-b down/up | bridge h-b-1-2 is down
lane of data   | a bridge hd-1-2 0; a S1 here S1; b S2 here S1   | a:S1, b:S2; a-b down/down | bridge hd-1-2 is down
dead box       | a bridge h-b-1-2 0; a S1 here S1                | a:S1, S2:; a-S2 down/down | bridge h-b-1-2 is down
ghost          | a S1 here S1; -a S2 here S1; -a P2 here S1      | a:S1, S2:S2 P2; a-S2 unknown/up |
two ghosts     | a S1 here S1; -a S2 here S1 10.0.0.2; -a S3 here S1 10.0.0.3; -a P3 here S1 10.0.0.3; -a P4 here S1 | a:S1, S2:S2, S3:S3 P3, behind a:P4; a-S2 unknown/up, a-S3 unknown/up, a-behind a unknown/up |
ghost beyond b | a S1 here S1; b S2 here S1; -b P3 says x/y           | a:S1, b:S2, behind b:P3; b-behind b unknown/up |
ghost is found | a S1 here S1; -a S2 here S1; b S2 says x/y      | a:S1, b:S2; a-b unknown/up |
cloud          | a S1 here S1; ~a P9 here S1; a bridge KEY 1     | a:S1, cloud:P9; a-cloud up/up |
cloud is heard | a S1 here S1; ~c S1 says x/y; a bridge KEY 1    | a:S1; a-c up/up |
at the cloud   | ~a S1 here S1; ~a P1 here S1; a P9 here S1      | a:P9, S1:S1 P1; a-S1 unknown/up |
star           | a S1 here S1; b S2 here S1; c S3 here S1; a bridge h-b-1-2 1; a bridge h-b-1-3 1; -c S2 says x/y | a:S1, b:S2, c:S3; a-b up/up, a-c up/up |
hub unheard    | a S1 here S1; a bridge h-b-9-1 1; -a S9 here S1; -a S2 here S1 | a:S1, S9:S9, S2:S2; a-S9 up/up, S9-S2 unknown/up |
copies first   | ab S1 here S1; b S2 here S1; ba S2 says all/status/x; -a S2 says all/status/x; b S2 says all/status/x; b S2 says all/status/x; b S2 says all/status/x; wait 6 | a:S1, b:S2; a-b up/up |
missing        | ab S1 here S1; b S2 here S1; b S2 says all/status/x; b S2 says all/status/x; wait 6 | a:S1, b:S2; a-b up/missing | nothing goes from b to a
missing asked  | ab S1 here S1; b S2 here S1; b S2 says all/request/x; b S2 says all/command/x; wait 6 | a:S1, b:S2; a-b up/missing | nothing goes from b to a
missing told   | ab S1 here S1; b S2 here S1; b S2 says all/master/x; b S2 says all/notification/x; wait 6 | a:S1, b:S2; a-b up/missing | nothing goes from b to a
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
third later  | a P1 here; a P2 here; a P3 here; a P1 gone; a P2 gone; wait 25; a P3 says x/y; a P3 gone | P2 | It took its leave, or its process ended; thought so because it was heard 0.3 s before
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
lost once                  | a lost; a lost; a ready; a ready | a is lost (no answer); a is listened to
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
        // Somebody of whom a broker has kept something is to be seen, though nothing has happened.
        feeder.survey.take(feeder.now, 0, "forward-bridge/local/house1/panel-2/all/status/x"_s, "{}", 0, true);
        const auto next = feeder.survey.sceneIfChanged(feeder.now);
        QVERIFY(next && next->isNews && next->events.isEmpty());
    }

    // Two that are called the same are told apart, by those who read and by the survey.
    void namesakes()
    {
        survey_t survey("house1"_s, {"a"_s, "a"_s, "a"_s});
        QStringList names;
        for (const scene_broker_t& broker : survey.scene(moment_t(0)).brokers) {
            names << broker.name;
        }
        QCOMPARE(names.join(u','), "a,a (2),a (3)"_s);
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
};

QTEST_GUILESS_MAIN(unit_view)
#include "unit_view.moc"
