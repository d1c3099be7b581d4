// SPDX-License-Identifier: MIT
// A house in virtual time: the real rules of mastership over a small model of engines, panels, brokers and bridges.
#pragma once

#include <flotrofobul/house/mastership.h>

#include <QtCore/QMap>
#include <QtCore/QStringList>

#include <cmath>
#include <deque>
#include <functional>
#include <memory>
#include <queue>
#include <random>
#include <vector>

class simulated_house_t {
public:
    using moment_t = comunication::house::moment_t;
    using rules_t = comunication::house::mastership_t;

    /// What happens to a house; the numbers choose where.
    enum fault_t {
        cut,
        heal,
        kill,
        start,
        powerCut,
        powerOn,
        freeze,
        go,
        clockJump,
        claim,
        panelRestart,
        brokerRestart,
        faults
    };

    simulated_house_t(int size, bool givenStar, unsigned seed) : random(seed), star(givenStar), boxes(size)
    {
        for (int from = 0; from < size; ++from) {
            for (int to = 0; to < size; ++to) {
                const double delay = std::exp(std::uniform_real_distribution<double>(0, std::log(2000))(random));
                ways[{from, to}].delay = moment_t(qint64(delay));
            }
        }
        const bool hasDefault = number(2) == 0;
        for (int i = 0; i < size; ++i) {
            boxes[i].id = QStringLiteral("tarnel-server-%1").arg(i + 1);
            boxes[i].isDefault = hasDefault && (i == 0 || number(8) == 0);
            boxes[i].rank = boxes[i].isDefault && number(8) != 0 ? 1 : 99 + number(3);
            at(moment_t(number(4000)), [this, i] { does(powerOn, i, 0); });
        }
    }

    void run(moment_t until)
    {
        while (!events.empty() && events.top().when <= until) {
            const event_t event = events.top();
            events.pop();
            now = event.when;
            event.what();
        }
        now = until;
    }

    int number(int below) { return int(random() % unsigned(below)); }

    void does(fault_t fault, int first, int second)
    {
        box_t& box = boxes[first];
        switch (fault) {
        case cut:
        case heal: setLink(first, second, fault == heal); break;
        case kill:
            if (box.alive) {
                stop(first);
                send(first, {first, will, QString(), QString(), {}});
            }
            break;
        case start:
            if (box.power && !box.alive) {
                boot(first);
            }
            break;
        case powerCut:
        case powerOn: setPower(first, fault == powerOn); break;
        case freeze: box.frozen = box.alive; break;
        case go:
            box.frozen = false;
            for (const auto& waiting : std::exchange(box.backlog, {})) {
                waiting();
            }
            break;
        case clockJump: box.offset += moment_t((number(2) == 0 ? 5000 : 3600000) * (number(2) == 0 ? 1 : -1)); break;
        case claim: toServer(first, [this, first] { setMaster(first); }); break;
        case panelRestart:
            box.panel.clear();
            send(first, {first, panelSays, servers(), QString(), {}});
            break;
        case brokerRestart: restartBroker(first, 1 << number(14)); break;
        case faults: break;
        }
    }

    void makePeace()
    {
        for (int i = 0; i < int(boxes.size()); ++i) {
            does(powerOn, i, 0);
            does(start, i, 0);
            does(go, i, 0);
            for (int j = 0; j < int(boxes.size()); ++j) {
                setLink(i, j, true);
            }
        }
    }

    /// Whether one server is master, and every server and panel follows it.
    bool isAtOne() const
    {
        const QString master = boxes[0].master;
        bool exists = false;
        for (const box_t& box : boxes) {
            exists = exists || box.id == master;
            if (box.master != master || box.panel != master || box.rules->masterId() != master) {
                return false;
            }
        }
        return exists;
    }
    QString master() const { return boxes[0].master; }
    QStringList words() const
    {
        QStringList result;
        for (const box_t& box : boxes) {
            result << QStringLiteral("%1: engine %2, rules %3 (state %4), panel %5")
                          .arg(box.id, box.master, box.rules->masterId(), QString::number(box.rules->currentState()),
                               box.panel);
        }
        return result;
    }

    moment_t now{0};
    int packets = 0; ///< of companions, and presentations to all
    int roleChanges = 0;

private:
    enum kind_t { house, presentation, will, panelSays };
    struct message_t {
        int from;
        kind_t kind;
        QString to; ///< a server, a panel, servers() or all
        QString named;
        comunication::house::advertisement_t advertisement;
        bool toAll() const { return to.isEmpty(); }
    };
    struct event_t {
        moment_t when;
        qint64 number;
        std::function<void()> what;
        bool operator<(const event_t& other) const
        {
            return when != other.when ? when > other.when : number > other.number;
        }
    };
    struct way_t { // one direction of a bridge
        moment_t delay{1};
        moment_t last{0};
        bool up = true;
        int life = 0;
        std::deque<message_t> waiting;
    };
    struct box_t {
        QString id, master, panel;
        QMap<QString, QString> known; // the engine's servers, and whom they named
        std::unique_ptr<rules_t> rules;
        bool isDefault = false, power = false, alive = false, frozen = false;
        int rank = 100;
        int life = 0;
        int turn = 0;
        moment_t offset{0};
        std::vector<std::function<void()>> backlog;
    };

    static QString servers() { return QStringLiteral("servers"); }
    static QString panelOf(int box) { return QStringLiteral("panel-%1").arg(box); }
    void at(moment_t when, std::function<void()> what) { events.push({when, ++counter, std::move(what)}); }
    bool joined(int one, int other) const { return one != other && (!star || one == 0 || other == 0); }
    moment_t timeOf(const box_t& box) const { return now + box.offset; }

    // Through the process of a server, which may stand still.
    void toServer(int index, std::function<void()> what)
    {
        box_t& box = boxes[index];
        if (box.frozen) {
            box.backlog.push_back([this, index, what] { toServer(index, what); });
        } else if (box.alive) {
            what();
            schedule(index);
        }
    }

    void boot(int index)
    {
        box_t& box = boxes[index];
        box.rules = std::make_unique<rules_t>(box.rank, comunication::house::times_t{}, random());
        box.alive = true;
        box.known.clear();
        setEngine(box, QString());
        connect(index);
        schedule(index);
    }
    void connect(int index)
    {
        box_t& box = boxes[index];
        if (box.isDefault) {
            setEngine(box, box.id);
        }
        send(index, {index, presentation, QString(), box.master, {}});
        box.rules->linkUp(timeOf(box), box.id, box.master);
        for (int i = 0; i < int(boxes.size()); ++i) {
            if (joined(index, i)) {
                noticeLink(box, i);
            }
        }
    }
    void stop(int index)
    {
        box_t& box = boxes[index];
        box.alive = box.frozen = false;
        box.backlog.clear();
        ++box.life;
    }
    void setPower(int index, bool on)
    {
        box_t& box = boxes[index];
        if (box.power == on) {
            return;
        }
        box.power = on;
        if (on) {
            boot(index);
            does(panelRestart, index, 0);
        } else {
            stop(index);
            box.panel.clear();
        }
        for (int i = 0; i < int(boxes.size()); ++i) {
            if (!on) {
                ways[{index, i}].waiting.clear();
            }
            setLink(index, i, on);
        }
    }
    // Its bridges and its own server and panel lose it; what waits for the bridges is not lost.
    void restartBroker(int index, int pause)
    {
        if (!boxes[index].power) {
            return;
        }
        for (int i = 0; i < int(boxes.size()); ++i) {
            setLink(index, i, false);
        }
        toServer(index, [this, index] { boxes[index].rules->linkDown(timeOf(boxes[index])); });
        at(now + moment_t(pause), [this, index, life = boxes[index].life] {
            if (!boxes[index].power) {
                return;
            }
            for (int i = 0; i < int(boxes.size()); ++i) {
                setLink(index, i, true);
            }
            does(panelRestart, index, 0);
            if (life == boxes[index].life) {
                toServer(index, [this, index] { connect(index); });
            }
        });
    }
    void setLink(int one, int other, bool up)
    {
        up = up && boxes[one].power && boxes[other].power;
        if (!joined(one, other) || ways[{one, other}].up == up) {
            return;
        }
        for (const auto& [from, to] : {std::pair(one, other), std::pair(other, one)}) {
            way_t& way = ways[{from, to}];
            way.up = up;
            ++way.life;
            way.last = now;
            std::deque<message_t> waiting = std::exchange(way.waiting, {});
            for (const message_t& message : waiting) {
                pass(from, to, message);
            }
            // The brokers notice it later, if at all.
            at(now + moment_t(number(up ? 1000 : 8000)), [this, &way, life = way.life, from = from, to = to] {
                if (way.life == life) {
                    toServer(to, [this, from, to] { noticeLink(boxes[to], from); });
                }
            });
        }
    }

    void noticeLink(box_t& box, int other)
    {
        if (!notifies) {
            return;
        }
        const bool up = ways[{other, int(&box - boxes.data())}].up;
        box.rules->bridge(timeOf(box), up);
        if (!up && box.master == boxes[other].id) {
            box.rules->bridgeLost(timeOf(box));
        }
    }

    // Over one bridge, in order. What is sent at QoS 0 is lost where there is none, the rest waits.
    void pass(int from, int to, const message_t& message)
    {
        way_t& way = ways[{from, to}];
        if (!way.up && message.kind == house) {
            return;
        }
        way.waiting.push_back(message);
        if (!way.up) {
            return;
        }
        way.last = std::max(way.last, now + way.delay);
        at(way.last, [this, &way, life = way.life, from, to] {
            if (way.life == life && !way.waiting.empty()) {
                const message_t next = way.waiting.front();
                way.waiting.pop_front();
                arrive(from, to, next);
            }
        });
    }
    void send(int from, const message_t& message)
    {
        packets += message.kind == house || (message.kind == presentation && message.toAll());
        at(now + moment_t(1), [this, from, message] { deliver(from, message, from); });
        for (int to = 0; to < int(boxes.size()); ++to) {
            if (joined(from, to)) {
                pass(from, to, message);
            }
        }
    }
    void arrive(int from, int to, const message_t& message)
    {
        if (star && to == 0) {
            for (int next = 1; next < int(boxes.size()); ++next) {
                if (next != from) {
                    pass(0, next, message);
                }
            }
        }
        deliver(to, message, from);
    }
    // No server hears itself.
    void deliver(int to, const message_t& message, int from)
    {
        if (message.toAll() || message.to == panelOf(to)) {
            atPanel(to, message);
        }
        const bool forServer = message.toAll() || message.to == servers() || message.to == boxes[to].id;
        if (forServer && (from != to || message.kind == panelSays)) {
            toServer(to, [this, to, message] { atServer(to, message); });
        }
    }
    void atPanel(int index, const message_t& message)
    {
        QString& master = boxes[index].panel;
        const QString sender = boxes[message.from].id;
        if (!boxes[index].power || message.kind == house || message.kind == panelSays) {
            return;
        }
        if (message.kind == will) {
            if (master == sender) {
                master.clear();
            }
            return;
        }
        if (message.named == sender) {
            master = sender;
        }
        if (message.toAll()) {
            send(index, {index, panelSays, sender, master, {}});
        }
    }
    void atServer(int index, const message_t& message)
    {
        box_t& box = boxes[index];
        const QString sender = boxes[message.from].id;
        if (message.kind == house) {
            box.rules->advertised(timeOf(box), sender, message.advertisement);
            return;
        }
        if (message.kind == panelSays) {
            box.rules->panelFollows(timeOf(box), message.named);
            if (message.to == servers()) {
                send(index, {index, presentation, panelOf(message.from), box.master, {}});
            }
            return;
        }
        if (message.kind == will) {
            box.rules->left(timeOf(box), sender);
            box.known.remove(sender);
            return;
        }
        const bool admitted = box.rules->presented(timeOf(box), sender, message.named);
        if (!admitted || (box.known.contains(sender) && box.known[sender] == message.named)) {
            return;
        }
        box.known[sender] = message.named;
        if (message.named.isEmpty() || message.named == box.master) {
            send(index, {index, presentation, servers(), box.master, {}});
            return;
        }
        setEngine(box, message.named);
        if (box.master == box.id) {
            send(index, {index, presentation, QString(), box.master, {}});
        }
    }
    void setEngine(box_t& box, const QString& master)
    {
        roleChanges += (box.master == box.id) != (master == box.id);
        box.master = master;
    }
    void setMaster(int index)
    {
        box_t& box = boxes[index];
        setEngine(box, box.id);
        send(index, {index, presentation, QString(), box.id, {}});
        box.rules->claimed(timeOf(box));
    }

    // As the companion's timer.
    void schedule(int index)
    {
        box_t& box = boxes[index];
        const auto rest = box.rules->remaining(timeOf(box));
        if (!rest) {
            return;
        }
        at(now + *rest, [this, index, turn = ++box.turn, life = box.life] {
            if (boxes[index].life == life && boxes[index].turn == turn) {
                toServer(index, [this, index] { act(index); });
            }
        });
    }
    void act(int index)
    {
        box_t& box = boxes[index];
        box.rules->wake(timeOf(box));
        const rules_t::orders_t orders = box.rules->takeOrders();
        const QString master = box.rules->masterId();
        if (!master.isEmpty() && master != box.master) {
            if (master == box.id) {
                setMaster(index);
            } else {
                setEngine(box, master);
            }
        }
        if (orders.advertise) {
            send(index, {index, house, servers(), QString(), {box.rank, orders.names, orders.ask, 0, 0}});
        }
        if (orders.present) {
            send(index, {index, presentation, QString(), box.master, {}});
        }
    }

    std::minstd_rand random;
    const bool star;
    const bool notifies = number(4) != 0; ///< whether brokers tell the state of bridges
    std::vector<box_t> boxes;
    QMap<QPair<int, int>, way_t> ways;
    std::priority_queue<event_t> events;
    qint64 counter = 0;
};
