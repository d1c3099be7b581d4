// SPDX-License-Identifier: MIT
// The outbox by itself: ids, bounds and suspects where a broker would need hours to lead there.
#include <flotrofobul/platform/mosquittopp/mosquittoqt.h>
#include <flotrofobul/platform/mosquittopp/outbox.h>

#include "support/log_recorder.h"

#include <QtTest/QtTest>

using namespace comunication::mosquittopp;
using namespace std::chrono_literals;

class unit_outbox : public QObject {
    Q_OBJECT

private:
    static int add(outbox_t& outbox, bool linkUp, int bytes = 1)
    {
        letter_t letter;
        letter.payload = QByteArray(bytes, 'x');
        letter.qos = 2;
        letter.mid = outbox.nextMid();
        return outbox.add(std::move(letter), linkUp);
    }

    // Adds and hands over; the ids of the library follow those of the outbox.
    static letter_t* send(outbox_t& outbox, moment_t now = {}, int bytes = 1)
    {
        add(outbox, true, bytes);
        letter_t* const letter = outbox.takeNext(now);
        letter->wireMid = letter->mid;
        return letter;
    }

private Q_SLOTS:
    // One message stays without an answer while all other ids pass by; after the link was lost it leads the queue.
    void idsAreNeverGivenTwice()
    {
        outbox_t outbox;
        const int stuck = send(outbox)->mid;
        for (int i = 0; i < 65600; ++i) {
            const int mid = send(outbox)->mid;
            QVERIFY(mid != stuck);
            QCOMPARE(outbox.acknowledge(mid), mid);
        }
        outbox.linkLost(false);
        QSet<int> mids{stuck};
        for (int i = 0; i < 900; ++i) {
            const int mid = outbox.nextMid();
            QVERIFY2(!mids.contains(mid), qPrintable(QString::number(mid)));
            mids.insert(mid);
        }
    }

    void subscriptionsLeaveIdsForMessages()
    {
        outbox_t outbox;
        int asked = 0;
        while (!outbox.hasTooManyRequests() && asked < 70000) {
            outbox.addRequest(outbox.nextMid(), ++asked);
        }
        QVERIFY(asked < 70000);
        for (int i = 0; i < 70000; ++i) { // ends only when an id is always left
            add(outbox, true);
        }
        QCOMPARE(outbox.waitingCount(), 65000);
        outbox.linkLost(false);
        QVERIFY(!outbox.hasTooManyRequests());
    }

    // What was not acknowledged when the link went down does not make room for what is published without one.
    void bounds()
    {
        outbox_t outbox;
        outbox.setLimits(3, 100);
        send(outbox, {}, 1000);
        outbox.linkLost(false);
        QCOMPARE(add(outbox, false, 40), 0);
        QCOMPARE(add(outbox, false, 40), 0);
        QCOMPARE(outbox.waitingCount(), 3);
        QCOMPARE(add(outbox, false, 40), 1); // the oldest goes first
        QCOMPARE(outbox.waitingCount(), 3);
        QCOMPARE(add(outbox, false, 1), 0);
        QCOMPARE(add(outbox, false, 1), 1); // too many now
    }

    // Also where the library sends a message again by itself, long after it was handed over.
    void suspects()
    {
        outbox_t outbox;
        int givenUp = 0;
        const auto giveUp = [&givenUp](const letter_t& letter) { givenUp = letter.mid; };
        const int mid = send(outbox)->mid;
        for (int session = 0; session < 3; ++session) {
            const moment_t start(session * 30s);
            QCOMPARE(givenUp, 0);
            outbox.sentAgain(start);
            QCOMPARE(outbox.suspect(start + 10ms, giveUp), session + 1);
            outbox.linkLost(true);
        }
        QCOMPARE(givenUp, mid);
        QCOMPARE(outbox.onItsWayCount(), 0);
    }

    // The library's ids wrap without a look at what is outstanding: the newest owner of one is meant.
    void wireIdsTwice()
    {
        outbox_t outbox;
        const int older = send(outbox)->mid;
        letter_t* const newer = send(outbox);
        newer->wireMid = older;
        QCOMPARE(outbox.acknowledge(older), older + 1);
        QCOMPARE(outbox.acknowledge(older), older);
    }

    void droppingIsToldOnce()
    {
        log_recorder_t log(::utility::logs::info);
        mosquittoqt client(QStringLiteral("panel"), true, false);
        client.setOutboxLimits(1000, 100000);
        for (int i = 0; i < 2000; ++i) {
            QCOMPARE(client.publish(nullptr, QStringLiteral("house"), QString(i % 2 == 0 ? 10 : 3000, u'x'), 2, false),
                     0);
        }
        QCOMPARE(log.lines.size(), 1);
    }
};

QTEST_GUILESS_MAIN(unit_outbox)
#include "unit_outbox.moc"
