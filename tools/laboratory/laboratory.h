// SPDX-License-Identifier: MIT
// A real house on one machine: brokers, bridges, servers and panels as processes, and everything that can happen to
// them. Knows what each node says of itself and what is published; judges nothing but whether the house agrees.
#pragma once

#include "laboratory/ear.h"
#include "laboratory/node.h"

#include <flotrofobul/testkit/broker.h>
#include <flotrofobul/testkit/proxy.h>

#include <QtCore/QElapsedTimer>
#include <QtCore/QHash>
#include <QtCore/QJsonObject>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <utility>
#include <vector>

using comunication::testkit::broker_t;
using comunication::testkit::cut_t;
using comunication::testkit::memory_file_t;
using comunication::testkit::proxy_t;
using comunication::testkit::way_t;

/// What house is built.
struct house_t {
    int boxes = 3;
    /// "mesh", "out-only" or "star", with one bridge for all that two boxes have to say to each other, or "two-lanes":
    /// a mesh that keeps what is said of presence and nothing else.
    QString shape = QStringLiteral("two-lanes");
    bool cloud = false; ///< a broker outside the house, dialled by the first box or the hub
    bool keeper = false;
    int defaultMaster = 1;   ///< its box; 0: nobody's
    QString serverProgram;   ///< empty: the laboratory's own
    QString panelProgram;    ///< the same
    QString nodeProgram;     ///< the laboratory's own; empty: beside this program
    QJsonObject keeperTimes; ///< further keys of section "house" of the servers' configuration
};

/// How a box loses its power, for the others: its connections end, or nothing comes from it any more.
enum class power_cut_t { noticed, silent };

/// Boxes are numbered from 1. Every process ends with the object, and with this process. Lives on the main thread, and
/// needs its event loop: until() runs it.
class laboratory_t : public QObject {
    Q_OBJECT

public:
    struct box_t {
        broker_t broker;
        QMap<QString, int> bridges; ///< that its broker dials, by name: to which box (0: the cloud)
        std::unique_ptr<memory_file_t> serverFile;
        std::unique_ptr<memory_file_t> panelFile;
        std::unique_ptr<node_t> server;
        std::unique_ptr<node_t> panel;
        std::unique_ptr<ear_t> ear;
        bool hasPower = true;
        bool brokerFrozen = false;
    };
    struct request_t {
        QString panel;
        int asked = 0;    ///< servers that took it for theirs
        int answered = 0; ///< answers that the panel got
        bool refused = false;
    };
    using milliseconds = std::chrono::milliseconds;

    explicit laboratory_t(const house_t& house);
    ~laboratory_t() override;

    static QStringList shapes();

    /// Starts all brokers, waits for the bridges, then starts all nodes. False if a broker or bridge does not come up.
    bool start();
    /// Everybody takes leave.
    bool leave();

    // What happens to the house; each writes a line of the time line, unless it cannot happen.
    void powerCut(int box, power_cut_t how);
    void powerOn(int box);
    void kill(node_t& node);
    void freeze(node_t& node);
    void proceed(node_t& node);
    void restart(node_t& node);
    void killBroker(int box);
    void freezeBroker(int box);
    void restartBroker(int box); ///< or lets it continue
    void claim(int box);
    void cut(int one, int other);     ///< connections are reset, new ones refused
    void silence(int one, int other); ///< nothing passes
    void heal(int one, int other);
    void delay(int ms); ///< of every link, each way
    /// Everything is mended: links heal, the frozen continue, the dead are started.
    void peace();

    // What is to be seen.
    int size() const { return static_cast<int>(boxes.size()); }
    box_t& box(int number) { return *boxes[static_cast<std::size_t>(number - 1)]; }
    const box_t& box(int number) const { return *boxes[static_cast<std::size_t>(number - 1)]; }
    std::vector<node_t*> nodes() const; ///< servers, then panels
    QStringList masters() const;        ///< running servers that take themselves for the master
    /// What keeps the running nodes from having one master that all follow, or bridges that join their brokers; empty
    /// if nothing.
    QString disagreement() const;
    /// How long they have agreed without a break; 0 if they do not.
    milliseconds agreedFor() const;
    /// What each node thinks, a line for each.
    QString thoughts() const;
    packets_t packets() const;
    milliseconds quietFor() const; ///< without any packet
    int roleChanges() const { return changes; }
    /// The longest time with more than one master.
    milliseconds mostMasters() const;
    /// Nodes that have ended without being told to.
    QStringList deserters() const { return deserted; }

    /// Lets every running panel ask its master; the numbers of the requests.
    QList<int> askAll();
    const request_t& request(int number) const { return *requests.find(number); }
    /// Requests that were taken or answered more than once; empty if there is none.
    QString doubled() const;

    /// Runs the event loop until the condition holds. False if it does not within the time.
    bool until(const std::function<bool()>& condition, milliseconds bound);
    bool untilAgreed(milliseconds bound);
    void wait(milliseconds time);

    int events = 0; ///< that have happened to the house
    QStringList timeline;
    std::function<void(const QString& line)> aloud; ///< also gets every line
    void note(const QString& who, const QString& text);

private:
    using pair_t = std::pair<int, int>;

    void wire();
    std::unique_ptr<node_t> makeNode(const QString& role, int number, memory_file_t& file, const QString& program);
    bool hasPower(const node_t& node) const;
    void happens(const QString& who, const QString& what);
    void hear(node_t& node, const QJsonObject& event);
    void look();
    QString missingBridge() const;
    void mend(int one, int other);
    void each(int one, int other, const std::function<void(proxy_t&)>& act);

    const house_t house;
    broker_t cloud;
    std::vector<std::unique_ptr<box_t>> boxes;
    std::map<pair_t, std::unique_ptr<proxy_t>> links; ///< who dials whom; 0: the cloud
    std::set<pair_t> broken;                          ///< links that are cut or silent
    QHash<int, request_t> requests;
    QHash<QString, QString> lastThoughts;
    QElapsedTimer clock;
    QElapsedTimer agreement;      ///< invalid without
    QElapsedTimer severalMasters; ///< invalid while there are not
    milliseconds longestSeveral{0};
    QStringList deserted;
    bool leaving = false;
    int delayMs = 0;
    int changes = 0;
};
