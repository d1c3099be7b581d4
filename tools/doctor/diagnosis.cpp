// SPDX-License-Identifier: MIT
#include "doctor/diagnosis.h"

#include "watch/packet_lines.h"

#include <QtCore/QJsonArray>

#include <algorithm>

namespace comunication {
namespace tools {

namespace {

int gravesOf(const step_t& step)
{
    return static_cast<int>(
        std::count_if(step.ailments.begin(), step.ailments.end(), [](const ailment_t& one) { return one.grave; }));
}

QStringList wordsOf(const QString& step, const ailment_t& ailment)
{
    QStringList lines{QLatin1String(ailment.grave ? "WRONG  " : "note   ") + step + QStringLiteral(": ") +
                      ailment.what};
    if (!ailment.why.isEmpty()) {
        lines << QStringLiteral("         because ") + ailment.why;
    }
    if (!ailment.remedy.isEmpty()) {
        lines << QStringLiteral("         to do: ") + ailment.remedy;
    }
    return lines;
}

} // namespace

bool step_t::isFine() const
{
    return gravesOf(*this) == 0;
}

void diagnosis_t::begin(const QString& step)
{
    const auto same = std::find_if(steps.begin(), steps.end(), [&](const step_t& one) { return one.name == step; });
    current = static_cast<int>(same - steps.begin());
    if (same == steps.end()) {
        steps << step_t{step, {}, {}};
    }
}

void diagnosis_t::fine(const QString& what)
{
    steps[current].found << what;
}

void diagnosis_t::wrong(const QString& what, const QString& why, const QString& remedy)
{
    steps[current].ailments << ailment_t{what, why, remedy, true};
}

void diagnosis_t::remark(const QString& what, const QString& why, const QString& remedy)
{
    steps[current].ailments << ailment_t{what, why, remedy, false};
}

int diagnosis_t::faults() const
{
    int count = 0;
    for (const step_t& step : steps) {
        count += gravesOf(step);
    }
    return count;
}

QStringList diagnosis_t::words() const
{
    QStringList lines;
    for (const step_t& step : steps) {
        for (const QString& found : step.found) {
            lines << harmless(QStringLiteral("ok     ") + step.name + QStringLiteral(": ") + found);
        }
        for (const ailment_t& ailment : step.ailments) {
            for (const QString& line : wordsOf(step.name, ailment)) {
                lines << harmless(line);
            }
        }
    }
    const int count = faults();
    lines << QString()
          << (count == 0   ? QStringLiteral("Nothing is wrong here.")
              : count == 1 ? QStringLiteral("One thing is wrong.")
                           : QStringLiteral("%1 things are wrong; begin with the first.").arg(count));
    return lines;
}

QJsonObject diagnosis_t::json() const
{
    QJsonArray list;
    for (const step_t& step : steps) {
        QJsonArray ailments;
        for (const ailment_t& ailment : step.ailments) {
            ailments << QJsonObject{
                {QStringLiteral("weight"), QLatin1String(ailment.grave ? "fault" : "note")},
                {QStringLiteral("what"), ailment.what},
                {QStringLiteral("because"), ailment.why},
                {QStringLiteral("todo"), ailment.remedy},
            };
        }
        list << QJsonObject{{QStringLiteral("step"), step.name},
                            {QStringLiteral("ok"), step.isFine()},
                            {QStringLiteral("found"), QJsonArray::fromStringList(step.found)},
                            {QStringLiteral("findings"), ailments}};
    }
    return {{QStringLiteral("ok"), isFine()}, {QStringLiteral("steps"), list}};
}

QString listed(QStringList words)
{
    if (words.size() < 2) {
        return words.join(QString());
    }
    const QString last = words.takeLast();
    return words.join(QStringLiteral(", ")) + QStringLiteral(" and ") + last;
}

} // namespace tools
} // namespace comunication
