// SPDX-License-Identifier: MIT
// The outbox by itself: ids, bounds and suspects where a broker would need hours to lead there.
#include <flotrofobul/platform/mosquittopp/outbox.h>

#include "support/client.h"

using namespace comunication::mosquittopp;
using namespace std::chrono_literals;

class unit_outbox : public QObject {
    Q_OBJECT

    static int add(outbox_t& outbox, bool linkUp, int bytes = 1)
    {
        letter_t letter;
        letter.payload = QByteArray(bytes, 'x');
        letter.qos = 2;
        letter.mid = outbox.nextMid();
        return outbox.add(std::move(letter), linkUp);
    }

    // Adds and hands over; the ids of the library follow those of the outbox.
    static letter_t* send(outbox_t& outbox, int bytes = 1)
    {
        add(outbox, true, bytes);
        letter_t* const letter = outbox.takeNext({});
        letter->wireMid = letter->mid;
        return letter;
    }

private Q_SLOTS:
    // One message stays without an answer while all other ids pass by; after the link was lost it leads the queue.
    void idsAreNeverGivenTwice()
    {
        outbox_t outbox;
        QSet<int> mids{send(outbox)->mid};
        for (int i = 0; i < 65600; ++i) {
            const int mid = send(outbox)->mid;
            QVERIFY(!mids.contains(mid));
            QCOMPARE(outbox.acknowledge(mid), mid);
        }
        outbox.linkLost(false);
        for (int i = 1; !outbox.hasTooManyRequests(); ++i) {
            const int mid = outbox.nextMid();
            QCOMPARE((mids << mid).size(), i + 1);
            outbox.addRequest(mid, i);
        }
        while (outbox.hasRoom(1)) {
            add(outbox, true); // ends only when an id is always left
        }
        QCOMPARE(outbox.waitingCount(), 65000);
        outbox.linkLost(false);
        QVERIFY(!outbox.hasTooManyRequests());
    }

    // What was not acknowledged when the link went down does not make room for what is published without one.
    void bounds_data() { addRows("session over\nsession given up later"); }
    void bounds()
    {
        QFETCH(QStringList, cells);
        const bool later = cells[0].endsWith("later"_l1);
        outbox_t outbox;
        outbox.setLimits(3, 100);
        send(outbox, 1000);
        outbox.linkLost(later);
        if (later) {
            outbox.restart();
        }
        // The oldest goes first: the third is too long for the bytes, the fifth one too many.
        QList<int> dropped;
        for (const int bytes : {40, 40, 40, 1, 1}) {
            dropped << add(outbox, false, bytes);
        }
        QCOMPARE(dropped, QList<int>({0, 0, 1, 0, 1}));
        QCOMPARE(outbox.waitingCount(), 4);
    }

    void suspects_data() { addRows("proven connections | 6\nany connections | 12"); }

    // A message is blamed for the end of a connection only when it was alone; how soon depends on the connection.
    void suspects()
    {
        QFETCH(QStringList, cells);
        outbox_t outbox;
        send(outbox);
        send(outbox);
        QVERIFY(!outbox.suspect({}).forsaken);
        int cuts = 0;
        for (bool fatal = false; !fatal && cuts < 15; ++cuts) {
            outbox.linkLost(false);
            if (cells[0] == "proven connections"_s) {
                outbox.addRequest(outbox.nextMid(), 7);
                outbox.acknowledgeRequest(7);
            }
            const moment_t start(cuts * 30s);
            QVERIFY(outbox.takeNext(start) != nullptr && outbox.takeNext(start) == nullptr);
            fatal = outbox.suspect(start + 10ms).forsaken.has_value();
        }
        QCOMPARE(cuts, cells[1].toInt());
        outbox.linkLost(false);
        QCOMPARE(outbox.waitingCount(), 1);
    }

    // The library's ids wrap without a look at what is outstanding: the newest owner of one is meant.
    void wireIdsTwice()
    {
        outbox_t outbox;
        const int older = send(outbox)->mid;
        send(outbox)->wireMid = older;
        QCOMPARE(outbox.acknowledge(older), older + 1);
        QCOMPARE(outbox.acknowledge(older), older);
    }
};

QTEST_GUILESS_MAIN(unit_outbox)
#include "unit_outbox.moc"
