// SPDX-License-Identifier: MIT
// What a house promises, measured on real processes: a row for each promise.
#include "laboratory/occasions.h"
#include "laboratory/verdict.h"

#include <QtCore/QDeadlineTimer>

#include <algorithm>

using namespace std::chrono_literals;
using std::chrono::milliseconds;

namespace {

/// One measurement.
struct measured_t {
    bool isKept = false;
    QString figure;
};

measured_t within(const verdict_t& verdict, milliseconds wanted, const QString& more = QString())
{
    return verdict.isGood() ? measured_t{verdict.healed <= wanted, seconds(verdict.healed) + more}
                            : measured_t{false, verdict.failure + more};
}

/// A house that lives, or the end of the program.
class living_t {
public:
    explicit living_t(const house_t& house, bool givenVerbose) : laboratory(house), verbose(givenVerbose)
    {
        if (verbose) {
            laboratory.aloud = print;
        }
        if (!laboratory.start() || !isWell(laboratory, 30s).isGood()) {
            qFatal("The house does not even begin:\n%s", qUtf8Printable(testimony(laboratory)));
        }
    }

    laboratory_t laboratory;
    const bool verbose;
};

const auto giveUp = 60s;

measured_t cutPower(const house_t& house, bool verbose, power_cut_t how)
{
    living_t living(house, verbose);
    living.laboratory.powerCut(1, how);
    return within(agrees(living.laboratory, giveUp, 2s), 15s);
}

measured_t comeBack(const house_t& house, bool verbose)
{
    living_t living(house, verbose);
    laboratory_t& laboratory = living.laboratory;
    laboratory.powerCut(1, power_cut_t::silent);
    QString more;
    if (!laboratory.untilAgreed(house.keeper ? giveUp : 1s)) {
        laboratory.claim(2);
        more = QStringLiteral(" (box 2 told to claim)");
    }
    laboratory.until([&] { return laboratory.agreedFor() > 2s; }, giveUp);
    const int before = laboratory.roleChanges();
    laboratory.powerOn(1);
    const verdict_t verdict = agrees(laboratory, giveUp, 20s);
    const int changes = laboratory.roleChanges() - before;
    measured_t measured = within(verdict, 15s, QStringLiteral(", %1 changes of role").arg(changes) + more);
    measured.isKept = measured.isKept && changes <= 2;
    return measured;
}

measured_t claimAtOnce(const house_t& house, bool verbose)
{
    living_t living(house, verbose);
    laboratory_t& laboratory = living.laboratory;
    laboratory.delay(100);
    const packets_t before = laboratory.packets();
    QElapsedTimer time;
    time.start();
    for (int number = 1; number <= std::min(3, house.boxes); ++number) {
        laboratory.claim(number);
    }
    constexpr auto calm = 3s;
    const bool quiet = laboratory.until(
        [&] { return time.elapsed() > 1000 && laboratory.quietFor() > calm && laboratory.agreedFor() > calm; }, giveUp);
    const milliseconds loud = milliseconds(time.elapsed()) - laboratory.quietFor();
    const packets_t packets = laboratory.packets() - before;
    return {quiet && loud <= 5s && packets.total() <= 200,
            (quiet ? QStringLiteral("quiet after %1").arg(seconds(loud))
                   : QStringLiteral("not quiet after %1").arg(seconds(giveUp))) +
                QStringLiteral(", ") + packets.text()};
}

measured_t split(const house_t& house, bool verbose, bool isMasterFirst)
{
    living_t living(house, verbose);
    laboratory_t& laboratory = living.laboratory;
    for (int other = 2; other <= house.boxes; ++other) {
        laboratory.cut(1, other);
    }
    const node_t& second = *laboratory.box(2).server;
    const int order[] = {isMasterFirst ? 1 : 2, isMasterFirst ? 2 : 1};
    laboratory.claim(order[0]);
    laboratory.wait(1s);
    laboratory.claim(order[1]);
    laboratory.until([&] { return second.isMaster() && laboratory.quietFor() > 1s; }, 10s);
    for (int other = 2; other <= house.boxes; ++other) {
        laboratory.heal(1, isMasterFirst ? other : house.boxes + 2 - other);
    }
    return within(agrees(laboratory, giveUp, 3s), 30s);
}

measured_t freezeMaster(const house_t& house, bool verbose)
{
    living_t living(house, verbose);
    laboratory_t& laboratory = living.laboratory;
    node_t& master = *laboratory.box(1).server;
    const QDeadlineTimer thaw(60s);
    laboratory.freeze(master);
    const verdict_t taken = agrees(laboratory, 55s, 2s);
    laboratory.wait(std::max(0ms, milliseconds(thaw.remainingTime())));
    laboratory.proceed(master);
    const verdict_t healed = agrees(laboratory, giveUp, 10s);
    return {taken.isGood() && taken.healed <= 30s && healed.isGood() && healed.healed <= 15s,
            (taken.isGood() ? QStringLiteral("taken over after %1").arg(seconds(taken.healed))
                            : QStringLiteral("not taken over")) +
                (healed.isGood() ? QStringLiteral(", one master %1 after it continues").arg(seconds(healed.healed))
                                 : QStringLiteral(", ") + healed.failure) +
                QStringLiteral(", two masters for %1 ms").arg(laboratory.mostMasters().count())};
}

measured_t cutFollower(const house_t& house, bool verbose)
{
    living_t living(house, verbose);
    laboratory_t& laboratory = living.laboratory;
    measured_t measured{true, QString()};
    for (const char* const which : {"first", "second", "third"}) {
        laboratory.powerCut(house.boxes, power_cut_t::silent);
        laboratory.wait(3s);
        laboratory.powerOn(house.boxes);
        const measured_t one = within(agrees(laboratory, giveUp, 2s), 15s);
        measured.isKept = measured.isKept && one.isKept;
        measured.figure += (measured.figure.isEmpty() ? QString() : QStringLiteral("; ")) + QLatin1String(which) +
                           QStringLiteral(": ") + one.figure;
        if (!one.isKept) {
            break;
        }
    }
    return measured;
}

measured_t idle(const house_t& house, bool verbose)
{
    constexpr int minutes = 3;
    living_t living(house, verbose);
    living.laboratory.wait(2s);
    const packets_t before = living.laboratory.packets();
    living.laboratory.wait(std::chrono::minutes(minutes));
    const packets_t packets = living.laboratory.packets() - before;
    const double servers = double(packets.betweenServers + packets.toAll) / minutes;
    const double panels = double(packets.toPanels + packets.toAll) / minutes;
    return {servers <= 6 && panels <= 1, QStringLiteral("%1 and %2 a minute; in %3 minutes %4")
                                             .arg(servers, 0, 'f', 1)
                                             .arg(panels, 0, 'f', 1)
                                             .arg(minutes)
                                             .arg(packets.text())};
}

// The nodes begin in an order that is always the same: who comes first makes a difference of a packet.
measured_t alone(const house_t& house, bool verbose)
{
    const auto packets = [&](bool keeper) {
        house_t one = house;
        one.boxes = 1;
        one.keeper = keeper;
        living_t living(one, verbose);
        laboratory_t& laboratory = living.laboratory;
        const packets_t before = laboratory.packets();
        for (node_t* const node : {laboratory.box(1).panel.get(), laboratory.box(1).server.get()}) {
            laboratory.restart(*node);
            laboratory.until([&] { return laboratory.agreedFor() > 2s; }, giveUp);
        }
        laboratory.wait(90s);
        return (laboratory.packets() - before).total();
    };
    const int with = packets(house.keeper);
    const int without = packets(false);
    return {with == without,
            QStringLiteral("%1 packets for two restarts and 90 s, without the keeper %2").arg(with).arg(without)};
}

const struct {
    const char* name;
    const char* wanted;
    measured_t (*measure)(const house_t& house, bool verbose);
} rows[] = {
    {"power cut of the master's box, its connections end", "15 s",
     [](const house_t& house, bool verbose) { return cutPower(house, verbose, power_cut_t::noticed); }},
    {"power cut of the master's box, silence", "15 s",
     [](const house_t& house, bool verbose) { return cutPower(house, verbose, power_cut_t::silent); }},
    {"return of that box", "15 s, at most 2 changes of role", comeBack},
    {"three claims at once, links of 100 ms", "quiet in 5 s, at most 200 packets", claimAtOnce},
    {"split healed, old master claimed first", "30 s",
     [](const house_t& house, bool verbose) { return split(house, verbose, true); }},
    {"split healed, new master claimed first", "30 s",
     [](const house_t& house, bool verbose) { return split(house, verbose, false); }},
    {"frozen master continues after 60 s", "noticed in 30 s, one master afterwards", freezeMaster},
    {"power cuts of a follower", "15 s each", cutFollower},
    {"idle: between servers and towards panels", "at most 6 and 1 a minute", idle},
    {"one box alone", "not a packet more", alone},
};

} // namespace

int measureTargets(const house_t& house, int times, const QString& only, bool verbose)
{
    print(QStringLiteral("%1 boxes, %2, keeper %3\n\n| history | wanted | kept | measured |\n|---|---|---|---|")
              .arg(house.boxes)
              .arg(house.shape, house.keeper ? QStringLiteral("on") : QStringLiteral("off")));
    bool allKept = true;
    for (const auto& row : rows) {
        const QString name = QString::fromLatin1(row.name);
        if (!name.contains(only)) {
            continue;
        }
        int kept = 0;
        QStringList figures;
        for (int run = 0; run < times; ++run) {
            const measured_t measured = row.measure(house, verbose);
            kept += measured.isKept ? 1 : 0;
            figures << measured.figure;
        }
        allKept = allKept && kept == times;
        print(QStringLiteral("| %1 | %2 | %3 of %4 | %5 |")
                  .arg(name, QString::fromLatin1(row.wanted))
                  .arg(kept)
                  .arg(times)
                  .arg(figures.join(QStringLiteral("<br>"))));
    }
    return allKept ? 0 : 1;
}
