// SPDX-License-Identifier: MIT
#include "laboratory/laboratory.h"

#include "house_plan/bridge_lines.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QJsonDocument>

#include <algorithm>

using namespace std::chrono_literals;

namespace {

const QString installation = QStringLiteral("1234");

QString boxName(int number)
{
    return QStringLiteral("box %1").arg(number);
}
QString linkName(int one, int other)
{
    return QStringLiteral("link %1-%2").arg(one).arg(other);
}

} // namespace

laboratory_t::laboratory_t(const house_t& house) : house(house)
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

// Between brokers that run; one that is cut off is missing all the same.
QString laboratory_t::missingBridge() const
{
    const auto runs = [this](int number) {
        return number == 0 || (box(number).broker.isRunning() && !box(number).brokerFrozen);
    };
    for (int number = 1; number <= size(); ++number) {
        const box_t& one = box(number);
        for (auto bridge = one.bridges.begin(); bridge != one.bridges.end(); ++bridge) {
            if (runs(number) && runs(bridge.value()) && !one.ear->bridges.value(bridge.key())) {
                return bridge.key();
            }
        }
    }
    return {};
}

// What happens to the house

void laboratory_t::happens(const QString& who, const QString& what)
{
    ++events;
    note(who, what);
}

bool laboratory_t::hasPower(const node_t& node) const
{
    return std::any_of(boxes.begin(), boxes.end(), [&](const auto& one) {
        return one->hasPower && (one->server.get() == &node || one->panel.get() == &node);
    });
}

void laboratory_t::powerCut(int number, power_cut_t how)
{
    box_t& one = box(number);
    if (!std::exchange(one.hasPower, false)) {
        return;
    }
    happens(boxName(number), how == power_cut_t::silent ? QStringLiteral("power cut: silence")
                                                        : QStringLiteral("power cut: its connections end"));
    for (int other = 1; how == power_cut_t::silent && other <= size(); ++other) {
        each(number, other, [](proxy_t& link) { link.set(way_t::silence(), way_t::silence()); });
    }
    one.broker.kill(SIGKILL); // first: no last will leaves the box
    one.server->kill();
    one.panel->kill();
    one.brokerFrozen = false;
    look();
}

void laboratory_t::powerOn(int number)
{
    box_t& one = box(number);
    if (std::exchange(one.hasPower, true)) {
        return;
    }
    happens(boxName(number), QStringLiteral("has power again"));
    for (int other = 1; other <= size(); ++other) {
        // As its system does with connections that it does not know.
        each(number, other, [](proxy_t& link) { link.cut(cut_t::reset); });
        mend(number, other);
    }
    one.broker.start();
    one.ear->dial();
    one.server->start();
    one.panel->start();
    look();
}

void laboratory_t::kill(node_t& node)
{
    if (node.isRunning()) {
        happens(node.name, QStringLiteral("killed"));
        node.kill();
        look();
    }
}

void laboratory_t::freeze(node_t& node)
{
    if (node.isRunning() && !node.isFrozen()) {
        happens(node.name, QStringLiteral("frozen"));
        node.freeze();
        look();
    }
}

void laboratory_t::proceed(node_t& node)
{
    if (node.isFrozen()) {
        happens(node.name, QStringLiteral("continues"));
        node.proceed();
        look();
    }
}

void laboratory_t::restart(node_t& node)
{
    if (hasPower(node)) {
        happens(node.name, node.isRunning() ? QStringLiteral("killed and started") : QStringLiteral("started"));
        node.kill();
        node.start();
        look();
    }
}

void laboratory_t::killBroker(int number)
{
    box_t& one = box(number);
    if (one.broker.isRunning()) {
        happens(boxName(number), QStringLiteral("its broker is killed"));
        one.broker.kill(SIGKILL);
        one.brokerFrozen = false;
        look();
    }
}

void laboratory_t::freezeBroker(int number)
{
    box_t& one = box(number);
    if (one.broker.isRunning() && !std::exchange(one.brokerFrozen, true)) {
        happens(boxName(number), QStringLiteral("its broker is frozen"));
        one.broker.kill(SIGSTOP);
        look();
    }
}

void laboratory_t::restartBroker(int number)
{
    box_t& one = box(number);
    if (std::exchange(one.brokerFrozen, false)) {
        happens(boxName(number), QStringLiteral("its broker continues"));
        one.broker.kill(SIGCONT);
    } else if (one.hasPower && !one.broker.isRunning()) {
        happens(boxName(number), QStringLiteral("its broker is started"));
        one.broker.start();
        one.ear->dial();
    }
    look();
}

void laboratory_t::claim(int number)
{
    node_t& server = *box(number).server;
    if (server.isRunning()) {
        happens(server.name, QStringLiteral("claims to be the master"));
        server.say(QStringLiteral("claim"));
    }
}

void laboratory_t::cut(int one, int other)
{
    broken.insert(std::minmax(one, other));
    happens(linkName(one, other), QStringLiteral("cut"));
    each(one, other, [](proxy_t& link) {
        link.refuse(true);
        link.cut(cut_t::reset);
    });
}

void laboratory_t::silence(int one, int other)
{
    broken.insert(std::minmax(one, other));
    happens(linkName(one, other), QStringLiteral("falls silent"));
    each(one, other, [](proxy_t& link) { link.set(way_t::silence(), way_t::silence()); });
}

void laboratory_t::heal(int one, int other)
{
    if (box(one).hasPower && box(other).hasPower && broken.erase(pair_t(std::minmax(one, other))) > 0) {
        happens(linkName(one, other), QStringLiteral("healed"));
        mend(one, other);
    }
}

void laboratory_t::mend(int one, int other)
{
    broken.erase(pair_t(std::minmax(one, other)));
    each(one, other, [this](proxy_t& link) {
        link.refuse(false);
        link.set(way_t::late(delayMs), way_t::late(delayMs));
    });
}

// Silence stays silence.
void laboratory_t::delay(int ms)
{
    happens(QStringLiteral("links"), QStringLiteral("%1 ms each way from now on").arg(ms));
    delayMs = ms;
    for (const auto& [ends, link] : links) {
        if (!link->isSilent()) {
            link->set(way_t::late(ms), way_t::late(ms));
        }
    }
}

void laboratory_t::peace()
{
    note(QStringLiteral("house"), QStringLiteral("peace: all links heal, the frozen continue, the dead are started"));
    delayMs = 0;
    broken.clear();
    for (int number = 1; number <= size(); ++number) {
        powerOn(number);
    }
    for (const auto& [ends, link] : links) {
        link->heal();
    }
    for (int number = 1; number <= size(); ++number) {
        restartBroker(number);
    }
    for (node_t* const node : nodes()) {
        proceed(*node);
        node->start();
    }
    agreement.invalidate(); // a broker that was frozen still tells of bridges that have ended meanwhile
    look();
}

void laboratory_t::each(int one, int other, const std::function<void(proxy_t&)>& act)
{
    for (const pair_t& ends : {pair_t{one, other}, pair_t{other, one}}) {
        const auto link = links.find(ends);
        if (link != links.end()) {
            act(*link->second);
        }
    }
}

// What is to be seen

std::vector<node_t*> laboratory_t::nodes() const
{
    std::vector<node_t*> all;
    for (const auto& one : boxes) {
        all.push_back(one->server.get());
    }
    for (const auto& one : boxes) {
        all.push_back(one->panel.get());
    }
    return all;
}

QStringList laboratory_t::masters() const
{
    QStringList names;
    for (const auto& one : boxes) {
        if (one->server->isRunning() && one->server->isMaster()) {
            names << one->server->name;
        }
    }
    return names;
}

QString laboratory_t::disagreement() const
{
    QString master;
    for (const auto& one : boxes) {
        const node_t& server = *one->server;
        if (server.isRunning() && !server.isFrozen() && server.isMaster()) {
            if (!master.isEmpty()) {
                return master + QStringLiteral(" and ") + server.name + QStringLiteral(" are both master");
            }
            master = server.name;
        }
    }
    if (master.isEmpty()) {
        return QStringLiteral("nobody is master");
    }
    for (const node_t* const node : nodes()) {
        if (!node->isRunning() || node->isFrozen()) {
            continue;
        }
        const bool isPanel = node->name.startsWith(QLatin1String("panel-"));
        if (!node->linked || node->master != master || (isPanel && !node->ready)) {
            return node->name + u' ' + node->thought() + QStringLiteral(", and ") + master +
                   QStringLiteral(" is master");
        }
    }
    const QString bridge = missingBridge();
    return bridge.isEmpty() ? QString() : QStringLiteral("bridge ") + bridge + QStringLiteral(" is down");
}

laboratory_t::milliseconds laboratory_t::agreedFor() const
{
    return milliseconds(agreement.isValid() ? agreement.elapsed() : 0);
}

QString laboratory_t::thoughts() const
{
    QString text;
    for (const node_t* const node : nodes()) {
        text += QStringLiteral("    %1 %2\n").arg(node->name, -16).arg(node->thought());
    }
    return text;
}

laboratory_t::milliseconds laboratory_t::mostMasters() const
{
    return std::max(longestSeveral, milliseconds(severalMasters.isValid() ? severalMasters.elapsed() : 0));
}

packets_t laboratory_t::packets() const
{
    packets_t sum;
    for (const auto& one : boxes) {
        sum += one->ear->packets;
    }
    return sum;
}

laboratory_t::milliseconds laboratory_t::quietFor() const
{
    qint64 shortest = clock.elapsed();
    for (const auto& one : boxes) {
        shortest = one->ear->sinceLast.isValid() ? std::min(shortest, one->ear->sinceLast.elapsed()) : shortest;
    }
    return milliseconds(shortest);
}

QList<int> laboratory_t::askAll()
{
    QList<int> numbers;
    for (const auto& one : boxes) {
        if (one->panel->isRunning()) {
            numbers << requests.size() + 1;
            requests.insert(numbers.last(), {one->panel->name});
            one->panel->say(QStringLiteral("request %1").arg(numbers.last()));
        }
    }
    return numbers;
}

QString laboratory_t::doubled() const
{
    for (auto one = requests.begin(); one != requests.end(); ++one) {
        if (one->asked > 1 || one->answered > 1) {
            return QStringLiteral("request %1 of %2 was taken %3 times and answered %4 times")
                .arg(one.key())
                .arg(one->panel)
                .arg(one->asked)
                .arg(one->answered);
        }
    }
    return {};
}

// A node has said something.
void laboratory_t::hear(node_t& node, const QJsonObject& event)
{
    const QString kind = event[u"event"].toString();
    const auto asked = requests.find(event[u"number"].toInt());
    if (kind == QLatin1String("state")) {
        look();
    } else if (event.contains(u"text")) {
        note(node.name, event[u"text"].toString());
    } else if (asked == requests.end()) {
        note(node.name, QString::fromUtf8(QJsonDocument(event).toJson(QJsonDocument::Compact)));
    } else if (kind == QLatin1String("asked")) {
        ++asked->asked;
        note(node.name, QStringLiteral("takes request %1 of %2").arg(asked.key()).arg(asked->panel));
    } else if (kind == QLatin1String("answer")) {
        ++asked->answered;
        note(node.name, QStringLiteral("has the answer to request %1").arg(asked.key()));
    } else if (kind == QLatin1String("refused")) {
        asked->refused = true;
        note(node.name, QStringLiteral("knows no master to ask"));
    }
}

// What everybody thinks may have changed.
void laboratory_t::look()
{
    for (const node_t* const node : nodes()) {
        const QString thought = node->thought();
        QString& last = lastThoughts[node->name];
        const bool wasMaster = last.contains(QLatin1String("is master"));
        if (node->isRunning() && wasMaster != node->isMaster()) {
            ++changes;
        }
        // A node that begins says nothing new.
        const bool begins = !node->linked && !last.contains(QLatin1String("link"));
        if (node->isRunning() && last != thought && !begins) {
            note(node->name, thought);
        }
        last = thought;
    }
    const auto isMaster = [](const auto& one) { return one->server->isMaster() && !one->server->isFrozen(); };
    if (std::count_if(boxes.begin(), boxes.end(), isMaster) > 1) {
        if (!severalMasters.isValid()) {
            severalMasters.start();
        }
    } else {
        longestSeveral = mostMasters();
        severalMasters.invalidate();
    }
    if (!disagreement().isEmpty()) {
        agreement.invalidate();
    } else if (!agreement.isValid()) {
        agreement.start();
    }
}

void laboratory_t::note(const QString& who, const QString& text)
{
    const qint64 now = clock.elapsed();
    timeline << QStringLiteral("%1.%2 s  %3 %4").arg(now / 1000, 3).arg(now / 100 % 10).arg(who, -16).arg(text);
    if (aloud) {
        aloud(timeline.last());
    }
}

// Running it

bool laboratory_t::until(const std::function<bool()>& condition, milliseconds bound)
{
    const QDeadlineTimer deadline(bound);
    QTimer tick; // also for what only time changes
    tick.start(50);
    while (!condition()) {
        if (deadline.hasExpired()) {
            return false;
        }
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    return true;
}

bool laboratory_t::untilAgreed(milliseconds bound)
{
    return until([this] { return agreement.isValid(); }, bound);
}

void laboratory_t::wait(milliseconds time)
{
    until([] { return false; }, time);
}
