// SPDX-License-Identifier: MIT
// The operations of an MQTT client as Qt calls, and the signals that answer them. Reconnection, timeouts and limits are
// in mosquittoqt.h.
#pragma once

#include <flotrofobul/export.h>
#include <flotrofobul/platform/mosquittopp/types.h>

#include <QtCore/QByteArray>
#include <QtCore/QObject>
#include <QtCore/QString>

#include <memory>

namespace comunication {
namespace mosquittopp {

class link_t;

/// Version of the libmosquitto underneath; null pointers are skipped. Returns it as a single number, as libmosquitto
/// does (2000011 for 2.0.11).
FLOTROFOBUL_EXPORT int lib_version(int* major, int* minor, int* revision);

/// One MQTT client on the event loop of its thread, without a thread of its own.
///
/// Every operation returns one of libmosquitto's codes, 0 for success; a refused value writes one log line. No signal
/// is emitted from inside an operation: what happens at once is reported on the next turn of the event loop. From
/// within any of its signals a host may call any operation and may delete the object. It belongs to the thread that
/// created it. Hosts create a mosquittoqt.
class FLOTROFOBUL_EXPORT mosquittoppqt : public QObject {
    Q_OBJECT
public:
    using password_callback = password_callback_t;

    ~mosquittoppqt() override;

    /// Starts to connect and returns at once. An address that refuses at once gives its code (14) and no signal; a
    /// later failure is reported by onDisconnect, the broker's answer by onConnect and onConnect_with_flags. Between
    /// two attempts it tries at once; while connected it leaves the session alone and returns 0. port is 1 to 65535,
    /// keepalive 0 (off) or 5 to 65535 seconds; anything else gives 3.
    int connect_async(const QString& host, int port, int keepalive);

    /// Like connect_async, but waits for the broker's answer, without running the event loop and no longer than the
    /// connection timeout. Returns 0 to 5 as the broker answered, 8 for TLS, 14 when nobody answers, 15 for a name that
    /// does not resolve.
    int connect_sync(const QString& host, int port, int keepalive);

    /// Subscribes to a topic filter at qos 0 to 2; onSubscribe follows with the same mid. Returns 4 without a
    /// connection: a subscription is not remembered. mid may be null; it is set to 0 when the call fails.
    int subscribe(int* mid, const QString& topic, int qos);

    /// Unsubscribes from a topic filter; onUnsubscribe follows with the same mid. Otherwise like subscribe.
    int unsubscribe(int* mid, const QString& topic);

    /// Publishes payload as UTF-8; onPublish follows with the same mid when the broker has taken the message over (at
    /// QoS 0: when it has been handed to the network). Without a connection the message waits in the outbox. Refused
    /// are topics over which brokers close the connection (empty, with wildcards or control characters, of more than
    /// 200 levels), a qos outside 0 to 2, and more than 256 MB. Returns 1 when too much waits for a slow broker.
    int publish(int* mid, const QString& topic, const QString& payload, int qos, bool retain);

    /// The same for a payload that need not be a text.
    int publishRaw(int* mid, const QString& topic, const QByteArray& payload, int qos, bool retain);

    /// Credentials from the next connection on; none if both are empty. A null user name with a password gives 3. The
    /// password never appears in a log line.
    int username_pw_set(const QString& username, const QString& password);

    /// Requires TLS from the next connection on; the files are read anew for every connection. Returns 3 if a file is
    /// missing or unreadable or neither cafile nor capath is given, 1 if a file holds no certificate. Whatever it
    /// returns, nothing is sent in clear text any more.
    int tls_set(const QString& cafile, const QString& capath, const QString& certfile, const QString& keyfile,
                password_callback_t callback = nullptr);

    /// With true, the broker's certificate may be for any host name; its signature is still checked.
    int tls_insecure_set(bool insecure);

    /// Registers the last will from the next connection on. The topic is as for publish, the payload at most 65535
    /// bytes.
    int will_set(const QString& topic, const QString& payload, int qos, bool retain);
    /// Takes the last will back, from the next connection on.
    int will_clear();

    /// With true, messages that arrive from now on are passed on by onRawMessage in place of onMessage.
    void setRawPayloads(bool on);

    /// With true, onLog carries every line of libmosquitto, at some cost for each packet.
    void setLogging(bool on);

Q_SIGNALS:
    /// The broker has answered: 0 accepted, 1 to 5 refused. Emitted directly before onConnect_with_flags.
    void onConnect(int rc);
    /// flags is 1 if the broker still knows the session. getConnected() already tells the truth.
    void onConnect_with_flags(int rc, int flags);
    /// A connection has ended (0 on request, 7 lost, 19 no answer within the keep-alive), or an attempt to connect has
    /// failed before the broker answered (8 TLS, 14 network, 15 name).
    void onDisconnect(int rc);
    /// The broker has taken a message over; at QoS 0, it was handed to the network.
    void onPublish(int mid);
    /// payloadlen counts the bytes on the wire; invalid UTF-8 arrives as U+FFFD.
    void onMessage(int mid, QString topic, QString payload, int payloadlen, int qos, bool retain);
    /// A message with its payload as it came; only after setRawPayloads(true).
    void onRawMessage(int mid, QString topic, QByteArray payload, int qos, bool retain);
    /// granted_qos holds qos_count numbers (128: refused) and is valid only during a direct call.
    void onSubscribe(int mid, int qos_count, const int* granted_qos);
    /// The broker has ended a subscription.
    void onUnsubscribe(int mid);
    /// A line of libmosquitto with its own level number; only while logging is on.
    void onLog(int level, QString str);
    /// Why there is no connection, in words, whenever that changes; empty when there is one again or nobody wants one.
    void onLinkProblem(QString reason);
    /// An error that no code of another signal describes.
    void onError();

protected:
    mosquittoppqt(const QString& clientId, bool cleanSession, bool autoconnect, QObject* parent);

    std::unique_ptr<link_t> link;
};

} // namespace mosquittopp
} // namespace comunication
