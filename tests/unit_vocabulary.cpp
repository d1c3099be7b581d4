// SPDX-License-Identifier: MIT
// The words, templates and topics of the protocol, and the registry of pending requests.
#include <flotrofobul/define/define.h>
#include <flotrofobul/messages/messages.h>
#include <flotrofobul/platform/qt.h>
#include <flotrofobul/utility/system_t.h>

#include "../fuzz/topic_reference.h"
#include "support/log_recorder.h"

#include <QtCore/QJsonDocument>
#include <QtCore/QPointer>
#include <QtCore/QRandomGenerator>
#include <QtTest/QtTest>

using namespace comunication;
using namespace comunication::utility;

class unit_vocabulary : public QObject {
    Q_OBJECT
private Q_SLOTS:
    // As they are where hosts use them; "%" stands for the common prefix.
    void constants()
    {
        QStringList found;
        found << CLIENTID << PREFIX_CONNECTIONS << PREFIX_COMMAND << PREFIX_STATUS_PERSISTENT_DB
              << PREFIX_STATUS_REALTIME_DB << PREFIX_STATUS_PRESENCESIMULATION_DB << PREFIX_REQUEST_PERSISTENT_DB
              << PREFIX_REQUEST_REALTIME_DB << PREFIX_REQUEST_PRESENCESIMULATION_DB << PREFIX_REQUEST_COMMAND_DB;
        for (QJsonObject packet :
             {bridge_state, bridge_state_cloud_connection, bridge_state_cloud_disconnection, bridge_forward_sub,
              bridge_remote_sub, bridge_cloud_sub, masterelection, presentation, lastwill, performance, status, request,
              notification, all_packet, pkgClientReady}) {
            found << packet.take("topic"_l1).toString();
            if (packet != QJsonObject{{"qos"_s, 2}, {"retain"_s, false}}) {
                found << QString::fromUtf8(QJsonDocument(packet).toJson(QJsonDocument::Compact));
            }
        }
        const QString expected =
            "@clientid %/connection %/command %/status/DB/persistent %/status/DB/realtime "
            "%/status/DB/presencesimulation %/request/DB/persistent %/request/DB/realtime "
            "%/request/DB/presencesimulation %/request/DB/command $SYS/broker/connection/# "
            "$SYS/brokers/+/clients/@bridgekey/connected $SYS/brokers/+/clients/@bridgekey/disconnected "
            "forward-bridge/local/@installation_id/# {\"qos\":2} remote-bridge/local/@installation_id/# {\"qos\":2} "
            "cloud-bridge/local/@installation_id/# {\"qos\":2} %/master %/connection/presentation "
            "%/connection/presentation $SYS/# %/status/# {\"qos\":2,\"retain\":true} %/request/# %/notification/# # "
            "%/command/client/ready {\"payload\":true,\"qos\":2,\"retain\":false}"_s;
        QCOMPARE(found, QString(expected).replace("%"_s, "local/@installation_id/@sender/@destination"_s).split(u' '));
        QCOMPARE(subscriptions, (QJsonObject{{"status"_s, status}}));
        QCOMPARE(subscriptions_server, (QJsonObject{{"performance"_s, performance}, {"request"_s, request}}));
        QCOMPARE(subscriptions_client, (QJsonObject{{"notification"_s, notification}}));
    }

    // Numbers in the order of creation; the server's words go on with the client's, and only texts are compared.
    void words()
    {
        using server_t = destination_publish_server_t;
        using heard_t = destination_subscription_t;
        const server_t another("all"_s);
        QString found;
        for (const word_t* const word : std::initializer_list<const word_t*>{
                 &service_t::server, &service_t::client, &destination_publish_client_t::idserver,
                 &destination_publish_client_t::own_server, &server_t::all, &server_t::all_servers,
                 &server_t::all_clients, &another, &heard_t::jolly, &heard_t::multilevel, &heard_t::all,
                 &heard_t::all_clients, &heard_t::idserver, &heard_t::idclient}) {
            found += word->ToString() + QString::number(word->index) + u' ';
        }
        QCOMPARE(found, "server0 client1 @idserver0 own_server1 all2 all_servers3 all_clients4 all5 "
                        "+0 #1 all2 all_clients3 @idserver4 @idclient5 "_s);
        QVERIFY(service_t("server"_s).index >= 2 && server_t::maxI == 0);
        QVERIFY(another == server_t::all && heard_t("all"_s) == heard_t::all);
        QVERIFY(service_t("server"_s) == service_t::server && !(service_t::client == service_t::server));
    }

    // Hosts connect by these names, also queued.
    void names()
    {
        QCOMPARE(qt::typeNamed("qos_t"), qMetaTypeId<qos_t>());
        QCOMPARE(qt::typeNamed("subscribe_t"), qMetaTypeId<subscribe_t>());
        QCOMPARE(qt::typeNamed("state_req_t"), qMetaTypeId<state_req_t>());
        QVERIFY(qt::typeNamed("system_t*") != QMetaType::UnknownType);
        QVERIFY(system_t::staticMetaObject.indexOfConstructor("system_t(QString,service_t,QString,QObject*)") == 0);
    }

    void topics()
    {
        const QString rows = // topic and parts, "-" where it is refused
            "local/1234/clientA/all/status/DB//persistent/ ok||local|1234|clientA|all|status/DB//persistent/\n"
            "cloud-bridge/local/411/s/d/v ok|cloud-bridge|local|411|s|d|v\n"
            "other-cloud-bridgelocal/1/s/d/v ok|other-cloud-bridge|local|1|s|d|v\n"
            "/local/1/{}[]()/?^$!:/.,=;@+'-_ ok||local|1|{}[]()|?^$!:|.,=;@+'-_\n"
            "local/1/\u00a3/\u00e9/\u0416 ok||local|1|\u00a3|\u00e9|\u0416\n"
            "local/1234/clientA/all/ -\nlocal/12a4/x/y/z -\nremote-bridge//local/1/a/b/c -\n$SYS/broker/load -"_s;
        topic_t::setInstallationid("1234"_s);
        for (const QString& row : rows.split(u'\n')) {
            const QString topic = row.section(u' ', 0, 0);
            log_recorder_t log;
            bool ok = true;
            QCOMPARE(topic_t(topic, &ok).getOriginal(), topic);
            for (const auto& one : qAsConst(log.records)) {
                QCOMPARE(one.file + QString::number(one.line), "libscomunication/libmosquittoproto/define/topic_t67"_s);
            }
            const QString refused = "2 topic_t Unknown topic not processing messsage: "_l1 + topic;
            QCOMPARE(log.take(), ok ? QStringList() : QStringList(refused));
            QCOMPARE(topic + u' ' + partsOf(topic).join(ok ? "|"_s : QString()), row);
        }
    }

    void ownPattern()
    {
        const QString usual = std::exchange(topic_t::tmp_regex_allowed_topic_plain, "(a)(local)(b)(c)(d)(e)"_s);
        QCOMPARE(partsOf("alocalbcde"_s), "ok a local b c d e"_s.split(u' '));
        topic_t::tmp_regex_allowed_topic_plain = usual;
        QVERIFY(service_t::server == "server"_s);
    }

    // Valid topics, changed at a few places, under ids that are plain words and such that change the pattern's meaning.
    void topicsAsTheExpression()
    {
        log_recorder_t log(1);
        const QString pattern = topic_t::regex_allowed_topic_plain;
        QRandomGenerator random(1);
        const auto below = [&random](int bound) { return random.bounded(bound); };
        const auto two = [&below](const QString& of) { return of.mid(below(of.size()), 2); };
        const QString letters = "abcXYZ019_-.@+"_s;
        const QStringList starts = "local remote-bridge/local cloud-bridgelocal local/local"_s.split(u' ');
        const QString ids = "House_7  - a-z z-a ] a]b ^ ^1 / 1/2 \\ \\d @ \u00e9\u0416 [ ( + \\1 @installation_id"_s;
        for (const QString& id : ids.split(u' ')) {
            topic_t::setInstallationid(id);
            QCOMPARE(topic_t::installation_id, id);
            QCOMPARE(topic_t::tmp_regex_allowed_topic_plain, QString(pattern).replace("@installation_id"_s, id));
            const QString others =
                "//////lloca12{}[]()?^$\u00a3!:,=;' \t\n#%&*\\\"|~<>\u00e9\u0661\u0301\U0001f600"_s + QChar(0) + id;
            for (int n = 0; n < 1000; ++n) {
                QString topic = starts[below(4)];
                for (const QString& level : {QString(id + u'1'), letters, letters, letters}) {
                    topic += u'/' + two(level);
                }
                for (int changes = below(4); changes > 0; --changes) {
                    topic.replace(below(topic.size()), below(3), two(others).left(below(3)));
                }
                QVERIFY2(partsOf(topic) == referenceOf(topic), qPrintable(id + u' ' + topic));
            }
        }
    }

    void registry()
    {
        auto owner = std::make_unique<message::classmessages>();
        message::classmessages& registry = *owner;
        QCOMPARE(registry.getMidSubsciption("nine"_s), -1);
        QVERIFY(registry.addSubscription(9, "nine"_s, qos_t(2)) && registry.addSubscription(4, "four"_s, qos_t(1)));
        QVERIFY(registry.addPublication(4, "topic"_s, "payload"_s, qos_t(2), true));
        QCOMPARE(registry.getMidSubsciption("nine"_s), 4); // the lowest, whatever the topic
        QVERIFY(registry.getSubsciption(5) == nullptr && registry.getPublications(9) == nullptr);
        const auto textOf = [](const auto& one) -> QString {
            return one.getTopic() + " qos %1 mid %2 state %3"_s.arg(one.getQos()).arg(one.getMid()).arg(one.getState());
        };
        const message::classpublish& publication = *registry.getPublications(4);
        QCOMPARE(textOf(*registry.getSubsciption(4)), "four qos 1 mid 4 state 1"_s);
        QCOMPARE(textOf(publication) + publication.getPayload(), "topic qos 2 mid 4 state 1payload"_s);
        QVERIFY(publication.getRetainflag() && !publication.getDubflag() && publication.getTimePublication().isNull());
        QVERIFY(publication.getTimeCreation() > QDateTime::currentDateTime().addSecs(-60));

        // What is replaced stays for a host that may hold it, until the reset.
        const QPointer<QObject> replaced = registry.getSubsciption(9);
        const QPointer<QObject> removed = registry.getSubsciption(4);
        const QPointer<QObject> reset = registry.getPublications(4);
        registry.addSubscription(7, "given away"_s, qos_t(0));
        QObject* const held = registry.getSubsciption(7);
        registry.addSubscription(7, "anew"_s, qos_t(0));
        delete held; // nobody's any more
        registry.removeSubsciption(7);
        registry.addSubscription(9, "later"_s, qos_t(0));
        QCOMPARE(textOf(*registry.getSubsciption(9)), "later qos 0 mid 9 state 1"_s);
        QCOMPARE(registry.removeSubsciption(5) + registry.removePublications(9) + registry.removeSubsciption(4), 1);
        QVERIFY(removed.isNull() && !replaced.isNull() && !reset.isNull());
        QCOMPARE(registry.getSubscriptions()->keys() + registry.getPublications()->keys(), (QList<int>{9, 4}));
        QCOMPARE(registry.reset(), 0);
        QVERIFY(replaced.isNull() && reset.isNull());
        QVERIFY(registry.getSubscriptions()->isEmpty() && registry.getPublications()->isEmpty());

        registry.addSubscription(3, QString(), qos_t(2));
        const QPointer<QObject> left = registry.getSubsciption(3);
        const message::classpublish empty(this);
        QVERIFY(empty.parent() == nullptr && !empty.getRetainflag() && left->property("qos").value<qos_t>() == 2);
        owner.reset();
        QVERIFY(left.isNull());
    }
};

QTEST_GUILESS_MAIN(unit_vocabulary)
#include "unit_vocabulary.moc"
