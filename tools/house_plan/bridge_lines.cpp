// SPDX-License-Identifier: MIT
#include "house_plan/bridge_lines.h"

namespace comunication {
namespace tools {

namespace {

// What a lane carries, behind a topic's installation, which stands at its place.
QStringList filtersOf(lane_t lane, const QString& installation)
{
    const QString start = QStringLiteral("local/") + installation + QLatin1Char('/');
    const auto values = [&](const QStringList& kinds) {
        QStringList filters;
        for (const QString& kind : kinds) {
            filters << start + QStringLiteral("+/+/") + kind;
        }
        return filters;
    };
    switch (lane) {
    case lane_t::presence:
        return values({QStringLiteral("connection/#"), QStringLiteral("master"), QStringLiteral("status/#")});
    case lane_t::data:
        return values({QStringLiteral("request/#"), QStringLiteral("command/#"), QStringLiteral("notification/#")});
    case lane_t::everything: break;
    }
    return {start + QLatin1Char('#')};
}

QVector<lane_t> lanesOf(int lanes)
{
    return lanes == 1 ? QVector<lane_t>{lane_t::everything} : QVector<lane_t>{lane_t::presence, lane_t::data};
}

const joint_t* jointOf(const house_plan_t& plan, int from, int to)
{
    for (const joint_t& joint : plan.joints) {
        if (joint.from == plan.boxes[from].server && joint.to == plan.boxes[to].server) {
            return &joint;
        }
    }
    return nullptr;
}

// Whether the first box dials the second.
bool dials(const house_plan_t& plan, int from, int to)
{
    if (from == to) {
        return false;
    }
    switch (plan.shape) {
    case shape_t::outOnly: return true;
    case shape_t::star: return plan.boxes[from].server == plan.hub;
    case shape_t::mesh: break;
    }
    return jointOf(plan, from, to) != nullptr || (from < to && jointOf(plan, to, from) == nullptr);
}

// The broker reports a bridge by its name, and engines take the third and fourth piece of four for the servers at its
// ends. The lane of data has three, so that the end of a bridge is reported once.
void name(const house_plan_t& plan, bridge_t& bridge)
{
    const QString ends =
        QLatin1Char('-') + plan.boxes[bridge.from].server + QLatin1Char('-') + plan.boxes[bridge.to].server;
    const joint_t* const joint = jointOf(plan, bridge.from, bridge.to);
    bridge.remoteClientId = QStringLiteral("house-bridge") + ends;
    bridge.localClientId = QStringLiteral("local_") + bridge.remoteClientId;
    if (joint != nullptr && !joint->remoteClientId.isEmpty()) {
        bridge.remoteClientId = joint->remoteClientId;
        bridge.localClientId = joint->localClientId;
    }
    if (bridge.lane == lane_t::data) {
        bridge.remoteClientId = bridge.remoteClientId.section(QLatin1Char('-'), 0, 0) + QStringLiteral("data") + ends;
        bridge.localClientId = QStringLiteral("local_") + bridge.remoteClientId;
    }
}

void addTopics(bridge_t& bridge, const QStringList& filters, const char* way)
{
    for (const QString& filter : filters) {
        bridge.topics << filter + QLatin1Char(' ') + QLatin1String(way);
    }
}

bridge_t between(const house_plan_t& plan, int from, int to, lane_t lane)
{
    bridge_t bridge{from, to, lane, QString(), QString(), QStringList()};
    name(plan, bridge);
    const QStringList filters =
        lane == lane_t::everything ? QStringList(QStringLiteral("#")) : filtersOf(lane, QStringLiteral("+"));
    const auto add = [&](const char* way) { addTopics(bridge, filters, way); };
    add("out 2 forward-bridge/ remote-bridge/");
    if (plan.shape != shape_t::outOnly) {
        add("in 2 remote-bridge/ forward-bridge/");
    }
    if (plan.shape == shape_t::star) {
        add("out 2 remote-bridge/ remote-bridge/");
    }
    const int dialsCloud = plan.cloudIndex();
    if (dialsCloud == to && plan.shape != shape_t::outOnly) {
        add("in 2 cloud-bridge/ cloud-bridge/");
    } else if (dialsCloud == from || (dialsCloud >= 0 && plan.shape == shape_t::star)) {
        add("out 2 cloud-bridge/ cloud-bridge/");
    }
    return bridge;
}

// Only this installation leaves the house. Phones know the first lane by its name.
bridge_t towardsCloud(const house_plan_t& plan, int from, lane_t lane)
{
    const QString name = lane == lane_t::data ? plan.cloud->bridgeKey + QStringLiteral("_data") : plan.cloud->bridgeKey;
    bridge_t bridge{from, bridge_t::cloud, lane, name, QStringLiteral("local_") + name, QStringList()};
    const QStringList filters = filtersOf(lane, plan.installationId);
    for (const char* way : {"out 2 forward-bridge/ cloud-bridge/", "in 2 cloud-bridge/ forward-bridge/",
                            "out 2 remote-bridge/ cloud-bridge/"}) {
        addTopics(bridge, filters, way);
    }
    return bridge;
}

const access_t& brokerOf(const house_plan_t& plan, const bridge_t& bridge)
{
    return bridge.to == bridge_t::cloud ? plan.cloud->broker : plan.boxes[bridge.to].broker;
}

// What a line is for.
QString commentOn(const QString& topic)
{
    if (topic.contains(QLatin1String(" out 2 forward-bridge/ remote-bridge/"))) {
        return QStringLiteral("# What the nodes of this box say, for that box. One prefix becomes the other: \"both\"\n"
                              "# could not do that, and nobody would be heard.");
    }
    if (topic.contains(QLatin1String(" in 2 remote-bridge/ forward-bridge/"))) {
        return QStringLiteral(
            "# What the nodes of that box say, for this one. That box must not have a bridge to here,\n"
            "# or everything arrives twice.");
    }
    if (topic.contains(QLatin1String(" out 2 remote-bridge/ remote-bridge/"))) {
        return QStringLiteral(
            "# What this box, the hub, has heard from the others. It does not go back where it came from.");
    }
    if (topic.contains(QLatin1String(" 2 cloud-bridge/ cloud-bridge/"))) {
        return QStringLiteral("# What phones say on the cloud broker, from the box that dials it.");
    }
    if (topic.contains(QLatin1String(" out 2 forward-bridge/ cloud-bridge/"))) {
        return QStringLiteral("# What the nodes of this box say, for phones. Only this installation leaves the house.");
    }
    if (topic.contains(QLatin1String(" in 2 cloud-bridge/ forward-bridge/"))) {
        return QStringLiteral("# What phones say.");
    }
    return QStringLiteral("# What the other boxes say, for phones.");
}

// said: the comments that stand in the file already, which are not repeated.
QString block(const house_plan_t& plan, const bridge_t& bridge, const endpoint_t& endpoint, QStringList& said)
{
    QStringList lines;
    const auto add = [&](const QString& line) {
        const bool comment = line.startsWith(QLatin1Char('#'));
        if (!comment || !said.contains(line)) {
            lines << line;
        }
        if (comment) {
            said << line;
        }
    };
    const access_t& broker = brokerOf(plan, bridge);
    const bool cloud = bridge.to == bridge_t::cloud;
    const QString there =
        cloud ? QStringLiteral("the cloud broker") : QStringLiteral("box ") + plan.boxes[bridge.to].server;
    const QString what = bridge.lane == lane_t::presence ? QStringLiteral("who is there, who is master, status")
                         : bridge.lane == lane_t::data   ? QStringLiteral("requests, commands and notifications")
                                                         : QStringLiteral("everything");
    add(QStringLiteral("# To %1: %2.").arg(there, what));
    add(QStringLiteral("connection ") + bridge.remoteClientId);
    add(QStringLiteral("address %1:%2").arg(endpoint.host).arg(endpoint.port));
    if (cloud && bridge.lane == lane_t::data) {
        add(QStringLiteral("# Not the key itself: two clients with one name would throw each other out."));
    } else if (cloud) {
        add(QStringLiteral("# The bridge key, by which phones know whether the house is there."));
    } else if (bridge.lane == lane_t::data) {
        add(QStringLiteral(
            "# Three pieces only, so that the end of a link is reported once, by the other lane. Always set:\n"
            "# the default holds the name of the host, whose hyphens would shift the pieces."));
    } else {
        add(QStringLiteral(
            "# Panels and servers read the two servers at the ends of the bridge from pieces three and four.\n"
            "# Always set: the default holds the name of the host, whose hyphens would shift the pieces."));
    }
    add(QStringLiteral("remote_clientid ") + bridge.remoteClientId);
    add(QStringLiteral("local_clientid ") + bridge.localClientId);
    if (!broker.username.isEmpty()) {
        add(QStringLiteral("remote_username ") + broker.username);
        if (!broker.password.isEmpty()) {
            add(QStringLiteral("remote_password ") + broker.password);
        }
    }
    if (broker.tlsEnable) {
        add(QStringLiteral("bridge_cafile ") + broker.caFile);
        if (broker.tlsInsecure) {
            add(QStringLiteral("# A certificate for another host is accepted."));
            add(QStringLiteral("bridge_insecure true"));
        }
    }
    for (const QString& topic : bridge.topics) {
        add(commentOn(topic));
        add(QStringLiteral("topic ") + topic);
    }
    if (bridge.lane == lane_t::data) {
        add(QStringLiteral(
            "# Nothing is kept while the link is down: a command that arrives late would act on its own."));
        add(QStringLiteral("cleansession true"));
    } else {
        add(QStringLiteral(
            "# What is said while the link is down is kept: without it a box that comes back may find no\n"
            "# master, and two masters stay after a split."));
        add(QStringLiteral("cleansession false"));
    }
    const bool toldThere = !cloud || plan.cloud->notifications;
    add(toldThere ? QStringLiteral("# Nodes at both ends hear when the link ends and when it is back.")
                  : QStringLiteral("# Only nodes at this end hear when the link ends and when it is back."));
    add(QStringLiteral("notifications true"));
    if (!toldThere) {
        add(QStringLiteral("notifications_local_only true"));
    }
    add(QStringLiteral("# A dead link is noticed after about ten seconds and dialled again after 1 to 3."));
    add(QStringLiteral("keepalive_interval 5"));
    add(QStringLiteral("restart_timeout 1 3"));
    return lines.join(QLatin1Char('\n')) + QLatin1Char('\n');
}

} // namespace

QVector<bridge_t> bridgesOf(const house_plan_t& plan)
{
    QVector<bridge_t> bridges;
    for (int from = 0; from < plan.boxes.size(); ++from) {
        for (int to = 0; to < plan.boxes.size(); ++to) {
            if (dials(plan, from, to)) {
                for (const lane_t lane : lanesOf(plan.lanes)) {
                    bridges << between(plan, from, to, lane);
                }
            }
        }
        if (from == plan.cloudIndex()) {
            for (const lane_t lane : lanesOf(plan.cloud->lanes == 0 ? plan.lanes : plan.cloud->lanes)) {
                bridges << towardsCloud(plan, from, lane);
            }
        }
    }
    return bridges;
}

endpoint_t plannedEndpoint(const house_plan_t& plan, const bridge_t& bridge)
{
    const access_t& broker = brokerOf(plan, bridge);
    endpoint_t endpoint{broker.host, broker.port};
    const joint_t* const joint = bridge.to == bridge_t::cloud ? nullptr : jointOf(plan, bridge.from, bridge.to);
    if (joint != nullptr && !joint->host.isEmpty()) {
        endpoint.host = joint->host;
    }
    if (joint != nullptr && joint->port != 0) {
        endpoint.port = joint->port;
    }
    return endpoint;
}

QString bridgeLinesMark()
{
    return QStringLiteral("# Written by \"flotrofobul bridges\": change the description of the house, not this file.");
}

QString bridgeLines(const house_plan_t& plan, int box, const endpoint_of_t& endpointOf)
{
    QString text =
        bridgeLinesMark() +
        QStringLiteral("\n# Bridges of box %1, installation %2.\n").arg(plan.boxes[box].server, plan.installationId);
    bool any = false;
    QStringList said;
    for (const bridge_t& bridge : bridgesOf(plan)) {
        if (bridge.from == box) {
            any = true;
            text += QLatin1Char('\n') +
                    block(plan, bridge, endpointOf ? endpointOf(bridge) : plannedEndpoint(plan, bridge), said);
        }
    }
    if (!any) {
        text += QStringLiteral("\n# Nothing to dial from here: other boxes dial this one.\n");
    }
    return text;
}

} // namespace tools
} // namespace comunication
