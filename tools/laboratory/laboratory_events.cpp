// SPDX-License-Identifier: MIT
// What happens to the house.
#include "laboratory/laboratory.h"

#include <algorithm>

namespace {

QString boxName(int number)
{
    return QStringLiteral("box %1").arg(number);
}
QString linkName(int one, int other)
{
    return QStringLiteral("link %1-%2").arg(one).arg(other);
}

} // namespace

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
