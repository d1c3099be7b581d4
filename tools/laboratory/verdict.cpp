// SPDX-License-Identifier: MIT
#include "laboratory/verdict.h"

#include <algorithm>

using namespace std::chrono_literals;
using std::chrono::milliseconds;

verdict_t agrees(laboratory_t& laboratory, milliseconds bound, milliseconds calm)
{
    verdict_t verdict;
    QElapsedTimer time;
    time.start();
    if (laboratory.until([&] { return laboratory.agreedFor() >= calm; }, bound + calm)) {
        verdict.healed = std::max(0ms, milliseconds(time.elapsed()) - laboratory.agreedFor());
    } else {
        const QString problem = laboratory.disagreement();
        verdict.failure = QStringLiteral("After %1 ").arg(seconds(bound + calm)) +
                          (problem.isEmpty() ? QStringLiteral("the house has only just agreed") : problem);
    }
    return verdict;
}

verdict_t isWell(laboratory_t& laboratory, milliseconds bound, milliseconds calm)
{
    constexpr auto toAnswer = 5s;
    constexpr auto forDoubles = 200ms;
    QElapsedTimer time;
    time.start();
    for (int round = 1;; ++round) {
        const milliseconds before(time.elapsed());
        verdict_t verdict = agrees(laboratory, std::max(0ms, bound - before), calm);
        verdict.healed += before;
        verdict.rounds = round;
        if (!verdict.isGood()) {
            return verdict;
        }
        const QList<int> numbers = laboratory.askAll();
        const auto isAnswered = [&](int number) { return laboratory.request(number).answered > 0; };
        const bool all = laboratory.until(
            [&] { return std::all_of(numbers.begin(), numbers.end(), isAnswered) || laboratory.agreedFor() == 0ms; },
            toAnswer);
        laboratory.wait(forDoubles);
        verdict.answers = numbers.size();
        verdict.failure = laboratory.doubled();
        if (!verdict.isGood() || (laboratory.agreedFor() > forDoubles && all)) {
            return verdict;
        }
        if (laboratory.agreedFor() > toAnswer) {
            const int lost = *std::find_if_not(numbers.begin(), numbers.end(), isAnswered);
            verdict.failure = QStringLiteral("Request %1 of %2 was not answered, though all agreed")
                                  .arg(lost)
                                  .arg(laboratory.request(lost).panel);
            return verdict;
        }
    }
}

QString testimony(const laboratory_t& laboratory)
{
    QString text = QStringLiteral("  What happened:\n    ") + laboratory.timeline.join(QStringLiteral("\n    ")) +
                   QStringLiteral("\n  What each node thinks:\n") + laboratory.thoughts();
    for (const node_t* const node : laboratory.nodes()) {
        const QString words = node->lastWords();
        if (!words.isEmpty()) {
            text += QStringLiteral("  Last words of %1:\n").arg(node->name) + words + u'\n';
        }
    }
    return text;
}

QString seconds(milliseconds time)
{
    return QString::number(static_cast<double>(time.count()) / 1000, 'f', 1) + QStringLiteral(" s");
}
