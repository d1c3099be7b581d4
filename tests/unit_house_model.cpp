// SPDX-License-Identifier: MIT
// The model of a house: packets in, statements out.
#include <flotrofobul/house/house_model.h>

#include "support/client.h"

using namespace comunication::house;

namespace {

/// Feeds a model with packets in short, one second after the other:
///
///     S1 all here S1          S1 (tarnel-server-1) presents itself to all, master S1; "gone" in place of "here"
///     P1 S1 ready 1           client/ready to S1
///     S1 all says status/x    any packet; "old" in place of "says": a retained one
///     S1 all sign S2 30       a companion's sign of life: master S2 for 30 seconds
///     S1 all farewell         takes leave of its panels as master
///     bridge a-b-1-2 1        state of a bridge; without a state it is taken back
///     topic payload           as it stands
///
/// "R:" before a line: over remote-bridge; "2:": heard at a second broker; "B:": encoded; "X:": of another
/// installation.
struct feeder_t {
    house_model_t house{"house1"_s};
    moment_t now{1000000};

    static QString full(const QString& name)
    {
        return QString(name)
            .replace(QRegularExpression("^S(?=\\w)"_s), "tarnel-server-"_s)
            .replace(QRegularExpression("^P(?=\\w)"_s), "panel-"_s);
    }

    void feed(QString line)
    {
        const QString mark = line.left(2).endsWith(u':') ? line.left(1) : QString();
        const QStringList words = line.remove(0, mark.isEmpty() ? 0 : 2).split(u' ');
        now += std::chrono::seconds(1);
        if (words[0] == "bridge"_l1) {
            house.take(now, "$SYS/broker/connection/%1/state"_s.arg(words[1]), words.value(2).toUtf8(), 0, true);
            return;
        }
        if (words.size() < 3) {
            house.take(now, words[0], words.value(1).toUtf8());
            return;
        }
        const QString sender = full(words[0]);
        const QString& what = words[2];
        QString command = "connection/presentation"_s;
        QJsonValue value;
        if (what == "here"_l1 || what == "gone"_l1) {
            value = QJsonObject{{"clientid"_s, sender},
                                {"type"_s, sender.startsWith(u't') ? "server"_s : "client"_s},
                                {"connected"_s, what == "here"_l1},
                                {"masterid"_s, full(words.value(3))}};
        } else if (what == "ready"_l1) {
            command = "command/client/ready"_s;
            value = words[3];
        } else if (what == "sign"_l1) {
            command = "connection/house"_s;
            value = QJsonObject{{"master"_s, full(words[3])}, {"since"_s, words[4].toInt()}};
        } else if (what == "farewell"_l1) {
            command = "master"_s;
            value = QJsonObject{{"masterid"_s, sender}};
        } else {
            command = words[3];
            value = QJsonObject();
        }
        QByteArray payload = QJsonDocument(QJsonObject{{"d"_s, value}}).toJson(QJsonDocument::Compact);
        payload = mark == "B"_l1 ? payload.toBase64() : payload;
        house.take(now,
                   "%1/local/%2/%3/%4/%5"_s.arg(mark == "R"_l1 ? "remote-bridge"_s : "forward-bridge"_s,
                                                mark == "X"_l1 ? "other"_s : "house1"_s, sender, full(words[1]),
                                                command),
                   payload, 2, what == "old"_l1, mark == "2"_l1 ? 2 : 1);
    }

    /// "S1 master, P1 ready for S1, ..." and what else there is to say.
    QString statement() const
    {
        QStringList parts;
        for (const house_node_t& node : house.nodes()) {
            const char* const presence = node.presence == presence_t::here   ? "here"
                                         : node.presence == presence_t::gone ? "gone"
                                                                             : "?";
            parts << node.id + u' ' + wordOf(node.role) + u' ' + QLatin1String(node.isMaster() ? "master" : presence) +
                         QLatin1String(node.ready ? " ready" : "") + QLatin1String(node.encoded ? " encoded" : "") +
                         (node.master.isEmpty() || node.isMaster() ? QString() : QString(" for "_l1 + node.master));
        }
        for (const house_bridge_t& bridge : house.bridges()) {
            parts << QString(bridge.name + QLatin1String(bridge.up ? " up " : " down ") + bridge.servers.join(u'+'))
                         .trimmed();
        }
        return parts.join(", "_l1).replace("tarnel-server-"_l1, "S"_l1).replace("panel-"_l1, "P"_l1);
    }
};

} // namespace

class unit_house_model : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // name | packets | what is known then | the last things that happened
    void statements_data()
    {
        addRows(R"(
nothing        | a                                       |                       |
master         | S1 all here S1                          | S1 server master      | S1 is there; S1 is master now
said again     | S1 all here S1; S1 all here S1          | S1 server master      | S1 is master now
panel          | S1 all here S1; P1 own_server here; P1 S1 here S1; P1 S1 ready 1 | S1 server master, P1 client here ready for S1 | P1 is there; P1 follows S1; P1 is ready, it listens to S1
not ready      | P1 S1 ready 1; P1 S1 ready 0            | P1 client here for S1 | P1 is not ready any more
last will      | S1 all here S1; P1 S1 ready 1; S1 all gone | S1 server gone, P1 client here for S1 | S1 has left, or its last will says so; S1 is master no more
panel is back  | P1 all gone; P1 S1 ready 1              | P1 client here ready for S1 | P1 is there; P1 follows S1; P1 is ready, it listens to S1
two masters    | S1 all here S1; R:S2 all here S2        | S1 server master, S2 server master | S2 is master now; more than one master: S1, S2
one again      | S1 all here S1; R:S2 all here S2; S1 all here S2 | S1 server here for S2, S2 server master | S1 is master no more; one master again: S2
farewell       | S1 all here S1; S1 all_clients farewell | S1 server here        | S1 is master no more
named only     | S1 all here S1; R:S2 all here S1        | S1 server master, S2 server here for S1 | S2 is there, master S1
sign of life   | S1 all_servers sign S1 30; R:S2 all_servers sign S1 0 | S1 server master, S2 server here for S1 | S2 is there; S2 follows S1
request        | P1 S1 says request/DB/persistent        | P1 client here for S1 | P1 is there; P1 follows S1
late copy      | P1 S1 ready 1; R:P1 own_server here     | P1 client here ready for S1 | P1 is ready, it listens to S1
moved          | P1 S1 ready 1; a; a; a; a; R:P1 all here S2 | P1 client here for S2 | P1 follows S2
to everybody   | P1 own_server says request/DB/x         | P1 client here        | P1 is there
status         | S1 all says status/DB/persistent        | S1 server here        | S1 is there
retained       | S1 all old status/DB/persistent         | S1 server ?           |
stranger       | X1 all says hello/x                     | X1 ? here             | X1 is there
by their words | A1 all says notification/x; A2 all says command/x; A3 all says request/x; A4 all says master/x | A1 server here, A2 client here, A3 client here, A4 server here | A1 is there; A2 is there; A3 is there; A4 is there
a slash before | /forward-bridge/local/house1/X1/all/x/y {} | X1 ? here           | X1 is there
empty levels   | forward-bridge/local/house1//all/x/y {}; forward-bridge/local//X1/all/x/y {}; forward-bridge/local/house1/X1//x/y {}; forward-bridge/local/house1/X1/all {} | |
two brokers    | S1 all here S1; 2:S1 all gone           | S1 server master      | S1 is master now
other broker   | S1 all here S1; a; a; a; a; 2:S1 all gone | S1 server gone       | S1 is master no more
nearer         | R:P1 all here S2; P1 all here S1        | P1 client here for S1 | P1 is there, master S2; P1 follows S1
other house    | X:S1 all here S1                        |                       |
encoded        | B:S1 all here S1; B:S1 all says status/x | S1 server master encoded | S1 has encoding on: its payloads are Base64, which engines do not decode; S1 is there; S1 is master now
someone else   | forward-bridge/local/house1/P1/all/connection/presentation {"d":{"clientid":"P2"}} | P1 ? ? | a presentation of P1 that engines refuse: it calls itself P2
no role        | forward-bridge/local/house1/P1/all/connection/presentation {"d":{"clientid":"P1","type":"x"}} | P1 ? ? | a presentation of P1 that engines refuse: its type is "x"
not connected  | forward-bridge/local/house1/P1/all/connection/presentation {"d":{"clientid":"P1","type":"client"}} | P1 ? ? | a presentation of P1 that engines refuse: it does not say whether it is connected
refused once   | X1 all says x/y; P1 all x connection/presentation; P1 all x connection/presentation | X1 ? here, P1 ? ? | X1 is there; a presentation of P1 that engines refuse: its payload is no presentation
no payload     | forward-bridge/local/house1/P1/all/connection/presentation x | P1 ? ? | a presentation of P1 that engines refuse: its payload is no presentation
bridges        | bridge house-bridge-1-2 1; bridge KEY 1; bridge KEY 0 | house-bridge-1-2 up S1+S2, KEY down | bridge house-bridge-1-2 is up; bridge KEY is up; bridge KEY is down
bridge goes    | bridge KEY 1; bridge KEY                |                       | bridge KEY is up
)");
    }
    void statements()
    {
        QFETCH(QStringList, cells);
        feeder_t feeder;
        int changes = 0;
        feeder.house.setObserver([&] { ++changes; });
        for (const QString& line : cells[1].split("; "_l1)) {
            const quint64 before = feeder.house.revision();
            const int called = changes;
            feeder.feed(line);
            QCOMPARE(changes > called, feeder.house.revision() > before);
        }
        QCOMPARE(feeder.statement(), cells[2]);
        QStringList said;
        for (const house_event_t& event : feeder.house.events()) {
            said << event.text().replace("tarnel-server-"_l1, "S"_l1).replace("panel-"_l1, "P"_l1);
        }
        const QStringList expected = cells[3].split("; "_l1, Qt::SkipEmptyParts);
        QCOMPARE(said.mid(said.size() - expected.size()), expected);
        QVERIFY(!expected.isEmpty() || said.isEmpty());
    }

    // What a consumer counts on beside the statements.
    void counts()
    {
        feeder_t feeder;
        feeder.feed("S1 all_servers sign S1 30"_s);
        const quint64 known = feeder.house.revision();
        feeder.feed("R:S1 all says status/x"_s); // the same twice, over two ways, and one more
        feeder.feed("S1 all says status/x"_s);
        feeder.feed("X:S1 all says status/x"_s);
        const house_node_t& server = *feeder.house.node("tarnel-server-1"_s);
        QCOMPARE(feeder.house.revision(), known + 1); // another installation is news
        QVERIFY(server.changed <= known);
        QCOMPARE(server.sent, qint64(2));
        QCOMPARE(server.prefixes(), QStringList({"forward-bridge"_s, "remote-bridge"_s}));
        QCOMPARE(server.masterSince, moment_t(1001000 - 30000));
        QCOMPARE(server.heard, moment_t(1003000));
        QCOMPARE(feeder.house.otherInstallations(), QStringList("other"_s));
        QCOMPARE(feeder.house.packets(), qint64(3));
        QCOMPARE(feeder.house.foreign(), qint64(1));
        rate_t rate;
        for (int i = 0; i < 3000; ++i) { // a hundred a second
            rate.add(moment_t(10 * i));
        }
        QVERIFY(qAbs(rate.perSecond(moment_t(29990)) - 100) < 2);
        QVERIFY(rate.perSecond(moment_t(45000)) < 51);
        QCOMPARE(rate.perSecond(moment_t(60000)), 0.0);
    }

    // What is known of one node, from when, and what of it is news.
    void details()
    {
        feeder_t feeder;
        const QString topic = "forward-bridge/local/house1/P1/all/connection/presentation"_s;
        QJsonObject record{{"clientid"_s, "P1"_s},   {"type"_s, "client"_s},   {"connected"_s, true},
                           {"os"_s, "o"_s},          {"versionLib"_s, "l"_s},  {"versionApp"_s, "a"_s},
                           {"hostname"_s, "h"_s},    {"publishDate"_s, "p"_s}, {"brokerip"_s, "b"_s},
                           {"masterid"_s, QString()}};
        const auto present = [&] {
            QJsonObject said = record;
            said["masterData"_s] = record; // the master's, which is not kept
            feeder.now += std::chrono::seconds(10);
            feeder.house.take(feeder.now, topic, QJsonDocument(QJsonObject{{"d"_s, said}}).toJson(), 2, false);
            return feeder.house.node("P1"_s);
        };
        const house_node_t* node = present();
        const moment_t came = feeder.now;
        QCOMPARE(node->record, record);
        QCOMPARE(node->installation, "house1"_s);
        QVERIFY(node->since == came && node->heard == came);
        const quint64 known = feeder.house.revision();
        present();
        QVERIFY(feeder.house.revision() == known && node->since == came && node->heard == feeder.now);
        record["hostname"_s] = QString(200, u'h');
        present();
        QVERIFY(node->changed > known && node->since == came);
        record["hostname"_s] = QString(201, u'h'); // is cut
        QCOMPARE(present()->record["hostname"_s].toString().size(), 200);
        record["connected"_s] = false;
        QVERIFY(present()->since == feeder.now);
        record["os"_s] = QString(65536, u'x'); // not read at all
        record["connected"_s] = true;
        QCOMPARE(present()->presence, presence_t::gone);
        record["os"_s] = "o"_s;
        QVERIFY(present()->presence == presence_t::here && node->since == feeder.now);
        QCOMPARE(feeder.house.rate(feeder.now), 2 / 10.0); // one at either end of the ten seconds
    }

    // seconds that a server claims to be master | what is believed
    void mastership_data()
    {
        addRows(R"(
-5    | 0
0.9   | 0
1e9   | 1000000000
1e300 | 1000000000
"x"   | 0
)");
    }
    void mastership()
    {
        QFETCH(QStringList, cells);
        feeder_t feeder;
        feeder.feed(
            "forward-bridge/local/house1/S1/all_servers/connection/house {\"d\":{\"master\":\"S1\",\"since\":%1}}"_s
                .arg(cells[0]));
        // Short of words the feeder takes it as it stands, a second after its beginning.
        QCOMPARE(feeder.house.node("S1"_s)->masterSince,
                 moment_t(1001000) - std::chrono::seconds(cells[1].toLongLong()));
        QCOMPARE(feeder.house.mastersSince(), moment_t(1001000));
    }

    // What the broker says of itself, and that it is forgotten with the link.
    void broker()
    {
        feeder_t feeder;
        feeder.feed("$SYS/broker/clients/connected 7"_s);
        feeder.feed("$SYS/broker/clients/connected many"_s);
        feeder.feed("$SYS/broker/version mosquitto"_s);
        feeder.feed("bridge a-b-1-2 1"_s);
        QCOMPARE(feeder.house.brokerClients(), 7);
        QCOMPARE(feeder.house.brokerVersion(), "mosquitto"_s);
        const quint64 known = feeder.house.revision();
        feeder.house.forgetBridges();
        QVERIFY(feeder.house.bridges().isEmpty() && feeder.house.lastRemoval() > known);
        const quint64 removed = feeder.house.revision();
        feeder.house.forgetBridges();
        QCOMPARE(feeder.house.revision(), removed);
        QCOMPARE(feeder.house.rate(feeder.now), 0.0);
    }

    // Who goes for one that comes: who is gone, then the longest silent; a master too.
    void crowded()
    {
        feeder_t feeder;
        feeder.feed("S1 all here S1"_s);
        for (int i = 1; i < house_model_t::mostNodes; ++i) {
            feeder.feed("X%1 all here"_s.arg(i));
        }
        feeder.feed("X5 all gone"_s);
        feeder.feed("X1 all says x/y"_s);
        QCOMPARE(feeder.house.lastRemoval(), quint64(0));
        const auto comes = [&](const QString& id) {
            feeder.feed(id + " all here"_l1);
            QCOMPARE(feeder.house.nodes().size(), house_model_t::mostNodes);
            QCOMPARE(feeder.house.node(id)->id, id);
            for (const house_node_t& node : feeder.house.nodes()) {
                QCOMPARE(feeder.house.node(node.id), &node);
            }
        };
        comes("N1"_s);
        QVERIFY(feeder.house.node("X5"_s) == nullptr && feeder.house.lastRemoval() > 0);
        QCOMPARE(feeder.house.masters(), QStringList("tarnel-server-1"_s));
        comes("N2"_s);
        QVERIFY(feeder.house.node("tarnel-server-1"_s) == nullptr);
        QCOMPARE(feeder.house.masters(), QStringList());
        QCOMPARE(feeder.house.mastersSince(), feeder.now);
        comes("N3"_s);
        QVERIFY(feeder.house.node("X2"_s) == nullptr && feeder.house.node("X1"_s) != nullptr);
        feeder.feed("N4 all says x/y"_s);
        QVERIFY(feeder.house.node("N4"_s) == nullptr);
        const QVector<house_event_t>& events = feeder.house.events();
        QCOMPARE(std::count_if(events.begin(), events.end(),
                               [](const house_event_t& one) { return one.kind == house_event_t::crowded; }),
                 1);
    }

    // Strangers push out nobody who has presented himself.
    void bounded()
    {
        feeder_t feeder;
        feeder.feed("S1 all here S1"_s);
        for (int i = 0; i < 3 * house_model_t::mostNodes; ++i) {
            feeder.feed("X%1 all says x/y"_s.arg(i));
            feeder.feed("bridge b%1 1"_s.arg(i));
        }
        feeder.feed("P1 S1 here S1"_s);
        QCOMPARE(feeder.house.nodes().size(), house_model_t::mostNodes);
        QCOMPARE(feeder.house.bridges().size(), house_model_t::mostBridges);
        QVERIFY(feeder.house.events().size() <= house_model_t::mostEvents);
        QVERIFY(feeder.house.lastRemoval() > 0);
        QCOMPARE(feeder.house.masters(), QStringList("tarnel-server-1"_s));
        QCOMPARE(feeder.house.node("panel-1"_s)->master, "tarnel-server-1"_s); // found where it stands now
        feeder_t other;
        other.feed("forward-bridge/local/house1/%1/all/x/y"_s.arg(QString(200, u'x')));
        QCOMPARE(other.house.foreign(), qint64(0));
        other.feed("forward-bridge/local/house1/%1/all/x/y"_s.arg(QString(201, u'x')));
        QCOMPARE(other.house.foreign(), qint64(1));
        for (int i = 0; i < 20; ++i) {
            other.feed("forward-bridge/local/other%1/P1/all/x/y"_s.arg(i));
        }
        QCOMPARE(other.house.otherInstallations().size(), 10);
    }
};

QTEST_GUILESS_MAIN(unit_house_model)
#include "unit_house_model.moc"
