// SPDX-License-Identifier: MIT
// The link to the broker: what is published over it, what arrives, and how it comes back when it is lost. Internal. How
// a connection is made is the dialler's, what is left of a lost one the session's.
#pragma once

#include <flotrofobul/platform/mosquittopp/backoff.h>
#include <flotrofobul/platform/mosquittopp/delivery.h>
#include <flotrofobul/platform/mosquittopp/dialler.h>
#include <flotrofobul/platform/mosquittopp/outbox.h>
#include <flotrofobul/platform/mosquittopp/session.h>
#include <flotrofobul/platform/mosquittopp/tcp.h>
#include <flotrofobul/platform/mosquittopp/turn.h>
#include <flotrofobul/platform/mosquittopp/values.h>
#include <flotrofobul/platform/mosquittopp/watcher.h>

#include <QtCore/QBasicTimer>
#include <QtCore/QElapsedTimer>

namespace comunication {
namespace mosquittopp {

/// States and what changes them; "rest" is waiting with autoconnect, idle without.
///
///     state       connect                  disconnect   dialler              connection ended   timer
///     idle        dialling                 (code 4)
///     dialling    same target: goes on     idle         accepted: connected
///                 other: dialling anew                  refused, failed: rest
///     connected   (code 0)                 closing                           rest               housekeeping
///     closing     idle, then dialling      goes on                           idle               idle
///     waiting     dialling                 idle                                                 dialling
///
/// Every entry (an operation, an event) ends with finish() or flush() and deliver(), when the state is whole: a log
/// sink or a slot may then call any operation or delete the host of this object.
class link_t : public QObject, private handle_listener_t, private watcher_t::listener_t {
    Q_OBJECT
public:
    link_t(delivery_t::receiver_t receiver, const QString& clientId, bool cleanSession, bool autoconnect,
           QObject* parent);
    ~link_t() override;

    int connectAsync(const QString& host, int port, seconds_t keepalive);
    int connectSync(const QString& host, int port, seconds_t keepalive);
    int disconnect();
    bool isConnected() const { return state == state_t::connected; }
    QString linkProblem() const { return problem; }
    int pendingEnds() const { return delivery.pendingEnds() + (state == state_t::closing ? 1 : 0); }

    int subscribe(int* mid, const QString& filter, int qos);
    int unsubscribe(int* mid, const QString& filter);
    int publish(int* mid, const QString& topic, const QByteArray& payload, int qos, bool retain);
    void withdraw(int mid);
    void setLogging(bool on);

    identity_t identity;
    outbox_t outbox;
    milliseconds_t interval = limits::interval.initial;
    milliseconds_t connectTimeout = limits::connectTimeout.initial;
    int maxPacketBytes = limits::packetBytes.initial;
    bool rawPayloads = false; ///< they are passed on as bytes

private:
    enum class state_t { idle, dialling, connected, closing, waiting };
    enum class wait_t { no, yes };
    /// What the broker has made of a message of QoS 2 over this connection.
    enum class exactness_t { untried, tried, spoken, refused };

    /// Bytes that may wait for a host that is slower than the broker, but for the message that goes beyond.
    static constexpr qint64 mostPending = 1024 * 1024;

    /// A log line that waits until the state is whole.
    struct line_t {
        int level;
        QString text;
        const char* function;
        int number;
    };

    // link.cpp
    void readable(watcher_t& watcher) override;
    void writable(watcher_t& watcher) override;
    void timerEvent(QTimerEvent* event) override;
    verdict_t check(const letter_t& letter) const;
    int refused(const verdict_t& verdict, const char* what, const QString& value);
    void sayRefused(const verdict_t& verdict, const char* what, const QString& value);
    int request(int* mid, const QString& filter, const std::function<outcome_t(int*, const QByteArray&)>& call);
    void listenToLog();
    void pump();
    bool read();
    bool hasReadEnough() const { return readTurn.isOver() || delivery.pendingBytes() > mostPending; }
    void bin();
    bool settle(outcome_t outcome);
    void watch();
    void noteDropped(int count);
    void reportDropped();
    void say(int level, const QString& text, const char* function, int number);
    bool flush();
    int finish(int rc);

    // link_housekeeping.cpp
    milliseconds_t housekeepingInterval() const;
    void keepHouse();
    bool isSending(const tcp::traffic_t& traffic) const;
    bool isReceiving(const tcp::traffic_t& traffic);
    void giveSignOfLife();

    // link_connecting.cpp
    int checkTarget(const target_t& newTarget);
    int refuseTarget(const verdict_t& verdict, const char* what, const QString& value);
    int start(const target_t& newTarget, wait_t wait);
    bool isDialling(const target_t& newTarget) const;
    int dial(wait_t wait, bool callerIsTold);
    std::unique_ptr<handle_t> takeHandle();
    int conclude(bool callerIsTold);
    void established(dialler_t::result_t result);
    void failed(const dialler_t::result_t& result, bool callerIsTold);
    void lost(outcome_t outcome);
    void renew();
    void noteSessionLength();
    void rest(const QString& why);
    void noteProblem(const QString& why);
    void letGo();
    void closed();

    // link_arrivals.cpp
    void brokerAnswered(int rc, int flags) override;
    void acknowledged(int wireMid) override;
    void messageArrived(const mosquitto_message& message) override;
    void subscribed(int wireMid, int count, const int* granted) override;
    void unsubscribed(int wireMid) override;
    void lineWritten(handle_t& handle, int level, const char* text) override;
    bool isNew(const mosquitto_message& message);
    void noteAnswer(const handle_t& from, const char* text);
    void noteInbound(handle_t& from, inbound_t::finding_t finding);

    const bool autoconnect;
    bool logging = false;
    bool congested = false; // the host is slower than the broker: as a rule nothing more is read
    bool renews = false;    // the session goes on with another handle
    bool flushing = false;
    state_t state = state_t::idle;
    exactness_t exactness = exactness_t::untried;

    session_t session;
    dialler_t dialler;
    target_t target;
    std::unique_ptr<handle_t> handle; // while there is a connection, also a closing one
    std::unique_ptr<watcher_t> watcher;
    QBasicTimer timer;
    QBasicTimer nextTurn; // for letters and log lines that are left
    turn_t readTurn;

    tcp::traffic_t lastTraffic;
    std::uint64_t receivedAtPacket = 0; // bytes when the last whole packet was seen
    bool packetSeen = false;
    QElapsedTimer lastMove; // of a long packet
    QElapsedTimer signOfLife;

    QString problem; // why there is no connection, in words
    QElapsedTimer connectedFor;
    identity_t dialledAs;
    int shortSessions = 0;
    int droppedCount = 0;
    backoff_t backoff;
    std::vector<line_t> lines;
    delivery_t delivery;
};

/// Why a value is refused, in words. `what` names the value and `value` shows it; leave `value` empty for a secret.
QString refusalText(const verdict_t& verdict, const char* what, const QString& value);
/// Logs that and returns the code.
int refuse(const verdict_t& verdict, const char* what, const QString& value);

} // namespace mosquittopp
} // namespace comunication
