// SPDX-License-Identifier: MIT
// A plain libmosquitto client beside the engines: it notes everything on the wire, and sends what no engine would.
#pragma once

#include <QtCore/QObject>
#include <QtCore/QStringList>

#include <memory>

class QSocketNotifier;
struct mosquitto;

/// Connects and subscribes everything but $SYS with the construction; MQTT 5, to see the retain flag as published.
class observer_t : public QObject {
public:
    explicit observer_t(int port);
    ~observer_t() override;

    /// True when its subscription stands.
    bool isReady() const { return ready; }
    /// Publishes any bytes at QoS 2.
    void publish(const QString& topic, const QByteArray& payload, bool retain = false);

    QStringList messages; ///< "topic payload qos retain"

private:
    mosquitto* handle;
    std::unique_ptr<QSocketNotifier> reader;
    bool ready = false;
};
