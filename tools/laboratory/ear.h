// SPDX-License-Identifier: MIT
// An observer at one broker: what its nodes publish, counted by who is meant, and which bridges stand.
#pragma once

#include <flotrofobul/platform/mosquittopp/mosquittoqt.h>

#include <QtCore/QElapsedTimer>
#include <QtCore/QMap>

/// Packets on "forward-bridge/", which every node publishes on its own broker and no bridge does.
struct packets_t {
    int betweenServers = 0; ///< to all servers, or to one
    int toAll = 0;          ///< to servers and panels
    int toPanels = 0;       ///< to all panels, or to one
    int fromPanels = 0;

    int total() const { return betweenServers + toAll + toPanels + fromPanels; }
    packets_t& operator+=(const packets_t& other);
    packets_t operator-(const packets_t& other) const;
    QString text() const;
};

/// Counts from the construction on, over losses of its link as well.
class ear_t : public comunication::mosquittopp::mosquittoqt {
    Q_OBJECT

public:
    explicit ear_t(quint16 port);

    /// Connects, or tries to at once.
    void dial();

    packets_t packets;
    QElapsedTimer sinceLast;     ///< invalid before the first packet
    QMap<QString, bool> bridges; ///< by name: whether it stands, as the broker says

Q_SIGNALS:
    void changed();

private:
    void hear(const QString& topic, const QString& payload);

    const quint16 port;
};
