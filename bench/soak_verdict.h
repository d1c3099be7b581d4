// SPDX-License-Identifier: MIT
// What a soak found: the table, and which promises were broken.
#pragma once

#include "soak_nodes.h"

#include <climits>
#include <cstdio>
#include <vector>

enum class verdict_t { ignored, noted, fails };

/// What may be wrong with messages, by their marks, and what that means for each kind of session.
struct promise_t {
    const char* broken;
    task_t task;
    int lowestQos;
    int has;
    int lacks;
    verdict_t clean;
    verdict_t kept;
};

// A clean session ends with its connection. Whether the broker has taken over what was in flight is unknown then, and
// sending it again, perhaps a second time, is all that can be done; what comes for it meanwhile goes nowhere.
constexpr promise_t promises[] = {
    {"acknowledged, never arrived", task_t::publish, 1, ledger_t::acknowledged, ledger_t::arrived, verdict_t::fails,
     verdict_t::fails},
    {"asked for, never arrived", task_t::publish, 1, ledger_t::asked, ledger_t::arrived, verdict_t::fails,
     verdict_t::fails},
    {"arrived again at QoS 2", task_t::publish, 2, ledger_t::repeated, 0, verdict_t::noted, verdict_t::fails},
    {"arrived after a newer one", task_t::publish, 1, ledger_t::late, 0, verdict_t::noted, verdict_t::noted},
    {"received again", task_t::listen, 2, ledger_t::repeated, 0, verdict_t::fails, verdict_t::fails},
    {"received after a newer one", task_t::listen, 2, ledger_t::late, 0, verdict_t::fails, verdict_t::fails},
    {"never received", task_t::listen, 2, ledger_t::asked, ledger_t::arrived, verdict_t::ignored, verdict_t::fails},
};

/// A number and its bound.
struct figure_t {
    const char* what;
    int value;
    int most = INT_MAX;
};

inline void printTable(const std::vector<node_t*>& nodes)
{
    std::printf("\n%-16s %4s %9s %13s %9s %9s %13s %9s\n", "", "QoS", "asked for", "acknowledged", "arrived", "again",
                "out of order", "never");
    for (const node_t* const node : nodes) {
        for (int qos = 0; qos < 3; ++qos) {
            const auto count = [&](int has, int lacks = 0) { return node->ledger.count(qos, has, lacks); };
            if (count(ledger_t::asked) > 0) {
                std::printf("%-16s %4d %9d %13d %9d %9d %13d %9d\n", node->name.constData(), qos,
                            count(ledger_t::asked), count(ledger_t::acknowledged), count(ledger_t::arrived),
                            count(ledger_t::repeated), count(ledger_t::late),
                            count(ledger_t::asked, ledger_t::arrived));
            }
        }
    }
    std::printf("\n");
}

/// Prints the messages concerned; true when nothing of it fails.
inline bool keeps(const promise_t& promise, const node_t& node)
{
    const verdict_t verdict = node.kept ? promise.kept : promise.clean;
    QStringList names;
    for (int qos = promise.lowestQos; qos < 3 && promise.task == node.task; ++qos) {
        names += node.ledger.names(qos, promise.has, promise.lacks);
    }
    if (names.isEmpty() || verdict == verdict_t::ignored) {
        return true;
    }
    const int count = names.size();
    const QString first = QStringList(names.mid(0, 20)).join(QLatin1Char(' '));
    std::printf("%s %s: %d %s: %s%s\n", verdict == verdict_t::fails ? "FAILED" : "noted ", node.name.constData(), count,
                promise.broken, qPrintable(first), count > 20 ? " ..." : "");
    return verdict != verdict_t::fails;
}

/// True when the run passes.
inline bool judge(const std::vector<node_t*>& nodes, const std::vector<figure_t>& figures)
{
    bool passes = true;
    for (const node_t* const node : nodes) {
        for (const promise_t& promise : promises) {
            passes &= keeps(promise, *node);
        }
    }
    for (const figure_t& figure : figures) {
        const bool fails = figure.value > figure.most;
        std::printf("%s %s: %d\n", fails ? "FAILED" : "      ", figure.what, figure.value);
        passes &= !fails;
    }
    std::fflush(stdout);
    return passes;
}
