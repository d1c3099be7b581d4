// SPDX-License-Identifier: MIT
// The connection to the broker as a state machine: which address is dialled, what is sent when, what follows a failure.
// Internal. link.cpp deals with an established connection, link_dialling.cpp with how one is made and what happens when
// it ends, link_reasons.cpp with the words for it.
#pragma once

#include <flotrofobul/platform/limits.h>
#include <flotrofobul/platform/mosquittopp/backoff.h>
#include <flotrofobul/platform/mosquittopp/delivery.h>
#include <flotrofobul/platform/mosquittopp/handle.h>
#include <flotrofobul/platform/mosquittopp/outbox.h>
#include <flotrofobul/platform/mosquittopp/values.h>

#include <QtCore/QBasicTimer>
#include <QtCore/QDeadlineTimer>
#include <QtCore/QElapsedTimer>
#include <QtCore/QSocketNotifier>
#include <QtCore/QStringList>

class QHostInfo;

namespace comunication {
namespace mosquittopp {

/// Source name in the adapter's log lines.
constexpr const char logSource[] = "libscomunication/libmosquittoqt/mosquittoqt";

class link_t : public QObject, private handle_listener_t {
    Q_OBJECT
public:
    link_t(delivery_t::receiver_t receiver, const QString& clientId, bool cleanSession, bool autoconnect);
    ~link_t() override;

    int connectAsync(const QString& host, int port, seconds_t keepalive);
    int connectSync(const QString& host, int port, seconds_t keepalive);
    int disconnect();
    bool isConnected() const { return state == state_t::connected; }
    QString linkProblem() const { return problem; }
    int pendingEnds() const { return delivery.pendingEnds() + (state == state_t::closing ? 1 : 0); }

    int subscribe(int* mid, const QString& filter, int qos);
    int unsubscribe(int* mid, const QString& filter);
    int publish(int* mid, const QString& topic, const QString& payload, int qos, bool retain);
    void withdraw(int mid);
    void setLogging(bool on);

    identity_t identity;
    outbox_t outbox;
    milliseconds_t interval = limits::interval.initial;
    milliseconds_t connectTimeout = limits::connectTimeout.initial;
    int maxPacketBytes = limits::packetBytes.initial;

protected:
    void timerEvent(QTimerEvent* event) override;

private Q_SLOTS:
    void resolved(const QHostInfo& info);

private:
    /// dialling: TCP connects; securing: the TLS handshake runs; greeting: the broker has yet to answer; closing: the
    /// last packets leave; waiting: until the next attempt.
    enum class state_t { idle, resolving, dialling, securing, greeting, connected, closing, waiting };

    // link_dialling.cpp
    int checkTarget(const QString& newHost, int newPort, seconds_t newKeepalive);
    int refuseTarget(const verdict_t& verdict, const char* what, const QString& value);
    int start(const QString& newHost, int newPort, seconds_t newKeepalive);
    int attempt();
    int dialNext();
    int dial(const QString& address);
    int prepareHandle();
    void dialled();
    void driveUntilAnswered();
    void answered();
    void expired();
    int addressFailed(int rc, int systemError);
    int failed(int rc, const QString& why);
    void lost(int rc, int systemError);
    void beginAnew();
    void noteSessionLength();
    void retryOrRest(const QString& why);
    void noteProblem(const QString& why);
    void abandon();
    void closed();

    // link_reasons.cpp
    QString target() const;
    QString failureText(int rc, int systemError) const;
    QString lossText(int rc, int systemError) const;

    // link.cpp
    bool isUnderWay() const { return state > state_t::idle && state < state_t::connected; }
    void readable();
    void writable();
    bool readStep();
    void writeStep();
    bool handshakeStands();
    bool settle(int rc, int systemError);
    void pump();
    void watch();
    bool wantsWrite() const;
    void dropNotifiers();
    void acknowledgeNow();
    milliseconds_t housekeepingInterval() const;
    int request(int* mid, const QString& filter, int (*call)(::mosquitto*, int*, const char*, int), int qos);
    void noteDropped(int count);

    // handle_listener_t
    void brokerAnswered(int rc, int flags) override;
    void acknowledged(int wireMid) override;
    void messageArrived(const mosquitto_message& message) override;
    void subscribed(int wireMid, int count, const int* granted) override;
    void unsubscribed(int wireMid) override;
    void lineWritten(int level, const char* text) override;

    const bool cleanSession;
    const bool autoconnect;
    bool logging = false;
    bool synchronous = false;  // the caller waits: the event loop has no part in it
    bool reportFailure = true; // false while the caller receives the code as its result
    bool answerSeen = false;
    bool startAnew = false; // the broker has forgotten a session in which messages were sent
    bool resumable = false; // the handle holds a session that the broker may still know
    bool congested = false; // the host is slower than the broker: nothing more is read
    state_t state = state_t::idle;

    QString host;
    int port = 0;
    seconds_t keepalive{0};
    int lookup = -1;
    int outcome = 0;         // of the last attempt, as the caller receives it
    QStringList addresses;   // still to be tried in this attempt
    QString address;         // being tried
    QDeadlineTimer deadline; // of the attempt
    QDeadlineTimer addressDeadline;

    std::unique_ptr<handle_t> handle;
    int descriptor = -1;
    std::unique_ptr<QSocketNotifier> reader;
    std::unique_ptr<QSocketNotifier> writer;
    QBasicTimer timer;

    QString problem;        // why there is no connection, in words
    QByteArray libraryLine; // last complaint of libmosquitto during an attempt
    QElapsedTimer session;
    int shortSessions = 0;
    int droppedCount = 0;
    backoff_t backoff;
    delivery_t delivery;
};

/// Why a value is refused, in words. `what` names the value and `value` shows it; leave `value` empty for a secret.
QString refusalText(const verdict_t& verdict, const char* what, const QString& value);
/// Logs that and returns the code.
int refuse(const verdict_t& verdict, const char* what, const QString& value);

} // namespace mosquittopp
} // namespace comunication
