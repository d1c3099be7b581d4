// SPDX-License-Identifier: MIT
// What the doctor does at a broker: dials it, probes, listens for a while and leaves. What was seen is data here; what
// it means is in judgement.h.
#pragma once

#include "connection/connection.h"

#include <flotrofobul/define/topic_t.h>
#include <flotrofobul/house/house_model.h>
#include <flotrofobul/platform/mosquittopp/mosquittoqt.h>

#include <QtCore/QDateTime>
#include <QtCore/QMap>
#include <QtCore/QObject>
#include <QtCore/QSet>
#include <QtCore/QStringList>
#include <QtCore/QTimer>

#include <chrono>

namespace comunication {
namespace tools {

/// What became of something that was tried.
enum class trial_t {
    notTried, ///< or not even an ordinary packet came back, so that nothing follows from it
    passed,
    lost,  ///< it did not come back
    ended, ///< the broker ended the connection over it
};

/// What a server has answered to the doctor's presentation.
struct answer_of_server_t {
    QDateTime arrived;
    QDateTime published;       ///< by the server's own clock
    QMap<QString, int> copies; ///< by prefix
};

/// What one examination has seen.
struct observations_t {
    QString id;        ///< as which the doctor has joined
    bool ownId = true; ///< one that nobody else can have

    int lossCode = 0;  ///< of the attempt to connect, or of the link: libmosquitto's
    int answer = -1;   ///< of the broker: 0 accepted, 1 to 5 refused; -1: none
    QString problem;   ///< why there is no link, in words
    bool lost = false; ///< a link that was there has ended

    QStringList refusedSubscriptions;
    QSet<QString> echoes;        ///< kinds of packets that came back from the broker
    QSet<QString> returnedUnder; ///< other prefixes under which they came back
    trial_t retained = trial_t::notTried;
    trial_t large = trial_t::notTried;
    bool copyForEach = false;                  ///< a packet comes once for each subscription that fits
    house::house_model_t house;                ///< without the doctor
    QSet<QString> near;                        ///< who has spoken under forward-bridge/, so at this broker
    QMap<QString, answer_of_server_t> answers; ///< by server
    QMap<QString, QString> asked;              ///< whom a panel has asked, by panel
    QMap<QString, QStringList> kept;           ///< topics of retained status packets, by sender
};

/// The kinds of packets that are tried: all but "master", which no node could ignore.
[[nodiscard]] const QStringList& echoedKinds();
/// Size of the payload that every broker of a house should take, in bytes.
constexpr int largePayload = 64 * 1024;

/// Tries one thing that a broker may end the connection over, with a connection of its own and on a topic that no
/// bridge carries and no engine hears.
class trial_client_t : public QObject {
    Q_OBJECT
public:
    enum class what_t { retained, large };

    trial_client_t(const connection_t& connection, what_t what);
    void start();
    /// Leaves; what the broker may have kept is taken back.
    void stop();
    [[nodiscard]] trial_t outcome() const { return result; }
    /// Whether what was published once came twice to two subscriptions that both fit.
    [[nodiscard]] bool gotCopies() const { return firsts > 1; }

private:
    void hear(const QString& text, bool retain);
    void forget();

    const connection_t connection;
    const what_t what;
    const QString id;
    const QString topic;
    const QString payload;
    mosquittopp::mosquittoqt client;
    int probe = 0;
    int firsts = 0; ///< copies of the first packet
    trial_t result = trial_t::notTried;
};

/// Runs once and emits finished(). It presents itself as a client to the servers, which answer, and takes leave of
/// them; nobody else hears it, and it never presents itself as a server.
class examination_t : public QObject {
    Q_OBJECT
public:
    /// id: as which it joins; empty for one of its own.
    examination_t(const connection_t& connection, const QString& id, std::chrono::milliseconds time);

    void start();
    [[nodiscard]] const observations_t& result() const { return seen; }

Q_SIGNALS:
    void finished();

private:
    void join(int rc);
    void lose(int rc);
    void subscribe(const QString& topic);
    void granted(int mid, int code);
    void probe();
    void hear(const QString& topic, const QString& payload, int qos, bool retain);
    void note(const utility::topic_t& topic, const QByteArray& payload, bool retain);
    int present(bool here);
    [[nodiscard]] QString presentation(bool here) const;
    void takeLeave();

    const connection_t connection;
    const std::chrono::milliseconds time;
    mosquittopp::mosquittoqt client;
    trial_client_t retained;
    trial_client_t large;
    observations_t seen;
    QMap<int, QString> requests; ///< subscriptions that are not answered yet, by mid
    bool probed = false;
    bool done = false;
};

} // namespace tools
} // namespace comunication
