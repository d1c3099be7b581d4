// SPDX-License-Identifier: MIT
#include "doctor/house_view.h"

#include <flotrofobul/define/define.h>

namespace comunication {
namespace tools {

using house::house_bridge_t;
using house::house_event_t;
using house::house_node_t;
using house::presence_t;
using house::role_t;

namespace {

constexpr int ownClients = 3;         ///< that the doctor may have at the broker
constexpr int farewellsOfOneLife = 1; ///< more of them within one examination is no restart

class judge_t : private house_view_t {
public:
    using house_view_t::house_view_t;

    void run()
    {
        if (judgeEcho() && judgeInstallation()) {
            judgeIds();
            judgeMasters();
            judgeSharing();
            judgeFollowers();
            judgeEncoding();
            judgeBridges(*this);
            judgeClocks(*this);
            judgeKeptStatus(*this);
        }
        judgeBroker(*this);
    }

private:
    static QStringList idsOf(const QVector<house_node_t>& nodes)
    {
        QStringList ids;
        for (const house_node_t& node : nodes) {
            ids << node.id;
        }
        return ids;
    }

    bool judgeEcho()
    {
        diagnosis.begin(QStringLiteral("own echo"));
        bool hidden = false;
        for (const QString& topic : seen.refusedSubscriptions) {
            if (topic.startsWith(PREFIX_PERFORMANCE)) {
                hidden = true;
            } else {
                diagnosis.wrong(QStringLiteral("the broker refuses the subscription of ") + topic,
                                QStringLiteral("its access lists forbid this user to listen"),
                                QStringLiteral("allow reading +/local/%1/#").arg(connection.installationId));
                return false;
            }
        }
        if (hidden) {
            diagnosis.remark(QStringLiteral("the broker does not tell this user of its bridges"),
                             QStringLiteral("it refuses the subscription of $SYS/broker"),
                             QStringLiteral("allow reading $SYS/#: nodes follow bridges there"));
        }
        QStringList missing;
        for (const QString& kind : echoedKinds()) {
            if (!seen.echoes.contains(kind)) {
                missing << kind;
            }
        }
        if (missing.isEmpty()) {
            diagnosis.fine(QStringLiteral("what is published on forward-bridge/ comes back"));
            return true;
        }
        const bool all = missing.size() == echoedKinds().size();
        const QString what = QStringLiteral("%1 %2 not come back: the access lists of the broker forbid it")
                                 .arg(all ? QStringLiteral("what is published on forward-bridge/") : listed(missing),
                                      QLatin1String(all || missing.size() == 1 ? "does" : "do"));
        if (mayBe({"connection", "request", "command"}) || mayBe({"connection", "status", "notification"})) {
            diagnosis.remark(
                what, QStringLiteral("the broker takes such packets and passes on none"),
                QStringLiteral("it is right for this user if it is that of a %1 only")
                    .arg(QLatin1String(seen.echoes.contains(QStringLiteral("status")) ? "server" : "panel")));
            return true;
        }
        diagnosis.wrong(
            what,
            QStringLiteral("the broker takes such packets and passes on none; ") +
                QLatin1String(!seen.near.isEmpty() ? "others are heard there, so it is publishing that is forbidden"
                                                   : "publishing or reading is forbidden"),
            QStringLiteral(
                "in the acl_file: this user (%1) needs \"topic readwrite +/local/%2/#\"; then reload mosquitto")
                .arg(connection.username.isEmpty() ? QStringLiteral("anonymous") : connection.username,
                     connection.installationId));
        return false;
    }

    // Whether the kinds of packets that a role needs came back.
    bool mayBe(std::initializer_list<const char*> kinds) const
    {
        return std::all_of(kinds.begin(), kinds.end(),
                           [&](const char* kind) { return seen.echoes.contains(QLatin1String(kind)); });
    }

    bool judgeInstallation()
    {
        diagnosis.begin(QStringLiteral("installation"));
        const QString id = connection.installationId;
        const bool inhabited = std::any_of(seen.house.nodes().begin(), seen.house.nodes().end(),
                                           [](const auto& node) { return node.presence != presence_t::unknown; });
        if (inhabited) {
            diagnosis.fine(QStringLiteral("%1: %2 server%3, and %4 panel%5 that said something")
                               .arg(id)
                               .arg(servers.size())
                               .arg(QLatin1String(servers.size() == 1 ? "" : "s"))
                               .arg(panels.size())
                               .arg(QLatin1String(panels.size() == 1 ? "" : "s")));
            return true;
        }
        const QStringList others = seen.house.otherInstallations();
        if (!others.isEmpty()) {
            diagnosis.wrong(QStringLiteral("nobody speaks in installation %1, but in %2").arg(id, listed(others)),
                            QStringLiteral("no server has answered, and packets of the other installation came by"),
                            QStringLiteral("is one of these meant? All nodes of a house need the same "
                                           "mqtt.global.installation_id"));
        } else {
            const int clients = seen.house.brokerClients();
            diagnosis.wrong(
                QStringLiteral("nobody is in installation %1").arg(id),
                clients <= ownClients
                    ? QStringLiteral("no server has answered")
                    : QStringLiteral("no server has answered, though the broker counts %1 clients").arg(clients),
                QStringLiteral("does the server run, at this broker, and with this installation id?"));
        }
        return false;
    }

    // Two nodes with one id keep throwing each other out.
    void judgeIds()
    {
        diagnosis.begin(QStringLiteral("client ids"));
        QMap<QString, int> farewells;
        for (const house_event_t& event : seen.house.events()) {
            farewells[event.subject] += event.kind == house_event_t::gone ? 1 : 0;
        }
        for (auto it = farewells.begin(); it != farewells.end(); ++it) {
            if (*it > farewellsOfOneLife) {
                restless << it.key();
                diagnosis.wrong(QStringLiteral("%1 comes and goes: two nodes have this client id").arg(it.key()),
                                QStringLiteral("its last will came %1 times while we listened, as the broker says it "
                                               "when a second client throws out the first")
                                    .arg(*it),
                                QStringLiteral("give every node an id of its own; the broker's log names the addresses "
                                               "of both. If there is only one, its link is bad"));
            }
        }
        if (restless.isEmpty()) {
            diagnosis.fine(QStringLiteral("nobody is thrown out by another"));
        }
    }

    // Whom somebody takes for a master, and who.
    QMap<QString, QStringList> named() const
    {
        QMap<QString, QStringList> result;
        for (const house_node_t& node : servers + panels) {
            const QString master = seen.asked.value(node.id, node.master);
            if (!master.isEmpty() && master != node.id && !restless.contains(node.id)) {
                result[master] << node.id;
            }
        }
        return result;
    }

    void judgeMasters()
    {
        diagnosis.begin(QStringLiteral("master"));
        const QMap<QString, QStringList> all = named();
        if (masters.size() > 1) {
            const bool sharing = std::all_of(masters.begin(), masters.end(),
                                             [&](const QString& master) { return near.contains(master); });
            diagnosis.wrong(
                QStringLiteral("%1 masters: %2").arg(masters.size()).arg(listed(masters)),
                sharing ? QStringLiteral("each calls itself master; they share this broker, where servers do "
                                         "not hear each other")
                        : QStringLiteral("each calls itself master; their bridges may be down, or both have "
                                         "claimed the role"),
                sharing ? QStringLiteral("one server for each broker: stop one, or give it a broker of its "
                                         "own and a bridge")
                        : QStringLiteral("make one of them a default master only; a companion (keeper_t) at "
                                         "every server keeps one master"));
            return;
        }
        for (auto it = all.begin(); masters.isEmpty() && it != all.end(); ++it) {
            if (!answered(it.key())) {
                diagnosis.wrong(
                    QStringLiteral("the master %1 does not answer").arg(it.key()),
                    QStringLiteral("%1 takes it for the master, and it has not answered our presentation")
                        .arg(listed(*it)),
                    QStringLiteral("does its process run, or does it hang? Else make another server master: "
                                   "setMaster(), or a companion (keeper_t) at every server"));
                return;
            }
        }
        if (masters.isEmpty()) {
            diagnosis.wrong(
                QStringLiteral("there is no master"),
                servers.isEmpty()
                    ? QStringLiteral("no server is there")
                    : QStringLiteral("%1 answered, and does not call itself master").arg(listed(idsOf(servers))),
                QStringLiteral("start one server as the default master, or let its host call setMaster()"));
            return;
        }
        const QString master = masters[0];
        if (answered(master)) {
            diagnosis.fine(master + QStringLiteral(" is master, and answers"));
        } else if (isBridged(master)) {
            diagnosis.fine(master + QStringLiteral(" is master")); // the bridge is the one to be blamed
        } else {
            diagnosis.wrong(
                QStringLiteral("the master %1 does not answer").arg(master),
                QStringLiteral("it is heard, but has not answered our presentation"),
                near.contains(master)
                    ? QStringLiteral("may its user read +/local/%1/+/own_server/#? Else look into its log")
                          .arg(connection.installationId)
                    : QStringLiteral("a bridge may carry one way only: flotrofobul bridges --check tries all"));
        }
    }

    // Whether a bridge that is up joins it with a server at this broker.
    bool isBridged(const QString& server) const
    {
        return !near.contains(server) && joining(near + QStringList(server)) != nullptr;
    }

    void judgeSharing()
    {
        const bool told = masters.size() > 1 && std::all_of(masters.begin(), masters.end(), [&](const QString& master) {
                              return near.contains(master);
                          });
        if (near.size() > 1 && !told && joining(near) == nullptr) {
            diagnosis.begin(QStringLiteral("servers"));
            diagnosis.wrong(QStringLiteral("%1 share this broker").arg(listed(near)),
                            QStringLiteral("all of them speak under forward-bridge/, and servers hear each other only "
                                           "over bridges"),
                            QStringLiteral("one server for each broker: stop one, or give it a broker of its own and a "
                                           "bridge"));
        }
    }

    void judgeFollowers()
    {
        diagnosis.begin(QStringLiteral("followers"));
        if (masters.size() != 1) {
            return;
        }
        const QMap<QString, QStringList> all = named();
        QStringList fine;
        for (auto it = all.begin(); it != all.end(); ++it) {
            if (it.key() == masters[0]) {
                fine << *it;
                continue;
            }
            diagnosis.wrong(
                QStringLiteral("%1 follow%2 %3, which is not master")
                    .arg(listed(*it), QLatin1String(it->size() == 1 ? "s" : ""), it.key()),
                QStringLiteral("%1 is master; %2")
                    .arg(masters[0], answered(it.key())
                                         ? it.key() + QStringLiteral(" is there and does not call itself master")
                                         : it.key() + QStringLiteral(" does not answer")),
                QStringLiteral("the master has to present itself again, publish_presentation(\"all\"): a "
                               "companion (keeper_t) does it every minute"));
        }
        if (!fine.isEmpty()) {
            diagnosis.fine(QStringLiteral("%1: %2").arg(masters[0], listed(fine)));
        }
    }

    void judgeEncoding()
    {
        diagnosis.begin(QStringLiteral("encoding"));
        QStringList encoded;
        for (const house_node_t& node : seen.house.nodes()) {
            if (node.encoded) {
                encoded << node.id;
            }
        }
        if (encoded.isEmpty()) {
            diagnosis.fine(QStringLiteral("off at all nodes that were heard"));
        } else {
            diagnosis.wrong(QStringLiteral("encoding is on at %1").arg(listed(encoded)),
                            QStringLiteral("payloads from there are Base64, which no engine decodes"),
                            QStringLiteral("build these engines with encoding off, or call setEncoding(false)"));
        }
    }
};

} // namespace

house_view_t::house_view_t(const observations_t& givenSeen, const connection_t& givenConnection,
                           diagnosis_t& givenDiagnosis)
    : seen(givenSeen), connection(givenConnection), diagnosis(givenDiagnosis), masters(givenSeen.house.masters())
{
    for (const house_node_t& node : seen.house.nodes()) {
        if (node.presence != presence_t::here) {
            continue;
        }
        if (node.role == role_t::server) {
            servers << node;
        } else if (node.role == role_t::client || seen.asked.contains(node.id)) {
            panels << node;
        }
    }
    std::sort(servers.begin(), servers.end(),
              [](const house_node_t& one, const house_node_t& other) { return one.id < other.id; });
    for (const house_node_t& node : servers) {
        if (seen.near.contains(node.id)) {
            near << node.id;
        }
    }
    masters.sort();
}

const house_bridge_t* house_view_t::joining(const QStringList& ids) const
{
    for (const house_bridge_t& bridge : seen.house.bridges()) {
        if (bridge.up && bridge.servers.size() == 2 && ids.contains(bridge.servers[0]) &&
            ids.contains(bridge.servers[1])) {
            return &bridge;
        }
    }
    return nullptr;
}

void judgeHouse(const observations_t& seen, const connection_t& connection, diagnosis_t& diagnosis)
{
    judge_t(seen, connection, diagnosis).run();
}

} // namespace tools
} // namespace comunication
