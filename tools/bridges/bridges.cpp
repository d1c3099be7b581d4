// SPDX-License-Identifier: MIT
// flotrofobul bridges: looks at the description of a house, writes its bridges, or tries them.
#include "bridges/bridge_report.h"
#include "command.h"
#include "house_plan/bridge_lines.h"

#include <QtCore/QDir>
#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QSaveFile>

namespace comunication {
namespace tools {

namespace {

struct wish_t {
    QString house;
    QString directory;
    QString caFile;
    bool force = false;
    bool json = false;
    bridge_check_t::times_t times;
};

void sayJson(const QJsonObject& json)
{
    say(QString::fromUtf8(QJsonDocument(json).toJson(QJsonDocument::Indented)).trimmed());
}

int refuse(const wish_t& wish, const QVector<fault_t>& faults)
{
    if (wish.json) {
        QJsonArray list;
        for (const fault_t& fault : faults) {
            list << QJsonObject{{QStringLiteral("place"), fault.place}, {QStringLiteral("reason"), fault.reason}};
        }
        sayJson({{QStringLiteral("ok"), false}, {QStringLiteral("faults"), list}});
        return somethingFound;
    }
    complain(QStringLiteral("%1 is refused:").arg(wish.house));
    for (const fault_t& fault : faults) {
        complain(QStringLiteral("  %1 %2").arg(fault.place, fault.reason));
    }
    return somethingFound;
}

bool hasPassword(const house_plan_t& plan)
{
    return (plan.cloud && !plan.cloud->broker.password.isEmpty()) ||
           std::any_of(plan.boxes.begin(), plan.boxes.end(),
                       [](const box_t& box) { return !box.broker.password.isEmpty(); });
}

QString shapeOf(const house_plan_t& plan)
{
    const QString lanes = plan.lanes == 2 ? QStringLiteral("two lanes") : QStringLiteral("one lane");
    const QString shape = plan.shape == shape_t::mesh      ? QStringLiteral("a mesh")
                          : plan.shape == shape_t::outOnly ? QStringLiteral("out only")
                                                           : QStringLiteral("a star around box ") + plan.hub;
    return QStringLiteral("Installation %1: %2 box%3, %4 with %5, %6default master on box %7.")
        .arg(plan.installationId)
        .arg(plan.boxes.size())
        .arg(QLatin1String(plan.boxes.size() == 1 ? "" : "es"), shape, lanes,
             plan.cloud ? QStringLiteral("a cloud broker, ") : QString(), plan.boxes[plan.masterIndex()].server);
}

/// What is to be done at one box.
QStringList advice(const house_plan_t& plan, int box, const QString& file)
{
    QStringList dialled;
    QStringList dialling;
    bool secret = false;
    for (const bridge_t& bridge : bridgesOf(plan)) {
        const bool cloud = bridge.to == bridge_t::cloud;
        const QString there = cloud ? QStringLiteral("the cloud broker") : plan.boxes[bridge.to].server;
        if (bridge.from == box) {
            dialled << there;
            secret = secret || !(cloud ? plan.cloud->broker : plan.boxes[bridge.to].broker).password.isEmpty();
        } else if (bridge.to == box) {
            dialling << plan.boxes[bridge.from].server;
        }
    }
    dialled.removeDuplicates();
    dialling.removeDuplicates();
    QStringList lines{QStringLiteral("Box %1, %2").arg(plan.boxes[box].server, file)};
    if (dialled.isEmpty()) {
        lines << QStringLiteral("  Nothing to dial from here. Take older bridges away from its mosquitto.");
    } else {
        lines << QStringLiteral(
                     "  Dials %1. Copy the file to /etc/mosquitto/conf.d/house-bridges.conf on this box%2, take "
                     "older bridges away and restart its mosquitto.")
                     .arg(dialled.join(QStringLiteral(", ")),
                          secret ? QStringLiteral(" (owner root or mosquitto, mode 0600: it holds passwords)")
                                 : QString());
    }
    if (!dialling.isEmpty()) {
        lines << QStringLiteral("  Is dialled by %1: its mosquitto needs a listener that they reach on port %2.")
                     .arg(dialling.join(QStringLiteral(", ")))
                     .arg(plan.boxes[box].broker.port);
    }
    lines << QStringLiteral("  Its server has the client id tarnel-server-%1 and is %2default master.")
                 .arg(plan.boxes[box].server, QLatin1String(box == plan.masterIndex() ? "the " : "not "));
    return lines;
}

bool isForeign(const QString& path)
{
    QFile file(path);
    return file.exists() &&
           !(file.open(QIODevice::ReadOnly) && QString::fromUtf8(file.readLine()).trimmed() == bridgeLinesMark());
}

bool writeFile(const QString& path, const QString& text, bool secret)
{
    const auto mine = QFileDevice::ReadOwner | QFileDevice::WriteOwner;
    QSaveFile file(path); // has the mode of a file that was there
    return file.open(QIODevice::WriteOnly) &&
           file.setPermissions(secret ? mine : mine | QFileDevice::ReadGroup | QFileDevice::ReadOther) &&
           file.write(text.toUtf8()) >= 0 && file.commit();
}

int write(const house_plan_t& plan, const wish_t& wish)
{
    const QDir directory(wish.directory);
    if (!directory.mkpath(QStringLiteral("."))) {
        complain(QStringLiteral("The directory %1 cannot be made.").arg(wish.directory));
        return misused;
    }
    QStringList paths;
    QVector<fault_t> foreign;
    for (const box_t& box : plan.boxes) {
        paths << directory.filePath(QStringLiteral("box-%1.conf").arg(box.server));
        if (!wish.force && isForeign(paths.last())) {
            foreign << fault_t{paths.last(),
                               QStringLiteral("is there and was not written by this command; nothing is written "
                                              "(--force overwrites it)")};
        }
    }
    if (!foreign.isEmpty()) {
        return refuse(wish, foreign);
    }
    QJsonArray files;
    QStringList words{shapeOf(plan)};
    for (int box = 0; box < plan.boxes.size(); ++box) {
        const QString text = bridgeLines(plan, box);
        if (!writeFile(paths[box], text, text.contains(QLatin1String("\nremote_password ")))) {
            complain(QStringLiteral("%1 cannot be written.").arg(paths[box]));
            return misused;
        }
        words << QString() << advice(plan, box, paths[box]);
        files << QJsonObject{{QStringLiteral("box"), plan.boxes[box].server}, {QStringLiteral("file"), paths[box]}};
    }
    words << QString() << QStringLiteral("Then try them: flotrofobul bridges --check %1").arg(wish.house);
    if (wish.json) {
        sayJson({{QStringLiteral("ok"), true}, {QStringLiteral("files"), files}});
    } else {
        say(words.join(QLatin1Char('\n')));
    }
    return allFine;
}

int check(const house_plan_t& plan, const wish_t& wish)
{
    bridge_check_t check(plan, wish.caFile, wish.times);
    QObject::connect(&check, &bridge_check_t::finished, qApp, &QCoreApplication::quit, Qt::QueuedConnection);
    check.start();
    QCoreApplication::exec();
    const QVector<finding_t> findings = findingsOf(plan, check.result());
    if (wish.json) {
        sayJson(jsonOf(check.result(), findings));
    } else {
        say(wordsOf(check.result(), findings).join(QLatin1Char('\n')));
    }
    return findings.isEmpty() ? allFine : somethingFound;
}

} // namespace

int runBridges(const QStringList& arguments)
{
    QCommandLineParser options;
    options.setApplicationDescription(QStringLiteral(
        "Looks at the description of a house of several boxes. With --out it writes the bridge lines for each box's\n"
        "mosquitto, with --check it connects to every broker and tries them: what one says, every other has to hear\n"
        "once. docs/bridges.md has the keys of the description.\n\n"
        "Exit codes: 0 all is fine; 1 something was found or refused; 2 wrong usage."));
    options.addPositionalArgument(QStringLiteral("bridges"), QString());
    options.clearPositionalArguments();
    options.addPositionalArgument(QStringLiteral("HOUSE.json"), QStringLiteral("Description of the house."),
                                  QStringLiteral("bridges HOUSE.json"));
    const QCommandLineOption out(
        QStringLiteral("out"), QStringLiteral("Write one file for each box to this directory."), QStringLiteral("DIR"));
    const QCommandLineOption force(QStringLiteral("force"),
                                   QStringLiteral("Overwrite files that this command has not written."));
    const QCommandLineOption checkIt(QStringLiteral("check"), QStringLiteral("Try the bridges of the running house."));
    const QCommandLineOption timeout(
        QStringLiteral("timeout"),
        QStringLiteral("How long to wait for a broker, and for what is missing; default 10."),
        QStringLiteral("seconds"), QStringLiteral("10"));
    const QCommandLineOption caFile(QStringLiteral("ca-file"),
                                    QStringLiteral("Trusted certificates on this machine, for --check."),
                                    QStringLiteral("FILE"));
    const QCommandLineOption json(QStringLiteral("json"), QStringLiteral("Print the result as JSON."));
    options.addOptions({out, force, checkIt, timeout, caFile, json});
    if (const auto code = readOptions(options, arguments)) {
        return *code;
    }
    bool isNumber = false;
    const int seconds = options.value(timeout).toInt(&isNumber);
    const bool contradiction = options.isSet(out) && options.isSet(checkIt);
    if (options.positionalArguments().size() != 1 || contradiction || !isNumber || seconds < 1 || seconds > 600) {
        complain(contradiction ? QStringLiteral("Either --out or --check: the files have to be in place first.")
                 : options.positionalArguments().size() != 1
                     ? QStringLiteral("Exactly one description is needed: flotrofobul bridges HOUSE.json")
                     : QStringLiteral("--timeout takes 1 to 600 seconds."));
        return misused;
    }

    wish_t wish{options.positionalArguments().at(0),
                options.value(out),
                options.value(caFile),
                options.isSet(force),
                options.isSet(json),
                {}};
    wish.times.patience = std::chrono::seconds(seconds);
    QFile file(wish.house);
    if (!file.open(QIODevice::ReadOnly)) {
        complain(QStringLiteral("%1 cannot be read: %2").arg(wish.house, file.errorString()));
        return misused;
    }
    const reading_t reading = readHousePlan(file.readAll());
    if (!reading.faults.isEmpty()) {
        return refuse(wish, reading.faults);
    }
    if (hasPassword(reading.plan) && (file.permissions() & (QFileDevice::ReadOther | QFileDevice::ReadGroup)) != 0) {
        complain(QStringLiteral("%1 holds passwords and others can read it: chmod 600 %1").arg(wish.house));
    }
    if (options.isSet(checkIt)) {
        return check(reading.plan, wish);
    }
    if (options.isSet(out)) {
        return write(reading.plan, wish);
    }
    if (wish.json) {
        sayJson({{QStringLiteral("ok"), true}});
    } else {
        say(shapeOf(reading.plan) + QStringLiteral("\nThe description is fine; --out DIR writes its bridges, --check "
                                                   "tries them."));
    }
    return allFine;
}

} // namespace tools
} // namespace comunication
