// SPDX-License-Identifier: MIT
// A stranger beside the engines: mosquitto_sub notes everything on the wire, mosquitto_pub sends what no engine would.
#pragma once

#include "laboratory/child.h"
#include "log_recorder.h"

/// Subscribes everything but $SYS with the construction; MQTT 5, to see the retain flag as published. A broker that
/// does not take it ends the test.
class observer_t : public child_t {
public:
    explicit observer_t(int givenPort) : port(QString::number(givenPort))
    {
        publish("ready"_s, "1", {"-r"_s});
        start("mosquitto_sub"_s, {"-p"_s, this->port, "-t"_s, "#"_s, "-q"_s, "2"_s, "-V"_s, "5"_s, "--nodelay"_s,
                                  "--retain-as-published"_s, "-F"_s, "%t %p %q %r"_s});
        if (!waitForReadyRead(5000)) { // the retained message, which comes when the subscription stands
            qFatal("the broker takes no observer: %s", readAllStandardError().constData());
        }
        readAll();
        connect(this, &QProcess::readyRead, this, [this] {
            while (canReadLine()) {
                messages << QString::fromUtf8(readLine().chopped(1));
            }
        });
    }
    ~observer_t() override
    {
        kill();
        waitForFinished();
    }

    /// Publishes any bytes at QoS 2 and waits until the broker has them.
    void publish(const QString& topic, const QByteArray& payload, const QStringList& options = {}) const
    {
        QProcess sender;
        const QStringList content{payload.isEmpty() ? "-n"_s : "-s"_s}; // nothing, or what comes over the input
        sender.start("mosquitto_pub"_s, QStringList{"-p"_s, port, "-t"_s, topic, "-q"_s, "2"_s} + content + options);
        sender.write(payload);
        sender.closeWriteChannel();
        sender.waitForFinished();
    }
    QStringList messages; ///< "topic payload qos retain"

private:
    const QString port;
};
