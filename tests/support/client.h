// SPDX-License-Identifier: MIT
// The broker client under test with all that it has signalled, a watch on the event loop, and tables of words.
#pragma once

#include <flotrofobul/platform/mosquittopp/mosquittoqt.h>

#include "support/log_recorder.h"

#include <QtTest/QtTest>

#include <ctime>

struct client_t : comunication::mosquittopp::mosquittoqt {
    explicit client_t(bool cleanSession = true, bool autoconnect = true)
        : mosquittoqt("panel"_s, cleanSession, autoconnect)
    {
        connect(this, &client_t::onConnect, [this](int rc) { connects << rc; });
        connect(this, &client_t::onDisconnect, [this](int rc) { losses << rc; });
        connect(this, &client_t::onPublish, [this](int mid) { acknowledged << mid; });
        connect(this, &client_t::onSubscribe, [this](int mid, int count, const int* codes) {
            subscribed << mid;
            std::copy_n(codes, count, std::back_inserter(subscribed));
        });
        connect(this, &client_t::onMessage,
                [this](int, const QString& topic, const QString& payload, int length, int qos, bool retain) {
                    messages << "%1 %2 %3 %4 "_s.arg(topic).arg(length).arg(qos).arg(retain) + payload;
                });
    }

    /// Starts to connect to a port of this machine.
    int dial(int port, int keepalive = 60) { return connect_async("127.0.0.1"_s, port, keepalive); }
    /// Connects while the event loop runs.
    bool joins(int port, int keepalive = 60)
    {
        return dial(port, keepalive) == 0 && QTest::qWaitFor([this] { return getConnected(); });
    }
    /// The same while it does not; what connect_sync says.
    int joinsWaiting(int port) { return connect_sync("127.0.0.1"_s, port, 60); }
    /// Publishes and returns the mid, which is 0 when that fails.
    int say(const QString& text, int qos = 2, const QString& topic = "house/a"_s)
    {
        int mid = -1;
        publish(&mid, topic, text, qos, false);
        return mid;
    }

    QList<int> connects;
    QList<int> losses;
    QList<int> acknowledged;
    QList<int> subscribed; ///< mid and codes
    QStringList messages;  ///< "topic length qos retain payload"
};

/// How long the event loop did not turn, and how much processor time went by.
class loop_watch_t {
public:
    loop_watch_t()
    {
        QObject::connect(&timer, &QTimer::timeout, [this] { longest = std::max(longest, sinceTurn.restart()); });
        sinceTurn.start();
        timer.start(5);
    }

    /// True when the loop turned at least every gap milliseconds and the process was busy for at most that many, this
    /// watch's own timer included.
    bool wasCalm(qint64 gap, qint64 busy) const
    {
        const qint64 most = std::max(longest, sinceTurn.elapsed());
        const qint64 used = (std::clock() - cpu) * 1000 / CLOCKS_PER_SEC;
        const bool calm = most <= gap && used <= busy;
        return calm || (qWarning("longest gap %lld ms, busy %lld ms", most, used), false);
    }

private:
    QTimer timer;
    QElapsedTimer sinceTurn;
    qint64 longest = 0;
    const std::clock_t cpu = std::clock();
};

/// Adds a row for each line "name | cell | cell ..."; QFETCH(QStringList, cells) gets them, the name first.
inline void addRows(const char* table)
{
    QTest::addColumn<QStringList>("cells");
    for (const QString& line : QString::fromUtf8(table).split(u'\n', Qt::SkipEmptyParts)) {
        QStringList cells = line.split(u'|');
        std::transform(cells.begin(), cells.end(), cells.begin(), [](const QString& cell) { return cell.trimmed(); });
        QTest::newRow(qPrintable(cells[0])) << cells;
    }
}
