// SPDX-License-Identifier: MIT
// The picture of a house on a screen: two real boxes, joined by a bridge, in which everything fails once, and what
// somebody sees of it who looks, clicks and scrolls back.
#include "support/face.h"
#include "support/log_recorder.h"

#include <flotrofobul/testkit/broker.h>

#include <QtCore/QTemporaryDir>
#include <QtTest/QtTest>

using comunication::testkit::broker_t;
using comunication::testkit::child_t;
using comunication::testkit::memory_file_t;
using comunication::tools::connection_t;
using comunication::view::picture_t;

class view_test : public QObject, private face_t {
    Q_OBJECT

    QTemporaryDir data;
    std::unique_ptr<broker_t> far;
    std::unique_ptr<broker_t> near;
    std::map<QString, std::unique_ptr<child_t>> nodes;
    std::map<QString, std::unique_ptr<memory_file_t>> configurations;
    void start(const QString& id, const broker_t& broker, const QStringList& further = {})
    {
        auto& file = configurations[id];
        file = std::make_unique<memory_file_t>(
            R"({"mqtt":{"connect":{"keepalive":10},"global":{"installation_id":"house1","port":)" +
            QByteArray::number(broker.port()) + "}}}");
        const bool isServer = id.startsWith("tarnel"_s);
        QStringList arguments{file->path(), "--id"_s, id};
        if (isServer) {
            arguments << "--data"_s << data.filePath(id);
        }
        auto& node = nodes[id];
        node = std::make_unique<child_t>();
        node->setStandardOutputFile(QProcess::nullDevice());
        node->start(isServer ? QStringLiteral(HOUSE_SERVER) : QStringLiteral(WALL_PANEL), arguments + further);
    }
    void kill(const QString& id)
    {
        nodes[id]->kill();
        nodes[id]->waitForFinished();
    }
    static connection_t to(const broker_t& broker)
    {
        connection_t connection;
        connection.host = broker.host();
        connection.port = broker.port();
        connection.installationId = "house1"_s;
        connection.keepalive = 10;
        connection.timeout = 5;
        connection.maxPacketBytes = 1 << 20;
        return connection;
    }

private Q_SLOTS:
    void init()
    {
        far = std::make_unique<broker_t>();
        near = std::make_unique<broker_t>(
            ("connection house-bridge-1-2\naddress 127.0.0.1:%1\nremote_clientid house-bridge-1-2\ncleansession true\n"
             "restart_timeout 1\ntopic local/# out 2 forward-bridge/ remote-bridge/\n"
             "topic local/# in 2 remote-bridge/ forward-bridge/"_s)
                .arg(far->port()));
    }
    void cleanup()
    {
        close();
        for (auto& node : nodes) {
            kill(node.first);
        }
        nodes.clear();
    }

    void house()
    {
        const QString farName = "127.0.0.1:%1"_s.arg(far->port());
        look([&](picture_t& chosen) { chosen.watch({to(*near), to(*far)}); });
        QVERIFY(window() != nullptr);
        QTRY_VERIFY(picture->property("alarm").toString().startsWith("no broker"_s));
        QTRY_COMPARE(faults(), QString());

        QVERIFY(far->start() && near->start());
        QTRY_COMPARE_WITH_TIMEOUT(picture->property("alarm").toString(), QString(), 15000);
        start("tarnel-server-1"_s, *near, {"--master"_s});
        start("tarnel-server-2"_s, *far);
        start("kitchen"_s, *near);
        start("phone"_s, *far);
        QTRY_COMPARE_WITH_TIMEOUT(presence("phone"_s), "here"_s, 10000);
        QTRY_COMPARE(presence("tarnel-server-1"_s), "here"_s);
        QTRY_VERIFY(seen("node_tarnel-server-1"_s)->property("master").toBool());
        QTRY_COMPARE_WITH_TIMEOUT(picture->property("alarm").toString(), QString(), 15000);
        QTRY_COMPARE(faults(), QString());

        // A click shows what is known of a node, another one of a broker.
        click(seen("node_kitchen"_s));
        QTRY_COMPARE(said("heading"_s), "kitchen"_s);
        QTRY_VERIFY(picture->property("recordText").toString().contains("\"clientid\": \"kitchen\""_s));
        QTRY_COMPARE(faults(), QString());
        click(seen("broker_"_s + farName));
        QTRY_COMPARE(said("heading"_s), farName);
        QTRY_COMPARE(faults(), QString());
        QTest::keyClick(window(), Qt::Key_Escape);
        QTRY_VERIFY(seen("heading"_s) == nullptr);

        kill("tarnel-server-1"_s);
        QTRY_COMPARE(presence("tarnel-server-1"_s), "gone"_s);
        QTRY_COMPARE(picture->property("alarm").toString(), "no master"_s);
        QTRY_COMPARE(faults(), QString());

        // What was before is seen again: the master lives.
        click(seen("timeline"_s), 0.02);
        QTRY_VERIFY(!picture->property("live").toBool());
        QTRY_VERIFY(presence("tarnel-server-1"_s) != "gone"_s);
        QTRY_COMPARE(faults(), QString());
        click(seen("live"_s));
        QTRY_COMPARE(presence("tarnel-server-1"_s), "gone"_s);

        far->kill(SIGKILL);
        QTRY_VERIFY(picture->property("alarm").toString().contains(farName));
        QTRY_VERIFY(presence("phone"_s) != "here"_s);
        QTRY_COMPARE(faults(), QString());
        QVERIFY(far->start());
        start("tarnel-server-1"_s, *near, {"--master"_s});
        QTRY_COMPARE_WITH_TIMEOUT(presence("phone"_s), "here"_s, 15000);

        // A master that stands still says nothing; its broker misses it after half as long again as its keep-alive.
        nodes["tarnel-server-1"_s]->signal(SIGSTOP);
        QTRY_COMPARE_WITH_TIMEOUT(presence("tarnel-server-1"_s), "gone"_s, 20000);
        QTRY_COMPARE(faults(), QString());
    }
};

QTEST_MAIN(view_test)
#include "view.moc"
