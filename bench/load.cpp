// SPDX-License-Identifier: MIT
// Runs the load in interleaved rounds, each in a process of its own, and compares the engines with libmosquitto alone:
// medians with minimum and maximum, and the ratio of the medians.
#include "load.h"

#include <flotrofobul/testkit/broker.h>

#include <QtCore/QCommandLineParser>
#include <QtCore/QCoreApplication>
#include <QtCore/QFile>
#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QMap>
#include <QtCore/QProcess>
#include <QtCore/QVector>

#include <sched.h>

#include <algorithm>
#include <chrono>
#include <cstdio>

using comunication::testkit::broker_t;

namespace {

constexpr std::chrono::duration<int, std::milli> longestRound{60000};

double quantile(QVector<double> values, double share)
{
    if (values.isEmpty()) {
        return 0;
    }
    std::sort(values.begin(), values.end());
    return values[qRound(share * (values.size() - 1))];
}

void pinTo(int core, qint64 process = 0)
{
    cpu_set_t cores;
    CPU_ZERO(&cores);
    CPU_SET(core, &cores);
    sched_setaffinity(static_cast<pid_t>(process), sizeof cores, &cores);
}

// Runs one round in this process and prints its figures as one line of JSON.
int runRound(const QString& kind, const load_t& load)
{
    const load_result_t result = kind == QLatin1String("engine") ? runEngines(load) : runPlain(load);
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const QJsonObject figures{{QStringLiteral("messages_per_second"), load.messages / result.seconds},
                              {QStringLiteral("cpu_us_per_message"), result.cpuSeconds * 1e6 / load.messages},
                              {QStringLiteral("p50_us"), quantile(result.microseconds, 0.5)},
                              {QStringLiteral("p99_us"), quantile(result.microseconds, 0.99)},
                              {QStringLiteral("peak_kib"), static_cast<double>(usage.ru_maxrss)}};
    std::puts(QJsonDocument(figures).toJson(QJsonDocument::Compact).constData());
    return 0;
}

struct scenario_t {
    const char* name;
    int messages;
    int window;
    int burst;
    int qos;
    bool oneCore;
    QStringList figures;
};

using figures_t = QMap<QString, QVector<double>>;

QJsonObject runChild(const char* kind, const scenario_t& scenario, quint16 port)
{
    QProcess child;
    child.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    child.start(QCoreApplication::applicationFilePath(),
                {QStringLiteral("--round"), QLatin1String(kind), QStringLiteral("--port"), QString::number(port),
                 QStringLiteral("--messages"), QString::number(scenario.messages), QStringLiteral("--window"),
                 QString::number(scenario.window), QStringLiteral("--burst"), QString::number(scenario.burst),
                 QStringLiteral("--qos"), QString::number(scenario.qos), QStringLiteral("--core"),
                 QString::number(scenario.oneCore ? 0 : -1)});
    if (!child.waitForFinished(longestRound.count()) || child.exitCode() != 0) {
        std::fprintf(stderr, "%s: the %s round failed\n", scenario.name, kind);
        std::exit(1);
    }
    return QJsonDocument::fromJson(child.readAllStandardOutput()).object();
}

QJsonObject summary(const QVector<double>& values)
{
    return {{QStringLiteral("median"), quantile(values, 0.5)},
            {QStringLiteral("min"), quantile(values, 0)},
            {QStringLiteral("max"), quantile(values, 1)}};
}

QJsonObject report(const scenario_t& scenario, QMap<QString, figures_t> sides, bool table)
{
    QJsonObject all;
    for (const QString& figure : scenario.figures) {
        const QVector<double>& engine = sides[QStringLiteral("engine")][figure];
        const QVector<double>& plain = sides[QStringLiteral("plain")][figure];
        const double ratio = quantile(engine, 0.5) / quantile(plain, 0.5);
        all[figure] = QJsonObject{{QStringLiteral("engine"), summary(engine)},
                                  {QStringLiteral("plain"), summary(plain)},
                                  {QStringLiteral("ratio"), ratio}};
        if (table) {
            std::printf("%-22s %-20s %10.1f (%.1f to %.1f)   %10.1f (%.1f to %.1f)   %6.2f\n", scenario.name,
                        qPrintable(figure), quantile(engine, 0.5), quantile(engine, 0), quantile(engine, 1),
                        quantile(plain, 0.5), quantile(plain, 0), quantile(plain, 1), ratio);
        }
    }
    return all;
}

int runAll(int rounds, bool quick, const QString& jsonFile)
{
    const int factor = quick ? 1 : 4;
    const scenario_t scenarios[] = {
        {"throughput, QoS 2",
         5000 * factor,
         20,
         0,
         2,
         false,
         {QStringLiteral("messages_per_second"), QStringLiteral("cpu_us_per_message"), QStringLiteral("peak_kib")}},
        {"the same at QoS 0",
         5000 * factor,
         20,
         0,
         0,
         false,
         {QStringLiteral("messages_per_second"), QStringLiteral("cpu_us_per_message")}},
        {"one in flight, 1 core", 1000 * factor, 1, 0, 2, true, {QStringLiteral("p50_us"), QStringLiteral("p99_us")}},
        {"bursts of five", 250 * factor, 20, 5, 2, false, {QStringLiteral("p50_us"), QStringLiteral("p99_us")}},
    };
    std::printf("%-22s %-20s %-31s   %-31s   %6s\n", "scenario", "figure", "engine: median (min to max)",
                "plain: median (min to max)", "ratio");
    QJsonObject all;
    for (const scenario_t& scenario : scenarios) {
        broker_t broker;
        if (!broker.start()) {
            return 1;
        }
        if (scenario.oneCore) {
            pinTo(0, broker.processId());
        }
        QMap<QString, figures_t> sides;
        for (int round = 0; round < rounds; ++round) {
            for (const char* const kind : {"engine", "plain"}) {
                const QJsonObject figures = runChild(kind, scenario, broker.port());
                for (auto figure = figures.begin(); figure != figures.end(); ++figure) {
                    sides[QLatin1String(kind)][figure.key()].append(figure.value().toDouble());
                }
            }
        }
        all[QLatin1String(scenario.name)] = report(scenario, sides, true);
    }
    if (!jsonFile.isEmpty()) {
        QFile file(jsonFile);
        if (!file.open(QIODevice::WriteOnly) || file.write(QJsonDocument(all).toJson()) < 0) {
            std::fprintf(stderr, "cannot write %s\n", qPrintable(jsonFile));
            return 1;
        }
    }
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    QCommandLineParser options;
    options.addHelpOption();
    const auto add = [&options](const char* name, const char* description, const char* initial) {
        options.addOption(
            {QLatin1String(name), QLatin1String(description), QLatin1String(name), QLatin1String(initial)});
    };
    add("rounds", "rounds of each side", "7");
    add("json", "write the figures to a file as JSON", "");
    options.addOption({QStringLiteral("quick"), QStringLiteral("fewer messages")});
    add("round", "one round of \"engine\" or \"plain\" in this process", "");
    add("port", "broker of the round", "0");
    add("messages", "messages of the round", "1000");
    add("window", "publications in flight", "20");
    add("burst", "publications at once", "0");
    add("qos", "quality of service of the publications", "2");
    add("core", "core to run on", "-1");
    options.process(application);
    const auto number = [&options](const char* name) { return options.value(QLatin1String(name)).toInt(); };

    if (options.isSet(QStringLiteral("round"))) {
        if (number("core") >= 0) {
            pinTo(number("core"));
        }
        load_t load;
        load.port = static_cast<quint16>(number("port"));
        load.messages = number("messages");
        load.window = number("window");
        load.burst = number("burst");
        load.qos = number("qos");
        return runRound(options.value(QStringLiteral("round")), load);
    }
    return runAll(number("rounds"), options.isSet(QStringLiteral("quick")), options.value(QStringLiteral("json")));
}
