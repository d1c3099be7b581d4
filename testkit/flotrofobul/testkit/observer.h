// SPDX-License-Identifier: MIT
// A stranger beside the engines: mosquitto_sub notes everything on the wire, mosquitto_pub sends what no engine would.
#pragma once

#include <QtCore/QProcess>

namespace comunication {
namespace testkit {

/// Subscribes everything but $SYS with the construction; MQTT 5, to see the retain flag as published.
class observer_t : public QProcess {
public:
    explicit observer_t(int port) : port(port)
    {
        publish(QStringLiteral("ready"), "1", {QStringLiteral("-r")});
        start(QStringLiteral("mosquitto_sub"),
              words(QStringLiteral("-p %1 -t # -q 2 -V 5 --nodelay --retain-as-published -F").arg(port))
                  << QStringLiteral("%t %p %q %r"));
        waitForReadyRead(5000); // the retained message, which comes when the subscription stands
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
        sender.start(QStringLiteral("mosquitto_pub"),
                     words(QStringLiteral("-q 2 -p %1 -t").arg(port))
                         << topic << (payload.isEmpty() ? QStringLiteral("-n") : QStringLiteral("-s")) // the input
                         << options);
        sender.write(payload);
        sender.closeWriteChannel();
        sender.waitForFinished();
    }

    QStringList messages; ///< "topic payload qos retain"

private:
    static QStringList words(const QString& line) { return line.split(u' '); }

    const int port;
};

} // namespace testkit
} // namespace comunication
