// SPDX-License-Identifier: MIT
// Tries the bridges of a house: every broker says something, and every other has to hear it once. What was found is
// data here; its words are in bridge_report.h.
#pragma once

#include "house_plan/house_plan.h"

#include <flotrofobul/platform/mosquittopp/mosquittoqt.h>

#include <QtCore/QElapsedTimer>
#include <QtCore/QMap>
#include <QtCore/QObject>
#include <QtCore/QTimer>

#include <chrono>
#include <memory>
#include <vector>

namespace comunication {
namespace tools {

/// The kinds of packets that are tried: all that bridges carry but "master", which no server could ignore.
[[nodiscard]] const QStringList& probedKinds();

/// How often packets of each kind arrived, in the order of probedKinds().
using copies_t = QVector<int>;

/// A broker of the house, the cloud's included.
struct node_t {
    QString name; ///< server of the box; empty for the cloud
    access_t broker;
    bool ready = false; ///< connected, and listening
    QString problem;    ///< why not, in words
    /// What its broker says of bridges: their names, and whether they are up.
    QMap<QString, bool> bridges;
};

/// What went from one node to another (or came back to itself).
struct direction_t {
    int from = 0;
    int to = 0;
    QMap<QString, copies_t> arrived; ///< by prefix: "remote-bridge"
};

struct check_result_t {
    QVector<node_t> nodes; ///< boxes in the order of the plan, then the cloud
    QVector<direction_t> directions;
};

/// The prefix under which a packet has to arrive; empty where none may come.
[[nodiscard]] QString expectedPrefix(const check_result_t& result, const direction_t& direction);

/// Connects to all brokers of a plan without faults, tries the bridges in rounds until all is heard or time is up, and
/// emits finished() once. A round that lacks something is followed by another, so that bridges that are still on
/// their way up are not taken for broken; what counts is the last one.
///
/// Every probe has a sender of its own for each check, and a destination and a value that no engine handles: a master
/// notes an unknown message for it, panels do not hear it.
class bridge_check_t : public QObject {
    Q_OBJECT
public:
    struct times_t {
        std::chrono::milliseconds patience{10000}; ///< for connecting, and again for the probes
        std::chrono::milliseconds round{2000};     ///< until what is missing is tried again
        std::chrono::milliseconds settling{1000};  ///< after the last one, for second copies
    };

    /// caFile: the trusted certificates on this machine, instead of those of the plan; may be empty.
    bridge_check_t(const house_plan_t& plan, const QString& caFile, const times_t& times);
    ~bridge_check_t() override;

    void start();
    [[nodiscard]] const check_result_t& result() const { return found; }

Q_SIGNALS:
    void finished();

private:
    void dial(int index);
    void listen(int index);
    void fail(int index);
    void settle(int index, const QString& problem);
    void startRound();
    void hear(int index, const QString& topic, const QString& payload);
    void look();
    [[nodiscard]] bool complete() const;

    const times_t times;
    const QString installationId;
    const QString sender;
    const QString caFile;
    check_result_t found;
    std::vector<std::unique_ptr<mosquittopp::mosquittoqt>> clients;
    QVector<int> undecided; ///< nodes of which it is not known yet whether they are ready
    int round = 0;
    bool moved = false;          ///< a bridge has come up or gone down during the round
    bool endless = false;        ///< something goes round
    QElapsedTimer sinceFirst;    ///< since the first round began
    QElapsedTimer sinceRound;    ///< since the current one began
    QElapsedTimer sinceComplete; ///< since it was complete; not valid before
    QTimer watch;
};

} // namespace tools
} // namespace comunication
