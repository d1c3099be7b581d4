// SPDX-License-Identifier: MIT
#include "reasons.h"

namespace comunication {
namespace view {

namespace {

constexpr int crowd = 3; // that going at once is no chance

QString because(const QString& reason, const QString& evidence)
{
    return reason + QStringLiteral("; thought so because ") + evidence;
}

} // namespace

QString spanOf(moment_t span)
{
    const double seconds = double(span.count()) / 1000;
    return seconds < 10     ? QString::number(seconds, 'f', 1) + QStringLiteral(" s")
           : seconds < 120  ? QString::number(qRound(seconds)) + QStringLiteral(" s")
           : seconds < 7200 ? QString::number(qRound(seconds / 60)) + QStringLiteral(" min")
                            : QString::number(qRound(seconds / 3600)) + QStringLiteral(" h");
}

QString whyGone(const parting_t& parting)
{
    if (!parting.bridge.isEmpty()) {
        return because(QStringLiteral("The way to it is gone, it may live"),
                       QStringLiteral("the bridge %1 went down at the same time").arg(parting.bridge));
    }
    if (parting.brokerIsLost) {
        return because(QStringLiteral("Its box is off or cut off"),
                       QStringLiteral("its broker %1 was lost at the same time").arg(parting.broker));
    }
    if (parting.together >= crowd || (parting.together > 1 && parting.wereAll)) {
        return because(
            QStringLiteral("Its box has lost its power or its network"),
            QStringLiteral("%1 nodes at %2 went at the same time").arg(parting.together).arg(parting.broker));
    }
    if (parting.silence < moment_t(0)) {
        return QStringLiteral("Nothing tells why: it has not been heard before");
    }
    if (parting.silence < shortestMissing) {
        return because(QStringLiteral("It took its leave, or its process ended"),
                       QStringLiteral("it was heard %1 before").arg(spanOf(parting.silence)));
    }
    if (2 * parting.silence <= 3 * parting.usual) {
        return QStringLiteral(
                   "It left, ended, was frozen or was cut off: it was silent for %1 before, as it often is, so "
                   "nothing tells which")
            .arg(spanOf(parting.silence));
    }
    return because(QStringLiteral("It is frozen or cut off, and its broker missed it"),
                   QStringLiteral("it was silent for %1 before").arg(spanOf(parting.silence)));
}

QString whyUnreachable(const QString& bridge)
{
    return because(QStringLiteral("The way to it is gone, it may live"),
                   QStringLiteral("the bridge %1 is down").arg(bridge));
}

QString whyUnheard(const QString& broker)
{
    return because(QStringLiteral("It may live"), QStringLiteral("its broker %1 is lost to us").arg(broker));
}

QString whyLost(const broker_loss_t& loss)
{
    if (loss.isHeardElsewhere) {
        return because(QStringLiteral("Only the way from here to it is gone"),
                       QStringLiteral("its nodes are still heard over bridges"));
    }
    if (!loss.bridgesDown.isEmpty()) {
        return because(QStringLiteral("Its box is off or cut off"),
                       QStringLiteral("other brokers have lost it as well: the bridge %1 is down")
                           .arg(loss.bridgesDown.join(QStringLiteral(", "))));
    }
    return loss.problem;
}

} // namespace view
} // namespace comunication
