// SPDX-License-Identifier: MIT
#include "laboratory/ear.h"

#include <QtCore/QStringList>

packets_t& packets_t::operator+=(const packets_t& other)
{
    betweenServers += other.betweenServers;
    toAll += other.toAll;
    toPanels += other.toPanels;
    fromPanels += other.fromPanels;
    return *this;
}

packets_t packets_t::operator-(const packets_t& other) const
{
    return {betweenServers - other.betweenServers, toAll - other.toAll, toPanels - other.toPanels,
            fromPanels - other.fromPanels};
}

QString packets_t::text() const
{
    return QStringLiteral("%1 packets (%2 between servers, %3 to all, %4 to panels, %5 from panels)")
        .arg(total())
        .arg(betweenServers)
        .arg(toAll)
        .arg(toPanels)
        .arg(fromPanels);
}

ear_t::ear_t(quint16 givenPort) : mosquittoqt(QStringLiteral("ear"), true, true), port(givenPort)
{
    connect(this, &ear_t::onConnect, this, [this](int rc) {
        if (rc == 0) {
            bridges.clear();
            subscribe(nullptr, QStringLiteral("forward-bridge/#"), 2);
            subscribe(nullptr, QStringLiteral("$SYS/broker/connection/#"), 2);
        }
    });
    connect(this, &ear_t::onMessage, this,
            [this](int, const QString& topic, const QString& payload) { hear(topic, payload); });
}

void ear_t::dial()
{
    connect_async(QStringLiteral("127.0.0.1"), port, 60);
}

void ear_t::hear(const QString& topic, const QString& payload)
{
    // forward-bridge/local/<installation>/<sender>/<destination>/... or $SYS/broker/connection/<name>/state
    const QStringList levels = topic.split(u'/');
    if (levels[0] == QLatin1String("$SYS")) {
        bridges[levels.value(3)] = payload == QLatin1String("1");
    } else {
        const QString destination = levels.value(4);
        const auto isPanel = [](const QString& id) { return id.startsWith(QLatin1String("panel-")); };
        if (isPanel(levels.value(3))) {
            ++packets.fromPanels;
        } else if (destination == QLatin1String("all")) {
            ++packets.toAll;
        } else if (destination == QLatin1String("all_clients") || isPanel(destination)) {
            ++packets.toPanels;
        } else {
            ++packets.betweenServers;
        }
        sinceLast.start();
    }
    Q_EMIT changed();
}
