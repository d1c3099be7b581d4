// SPDX-License-Identifier: MIT
// Makes a connection: from a name or an address to the broker's answer. Internal.
#pragma once

#include <flotrofobul/platform/mosquittopp/reasons.h>
#include <flotrofobul/platform/mosquittopp/resolver.h>
#include <flotrofobul/platform/mosquittopp/watcher.h>

#include <QtCore/QDeadlineTimer>
#include <QtCore/QStringList>

#include <functional>
#include <optional>
#include <vector>

namespace comunication {
namespace mosquittopp {

/// Where a connection goes, and how long making it may take.
struct target_t {
    QString host;
    int port = 0;
    seconds_t keepalive{0};
    milliseconds_t timeout{0};

    QString name() const;
};

/// Dials the addresses of a target until a broker answers. An address that stays silent for a moment is joined by the
/// next one (RFC 8305); the first that accepts TCP is chosen and has what is left of the time for TLS and the answer.
/// The others come into play again when it fails.
///
///     looking up --> dialling, one or several --> one chosen: securing (TLS), greeting --> accepted or refused
///         |                    |   ^                                |
///         v                    v   +--- next address ---------------+---> a new session: the same address once more
///       failed          failed: no address is left, or no time
///
/// Every attempt yields one result. Nothing is logged and no signal is emitted here.
class dialler_t : public QObject, private watcher_t::listener_t {
public:
    struct result_t {
        int code = 0;                     ///< 0 accepted; 1 to 255 refused by the broker, or a code of libmosquitto
        bool refused = false;             ///< the broker has answered, and the answer is no
        QString why;                      ///< in words, if it failed
        std::unique_ptr<handle_t> handle; ///< of the connection, if there is one
        outcome_t outcome;                ///< of the call that read the answer; it may have read the end as well
    };

    /// Where the dialler takes its handles from.
    struct handles_t {
        std::function<std::unique_ptr<handle_t>()> take; ///< for the next address; null if there can be none
        std::function<bool()> hasSeveral;                ///< whether another one can be had at the same time
        std::function<void(std::unique_ptr<handle_t>)> giveBack;
    };

    dialler_t(handles_t givenHandles, QObject* parent) : QObject(parent), handles(std::move(givenHandles)) {}

    /// Starts an attempt. The result may be there at once; else finished() tells.
    void start(const target_t& target, const identity_t& identity);
    /// The same without the event loop: returns with a result.
    void startAndWait(const target_t& target, const identity_t& identity);
    /// Ends the attempt without a result.
    void stop();
    std::optional<result_t> takeResult();

    /// Called from the event loop when there is a result.
    std::function<void()> finished;

    /// What the handle's listener hears while an attempt is under way. anew: the connection cannot be
    /// used, and another one is to be made. mayAnswer() is false for an answer that nobody asked for.
    bool mayAnswer() const;
    void noteAnswer(int rc, bool anew);
    /// Whether the connection that the broker has just accepted is being ended again.
    bool startsAnew() const { return startAnew; }
    void noteLine(const handle_t& handle, const char* text);

private:
    /// One address that is being dialled.
    struct dial_t {
        QString address;
        std::unique_ptr<handle_t> handle;
        std::unique_ptr<watcher_t> watcher;
        stage_t stage = stage_t::connecting;
        QByteArray libraryLine;
    };
    using dials_t = std::vector<std::unique_ptr<dial_t>>;

    void readable(watcher_t& watcher) override;
    void writable(watcher_t& watcher) override;
    void timerEvent(QTimerEvent* event) override;

    void begin(const target_t& newTarget, const identity_t& newIdentity);
    void lookedUp();
    void dialNext();
    bool dial(const QString& address);
    void proceed(dial_t& dial, bool readable);
    bool connected(dial_t& dial);
    void choose(dial_t& dial);
    void settle(dial_t& dial, outcome_t outcome);
    void outOfTime();
    void noteFailure(const dial_t& dial, outcome_t outcome);
    void drop(dial_t& dial);
    void accept(dial_t& dial, outcome_t outcome);
    void finish(result_t newResult);
    void fail();
    void release();
    template <typename condition_t>
    dial_t* find(condition_t&& condition) const;
    bool wantsRead(const dial_t& dial) const { return dial.stage != stage_t::connecting; }
    bool wantsWrite(const dial_t& dial) const;
    void watch(dial_t& dial);
    void armTimer();
    void tell();
    int patienceLeft() const;
    void pollOnce();

    const handles_t handles;
    target_t target;
    identity_t identity;
    bool waits = false;

    std::unique_ptr<lookup_t> lookup;
    std::unique_ptr<QSocketNotifier> lookupNotifier;
    QStringList addresses; // still to be tried
    QString lastStalled;   // accepted TCP the last time, and nothing came of it
    dials_t dials;
    dial_t* chosen = nullptr;
    QDeadlineTimer deadline; // of the attempt
    QDeadlineTimer patience; // with the address dialled last
    QBasicTimer timer;

    int answer = -1; // of the broker
    bool startAnew = false;
    std::optional<failure_t> furthest; // failure of the address that came furthest
    std::optional<result_t> result;
};

} // namespace mosquittopp
} // namespace comunication
