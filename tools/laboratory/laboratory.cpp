// SPDX-License-Identifier: MIT
// How the house is built, begun, left and run.
#include "laboratory/laboratory.h"

#include "house_plan/bridge_lines.h"

#include <flotrofobul/testkit/waiting.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QJsonDocument>

#include <algorithm>

using namespace std::chrono_literals;

namespace {

const QString installation = QStringLiteral("1234");

} // namespace

laboratory_t::laboratory_t(const house_t& givenHouse) : house(givenHouse)
{
    clock.start();
    for (int number = 1; number <= house.boxes; ++number) {
        boxes.push_back(std::make_unique<box_t>());
    }
    wire();
    for (int number = 1; number <= house.boxes; ++number) {
        box_t& one = box(number);
        QJsonObject keeper = house.keeperTimes;
        keeper.insert(QStringLiteral("rank"), number);
        const QJsonObject link{{QStringLiteral("installation_id"), installation},
                               {QStringLiteral("host"), one.broker.host()},
                               {QStringLiteral("port"), one.broker.port()}};
        QJsonObject file{{QStringLiteral("mqtt"), QJsonObject{{QStringLiteral("global"), link}}}};
        one.panelFile = std::make_unique<memory_file_t>(QJsonDocument(file).toJson());
        file.insert(QStringLiteral("house"), keeper);
        one.serverFile = std::make_unique<memory_file_t>(QJsonDocument(file).toJson());
        one.server = makeNode(QStringLiteral("server"), number, *one.serverFile, house.serverProgram);
        one.panel = makeNode(QStringLiteral("panel"), number, *one.panelFile, house.panelProgram);
        one.ear = std::make_unique<ear_t>(one.broker.port());
        connect(one.ear.get(), &ear_t::changed, this, &laboratory_t::look);
    }
}

laboratory_t::~laboratory_t() = default;

QStringList laboratory_t::shapes()
{
    return {QStringLiteral("two-lanes"), QStringLiteral("mesh"), QStringLiteral("out-only"), QStringLiteral("star")};
}

// Every bridge goes through a link of its own.
void laboratory_t::wire()
{
    namespace tools = comunication::tools;
    tools::house_plan_t plan;
    plan.installationId = installation;
    plan.lanes = house.shape == QLatin1String("two-lanes") ? 2 : 1;
    plan.shape = house.shape == QLatin1String("out-only") ? tools::shape_t::outOnly
                 : house.shape == QLatin1String("star")   ? tools::shape_t::star
                                                          : tools::shape_t::mesh;
    // Not the box of the default master: without the hub the others cannot hear each other.
    plan.hub = QString::number(size());
    for (int number = 1; number <= size(); ++number) {
        tools::box_t place;
        place.server = QString::number(number);
        place.broker.host = box(number).broker.host();
        place.broker.port = box(number).broker.port();
        plan.boxes << place;
    }
    if (house.cloud) {
        plan.cloud.emplace();
        plan.cloud->broker.host = cloud.host();
        plan.cloud->broker.port = cloud.port();
        plan.cloud->bridgeKey = QStringLiteral("bridgekey");
        plan.cloud->box = plan.shape == tools::shape_t::star ? plan.hub : QStringLiteral("1");
    }
    for (const tools::bridge_t& bridge : tools::bridgesOf(plan)) {
        box(bridge.from + 1).bridges.insert(bridge.remoteClientId, bridge.to + 1);
        auto& link = links[{bridge.from + 1, bridge.to + 1}];
        if (!link) {
            link = std::make_unique<proxy_t>(bridge.to < 0 ? cloud.port() : box(bridge.to + 1).broker.port());
        }
    }
    for (int place = 0; place < size(); ++place) {
        boxes[static_cast<std::size_t>(place)]->broker.configure(
            tools::bridgeLines(plan, place, [this](const tools::bridge_t& bridge) {
                return tools::endpoint_t{cloud.host(), links.at({bridge.from + 1, bridge.to + 1})->port()};
            }));
    }
}

std::unique_ptr<node_t> laboratory_t::makeNode(const QString& role, int number, memory_file_t& file,
                                               const QString& program)
{
    const bool isServer = role == QLatin1String("server");
    const QString id =
        (isServer ? QStringLiteral("tarnel-server-") : QStringLiteral("panel-")) + QString::number(number);
    QStringList arguments{QStringLiteral("--id"), id};
    if (isServer && number == house.defaultMaster) {
        arguments << QStringLiteral("--master");
    }
    if (isServer && house.keeper) {
        arguments << QStringLiteral("--keeper");
    }
    if (program.isEmpty()) {
        arguments << role;
    }
    arguments << file.path();
    const QString own = house.nodeProgram.isEmpty()
                            ? QCoreApplication::applicationDirPath() + QStringLiteral("/" LAB_NODE)
                            : house.nodeProgram;
    auto node = std::make_unique<node_t>(id, program.isEmpty() ? own : program, arguments);
    connect(node.get(), &node_t::told, this, [this, one = node.get()](const QJsonObject& event) { hear(*one, event); });
    connect(node.get(), &node_t::ended, this, [this, one = node.get()](int status) {
        if (status != 0 || !leaving) {
            deserted << one->name;
            note(one->name, QStringLiteral("has ended by itself, with status %1").arg(status));
        }
        look();
    });
    return node;
}

bool laboratory_t::start()
{
    if (house.cloud && !cloud.start()) {
        return false;
    }
    // Those that are dialled come first: a bridge that finds nobody waits before it dials again.
    std::vector<box_t*> order;
    for (const auto& one : boxes) {
        order.push_back(one.get());
    }
    std::stable_sort(order.begin(), order.end(),
                     [](const box_t* one, const box_t* other) { return one->bridges.size() < other->bridges.size(); });
    for (box_t* const one : order) {
        if (!one->broker.start()) {
            return false;
        }
        one->ear->dial();
    }
    note(QStringLiteral("house"), QStringLiteral("%1 brokers run").arg(size()));
    if (!until([this] { return missingBridge().isEmpty(); }, 15s)) {
        note(QStringLiteral("house"), QStringLiteral("the bridges do not come up"));
        return false;
    }
    note(QStringLiteral("house"), QStringLiteral("the bridges stand"));
    for (node_t* const node : nodes()) {
        node->start();
    }
    return true;
}

bool laboratory_t::leave()
{
    leaving = true;
    const std::vector<node_t*> all = nodes();
    for (node_t* const node : all) {
        note(node->name, QStringLiteral("takes leave"));
        node->say(QStringLiteral("quit"));
    }
    return until([&] { return std::none_of(all.begin(), all.end(), [](node_t* node) { return node->isRunning(); }); },
                 5s);
}

bool laboratory_t::until(const std::function<bool()>& condition, milliseconds bound)
{
    return comunication::testkit::until(condition, bound);
}

bool laboratory_t::untilAgreed(milliseconds bound)
{
    return until([this] { return agreement.isValid(); }, bound);
}

void laboratory_t::wait(milliseconds time)
{
    until([] { return false; }, time);
}
