// SPDX-License-Identifier: MIT
// What is to be seen of the house.
#include "laboratory/laboratory.h"

#include <QtCore/QJsonDocument>

#include <algorithm>

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
