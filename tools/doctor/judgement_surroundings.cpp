// SPDX-License-Identifier: MIT
#include "doctor/house_view.h"

#include <QtCore/QSet>

namespace comunication {
namespace tools {

using house::house_bridge_t;
using house::house_node_t;
using house::presence_t;

namespace {

constexpr int mostSecondsApart = 30;

QString spanOf(qint64 seconds)
{
    const qint64 minutes = (seconds + 30) / 60;
    return minutes >= 60   ? QStringLiteral("%1 h %2 min").arg(minutes / 60).arg(minutes % 60)
           : seconds >= 60 ? QStringLiteral("%1 min").arg(minutes)
                           : QStringLiteral("%1 s").arg(seconds);
}

class bridge_judge_t : private house_view_t {
public:
    explicit bridge_judge_t(const house_view_t& view) : house_view_t(view) {}

    void run()
    {
        diagnosis.begin(QStringLiteral("bridges"));
        const int before = diagnosis.faults();
        QStringList up;
        QStringList down;
        for (const house_bridge_t& bridge : seen.house.bridges()) {
            (bridge.up ? up : down) << bridge.name;
        }
        if (!down.isEmpty()) {
            diagnosis.wrong(
                QStringLiteral("%1 %2 down").arg(listed(down), QLatin1String(down.size() == 1 ? "is" : "are")),
                QStringLiteral("the broker says so under $SYS/broker/connection"),
                QStringLiteral("can this broker reach the other one, and are the user name and the password "
                               "in its bridge lines right? A bridge that was taken away is forgotten when "
                               "mosquitto restarts"));
        }
        for (const QString& prefix : seen.returnedUnder) {
            diagnosis.wrong(
                QStringLiteral("what is said here comes back under %1/").arg(prefix),
                QStringLiteral("a bridge sends back what it has brought, so packets go round"),
                QStringLiteral("only the hub of a star passes on what it has heard; flotrofobul bridges writes "
                               "the lines, docs/bridges.md explains them"));
        }
        if (const house_bridge_t* const bare = joining(near)) {
            diagnosis.wrong(
                QStringLiteral("the bridge %1 leaves forward-bridge/ as it is").arg(bare->name),
                QStringLiteral("%1 speak under forward-bridge/ here, and only one of them can be at this "
                               "broker; servers refuse what comes so")
                    .arg(listed(near)),
                QStringLiteral("two topic lines instead of \"both\": out forward-bridge/ remote-bridge/, and in "
                               "remote-bridge/ forward-bridge/"));
        }
        judgeDirections();
        judgeCopies();
        if (diagnosis.faults() == before) {
            const bool isTold = !up.isEmpty() || !seen.house.brokerVersion().isEmpty();
            diagnosis.fine(!isTold        ? QStringLiteral("this broker does not tell of any")
                           : up.isEmpty() ? QStringLiteral("none")
                                          : QStringLiteral("up: ") + listed(up));
        }
    }

private:
    void judgeDirections()
    {
        QSet<QString> judged;
        for (const house_bridge_t& bridge : seen.house.bridges()) {
            for (const QString& far : bridge.servers) {
                const bool fromHere = bridge.servers.size() == 2 &&
                                      near.contains(far == bridge.servers[0] ? bridge.servers[1] : bridge.servers[0]);
                if (!bridge.up || !fromHere || near.contains(far) || answered(far) || judged.contains(far)) {
                    continue;
                }
                judged.insert(far);
                const house_node_t* const node = seen.house.node(far);
                if (node != nullptr && node->presence == presence_t::gone) {
                    diagnosis.remark(QStringLiteral("%1 is gone").arg(far),
                                     QStringLiteral("it has taken leave, or its last will came"), QString());
                } else if (node != nullptr && node->presence == presence_t::here) {
                    diagnosis.wrong(
                        QStringLiteral("the bridge %1 carries one way only: %2 is heard and does not hear us")
                            .arg(bridge.name, far),
                        QStringLiteral("its packets come, and it has not answered our presentation"),
                        QStringLiteral("the line \"topic ... out 2 forward-bridge/ remote-bridge/\" from here to "
                                       "there; flotrofobul bridges --check tries all"));
                } else {
                    diagnosis.wrong(
                        QStringLiteral("nothing comes from %1 over the bridge %2, which is up").arg(far, bridge.name),
                        QStringLiteral("it has not answered our presentation, and nothing else of it was heard"),
                        QStringLiteral("does that server run? If it does: the line \"topic ... in 2 remote-bridge/ "
                                       "forward-bridge/\", or the out line at the other end; flotrofobul bridges "
                                       "--check tries all"));
                }
            }
        }
    }

    void judgeCopies()
    {
        if (!seen.returnedUnder.isEmpty()) {
            return; // then everybody hears us more than once
        }
        // A master has two subscriptions for what it hears under forward-bridge/.
        const int usual = seen.copyForEach ? 2 : 1;
        for (auto it = seen.answers.begin(); it != seen.answers.end(); ++it) {
            for (const int copies : it->copies) {
                if (copies > usual && !restless.contains(it.key())) {
                    diagnosis.wrong(
                        QStringLiteral("the answer of %1 comes %2 times").arg(it.key()).arg(copies),
                        QStringLiteral("one came for each time that it heard us, or on several ways"),
                        QStringLiteral("is there a bridge at both ends of a pair, or an older one that stayed? "
                                       "flotrofobul bridges --check tries all"));
                }
            }
        }
    }
};

} // namespace

void judgeBridges(const house_view_t& view)
{
    bridge_judge_t(view).run();
}

void judgeClocks(const house_view_t& view)
{
    view.diagnosis.begin(QStringLiteral("clocks"));
    const int before = view.diagnosis.faults();
    for (auto it = view.seen.answers.begin(); it != view.seen.answers.end(); ++it) {
        const qint64 ahead = it->arrived.secsTo(it->published);
        if (it->published.isValid() && std::abs(ahead) > mostSecondsApart) {
            const bool zone = std::abs(ahead + 5) % 1800 <= 10;
            view.diagnosis.wrong(
                QStringLiteral("the clock of %1 is %2 %3 this machine's")
                    .arg(it.key(), spanOf(std::abs(ahead)), QLatin1String(ahead > 0 ? "ahead of" : "behind")),
                QStringLiteral("its answer says it was published at %1, and came at %2")
                    .arg(it->published.toString(Qt::ISODate), it->arrived.toString(Qt::ISODate)),
                zone ? QStringLiteral("set the same time zone at both (timedatectl)")
                     : QStringLiteral("set the clocks by the network at both (timedatectl set-ntp true)"));
        }
    }
    if (view.diagnosis.faults() == before) {
        view.diagnosis.fine(QStringLiteral("within %1 seconds").arg(mostSecondsApart));
    }
}

void judgeKeptStatus(const house_view_t& view)
{
    view.diagnosis.begin(QStringLiteral("retained status"));
    const int before = view.diagnosis.faults();
    for (auto it = view.seen.kept.begin(); it != view.seen.kept.end(); ++it) {
        if (view.masters.contains(it.key()) || view.restless.contains(it.key())) {
            continue;
        }
        // Where there is no master, or no answer over a bridge, that has been said.
        if (view.answered(it.key()) || view.masters.isEmpty() || view.joining(view.near + QStringList(it.key()))) {
            view.diagnosis.remark(QStringLiteral("the broker keeps status of %1, which is not master").arg(it.key()),
                                  QString(), QString());
            continue;
        }
        view.diagnosis.wrong(
            QStringLiteral("the broker keeps old status of %1, which does not answer").arg(it.key()),
            QStringLiteral("%1 is retained").arg(listed(it->mid(0, 3))),
            QStringLiteral("a panel that takes %1 for its master would show it. If that server is gone for "
                           "good: mosquitto_pub -r -n -t TOPIC, for each of %2 topic%3")
                .arg(it.key())
                .arg(it->size())
                .arg(QLatin1String(it->size() == 1 ? "" : "s")));
    }
    if (view.diagnosis.faults() == before) {
        view.diagnosis.fine(QStringLiteral("nothing of servers that are gone"));
    }
}

void judgeBroker(const house_view_t& view)
{
    view.diagnosis.begin(QStringLiteral("broker"));
    const int before = view.diagnosis.faults();
    if (view.seen.retained == trial_t::lost || view.seen.retained == trial_t::ended) {
        const bool ended = view.seen.retained == trial_t::ended;
        view.diagnosis.wrong(
            QStringLiteral("the broker keeps no retained packets"),
            ended ? QStringLiteral("it has ended a connection over one")
                  : QStringLiteral("one that was published did not come to a later subscription"),
            QStringLiteral("\"retain_available true\" in mosquitto.conf: status packets are retained, for "
                           "panels that come later"));
    }
    if (view.seen.large == trial_t::lost || view.seen.large == trial_t::ended) {
        const bool ended = view.seen.large == trial_t::ended;
        view.diagnosis.wrong(
            QStringLiteral("the broker does not pass on packets of %1 KiB").arg(largePayload / 1024),
            ended ? QStringLiteral("it has ended a connection over one")
                  : QStringLiteral("one that was published did not come back, a short one did"),
            QStringLiteral("raise %1 in mosquitto.conf, or take it out: the status of a house is longer "
                           "than one thinks")
                .arg(QLatin1String(ended ? "max_packet_size" : "message_size_limit")));
    }
    if (view.seen.copyForEach) {
        view.diagnosis.remark(QStringLiteral("the broker sends a packet once for each subscription that fits"),
                              QStringLiteral("one that was published once came twice to a client with two"),
                              QStringLiteral("nothing: a master hears presentations twice, and answers twice"));
    }
    if (view.diagnosis.faults() == before) {
        const bool tried = view.seen.retained == trial_t::passed && view.seen.large == trial_t::passed;
        const QString version = view.seen.house.brokerVersion();
        view.diagnosis.fine((version.isEmpty() ? QStringLiteral("its version is not told") : version) +
                            QLatin1String(tried ? "; it takes retained packets, and long ones"
                                                : "; retained and long packets were not tried"));
    }
}

} // namespace tools
} // namespace comunication
