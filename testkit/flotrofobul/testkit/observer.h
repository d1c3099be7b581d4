// SPDX-License-Identifier: MIT
// A stranger beside the engines: mosquitto_sub notes everything on the wire, mosquitto_pub sends what no engine would.
#pragma once

#include <flotrofobul/testkit/child.h>

namespace comunication {
namespace testkit {

/// Subscribes everything but $SYS with the construction; MQTT 5, to see the retain flag as published. A broker that
/// does not take it ends the test.
class observer_t : public child_t {
public:
    /// Port: of a broker on this machine. Returns when the subscription stands.
    explicit observer_t(int givenPort) : port(QString::number(givenPort))
    {
        publish(QStringLiteral("ready"), "1", {QStringLiteral("-r")});
        start(QStringLiteral("mosquitto_sub"), words("-p")
                                                   << port << words("-t # -q 2 -V 5 --nodelay --retain-as-published -F")
                                                   << QStringLiteral("%t %p %q %r"));
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
        sender.start(QStringLiteral("mosquitto_pub"),
                     words("-q 2 -p") << port << words("-t") << topic
                                      << words(payload.isEmpty() ? "-n" : "-s") // nothing, or what comes over the input
                                      << options);
        sender.write(payload);
        sender.closeWriteChannel();
        sender.waitForFinished();
    }

    QStringList messages; ///< "topic payload qos retain"

private:
    static QStringList words(const char* line) { return QString::fromUtf8(line).split(u' '); }

    const QString port;
};

} // namespace testkit
} // namespace comunication
