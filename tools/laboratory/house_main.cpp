// SPDX-License-Identifier: MIT
// The command flotrofobul-house: a house of real processes on this machine, to be looked at, tormented or measured.
#include "laboratory/occasions.h"

#include <flotrofobul/platform/logs/classlogs.h>

#include <QtCore/QCommandLineParser>
#include <QtCore/QCoreApplication>
#include <QtCore/QJsonDocument>
#include <QtCore/QRandomGenerator>
#include <QtCore/QTextStream>

namespace {

QString optionText(const char* text)
{
    return QString::fromUtf8(text);
}

struct options_t : QCommandLineParser {
    options_t()
    {
        setApplicationDescription(
            optionText("Builds a house of several boxes from real brokers, servers and panels on "
                       "this machine, and shows how it lives.\n"
                       "Ends with 0 when everything was as it should be. Nothing is left behind."));
        addHelpOption();
        addPositionalArgument(optionText("shape"),
                              laboratory_t::shapes().join(QStringLiteral(", ")) +
                                  optionText(": how the boxes are joined; default two-lanes."),
                              optionText("[shape]"));
        const auto add = [this](const char* name, const char* text, const char* value = "", const char* preset = "") {
            addOption({optionText(name), optionText(text), optionText(value), optionText(preset)});
        };
        add("boxes", "Number of boxes, 1 to 7; default 3.", "number", "3");
        add("delay", "Delay of all links, each way; default 0.", "ms", "0");
        add("cloud", "With a broker outside the house.");
        add("keeper", "Whether the servers keep the house with one master; default on.", "on|off", "on");
        add("times", "Further keys of the servers' section \"house\".", "json", "{}");
        add("server", "The program of the servers; default: one of the laboratory.", "program");
        add("panel", "The program of the panels; default: one of the laboratory.", "program");
        add("soak", "Random histories for so long.", "minutes");
        add("histories", "Random histories, so many.", "number");
        add("seed", "Of the first random history; default: at random.", "number");
        add("targets", "Measures what a house promises.");
        add("runs", "How often each row is measured; default 3.", "number", "3");
        add("only", "Only rows with this word.", "word");
        add("verbose", "Tells everything that happens.");
    }
    QString text(const char* name) const { return value(optionText(name)); }
    bool has(const char* name) const { return isSet(optionText(name)); }
    /// Ends the program if it is no number within the bounds.
    int number(const char* name, int least, int most)
    {
        bool isNumber = false;
        const int result = text(name).toInt(&isNumber);
        if (!isNumber || result < least || result > most) {
            qCritical("--%s: a number from %d to %d", name, least, most);
            std::exit(2);
        }
        return result;
    }
};

} // namespace

void print(const QString& line)
{
    QTextStream(stdout) << line << Qt::endl;
}

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    options_t options;
    options.process(app);
    ::utility::logs::classlogs::getInstance()->setLevel(::utility::logs::fatal); // the ears lose brokers all the time

    house_t house;
    house.shape = options.positionalArguments().value(0, house.shape);
    const QString keeper = options.text("keeper");
    const QJsonDocument times = QJsonDocument::fromJson(options.text("times").toUtf8());
    if (!laboratory_t::shapes().contains(house.shape) || options.positionalArguments().size() > 1 ||
        (keeper != QLatin1String("on") && keeper != QLatin1String("off")) || !times.isObject()) {
        options.showHelp(2);
    }
    house.boxes = options.number("boxes", 1, 7);
    house.cloud = options.has("cloud");
    house.keeper = keeper == QLatin1String("on");
    house.keeperTimes = times.object();
    house.serverProgram = options.text("server");
    house.panelProgram = options.text("panel");

    if (options.has("targets")) {
        return measureTargets(house, options.number("runs", 1, 1000), options.text("only"), options.has("verbose"));
    }
    if (options.has("soak") || options.has("histories")) {
        soak_t how;
        how.time = std::chrono::minutes(options.has("soak") ? options.number("soak", 1, 100000) : 0);
        how.histories = options.has("histories") ? options.number("histories", 1, 1000000) : 0;
        how.seed = options.has("seed") ? static_cast<quint32>(options.number("seed", 0, 1000000000))
                                       : QRandomGenerator::global()->bounded(1000000U);
        how.verbose = options.has("verbose");
        return soak(house, how);
    }
    return showHouse(house, options.number("delay", 0, 10000));
}
