// SPDX-License-Identifier: MIT
// A house to look at: it begins, loses its master's box, gets it back and ends.
#include "laboratory/occasions.h"
#include "laboratory/verdict.h"

using namespace std::chrono_literals;

namespace {

/// The steps, of which each one has to be seen.
class show_t {
public:
    explicit show_t(const house_t& house) : laboratory(house) { laboratory.aloud = print; }

    void act(const QString& title) { print(u'\n' + title); }
    /// Whether to go on.
    bool expect(const verdict_t& verdict, const QString& what)
    {
        if (verdict.isGood()) {
            print(QStringLiteral("   => %1").arg(what));
            ++steps;
            return true;
        }
        print(QStringLiteral("\nFAILED: %1\n%2").arg(verdict.failure, laboratory.thoughts()));
        return false;
    }
    bool expectWell(const QString& what)
    {
        const verdict_t verdict = isWell(laboratory, 30s);
        return expect(verdict,
                      QStringLiteral("%1: one master and every panel ready after %2, %3 requests answered once")
                          .arg(what, seconds(verdict.healed))
                          .arg(verdict.answers));
    }
    verdict_t met(bool condition, const QString& complaint) const
    {
        verdict_t verdict;
        verdict.failure = condition ? QString() : complaint;
        return verdict;
    }

    laboratory_t laboratory;
    int steps = 0;
};

bool takeOver(show_t& show, const house_t& house)
{
    laboratory_t& laboratory = show.laboratory;
    if (house.boxes == 1) {
        return true;
    }
    if (!house.keeper) {
        const bool waited = !laboratory.untilAgreed(5s);
        show.act(QStringLiteral("Nobody keeps this house: until somebody claims, its panels talk to the dead"));
        laboratory.claim(2);
        return show.expect(show.met(waited, QStringLiteral("somebody has claimed already")),
                           QStringLiteral("nobody has taken over in 5 s"));
    }
    return true;
}

bool play(show_t& show, const house_t& house, int delay)
{
    laboratory_t& laboratory = show.laboratory;
    show.act(
        QStringLiteral("%1 boxes, each with a broker, a server and a panel (%2)").arg(house.boxes).arg(house.shape));
    if (!show.expect(show.met(laboratory.start(), QStringLiteral("the brokers do not start")),
                     QStringLiteral("brokers and bridges stand"))) {
        return false;
    }
    if (delay > 0) {
        laboratory.delay(delay);
    }
    if (!show.expectWell(QStringLiteral("the house lives"))) {
        return false;
    }

    show.act(QStringLiteral("A power cut takes the master's box: broker, server and panel at once"));
    laboratory.powerCut(1, power_cut_t::silent);
    if (!takeOver(show, house) || (house.boxes > 1 && !show.expectWell(QStringLiteral("the others go on")))) {
        return false;
    }

    show.act(QStringLiteral("The box comes back"));
    laboratory.powerOn(1);
    if (!show.expectWell(QStringLiteral("the house is whole"))) {
        return false;
    }

    show.act(QStringLiteral("Everybody takes leave"));
    return show.expect(show.met(laboratory.leave(), QStringLiteral("not everybody has left")),
                       QStringLiteral("all have left")) &&
           show.expect(show.met(laboratory.deserters().isEmpty(), laboratory.deserters().join(u' ')),
                       QStringLiteral("nobody has ended before"));
}

} // namespace

int showHouse(const house_t& house, int delay)
{
    show_t show(house);
    if (!play(show, house, delay)) {
        return 1;
    }
    print(QStringLiteral("\nAll %1 steps seen; %2, %3 changes of role.")
              .arg(show.steps)
              .arg(show.laboratory.packets().text())
              .arg(show.laboratory.roleChanges()));
    return 0;
}
