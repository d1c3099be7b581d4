// SPDX-License-Identifier: MIT
// flotrofobul watch: listens to a house and shows who is there, or every packet. It never says a word itself.
#include "command.h"
#include "connection/ending.h"
#include "connection/listener.h"
#include "watch/house_picture.h"
#include "watch/packet_lines.h"
#include "watch/screen.h"

#include <QtCore/QDateTime>
#include <QtCore/QJsonDocument>
#include <QtCore/QMap>
#include <QtCore/QTimer>

#include <cerrno>
#include <memory>
#include <vector>

#include <unistd.h>

namespace comunication {
namespace tools {

namespace {

using house::house_event_t;
using house::moment_t;

constexpr std::chrono::milliseconds redraw{1000};     // so that times go on
constexpr std::chrono::milliseconds afterChange{100}; // but a change is seen at once

enum class form_t { picture, lines, json, packets, packetsAsJson };

moment_t now()
{
    return moment_t(QDateTime::currentMSecsSinceEpoch());
}

/// A run of the subcommand.
class watch_t : public QObject {
public:
    watch_t(const QVector<connection_t>& connections, form_t givenForm)
        : form(givenForm), house(connections[0].installationId)
    {
        title = QStringLiteral("flotrofobul watch");
        for (const connection_t& connection : connections) {
            title += QLatin1Char(' ') + connection.name();
        }
        if (!connections[0].installationId.isEmpty()) {
            title += QStringLiteral("  installation ") + connections[0].installationId;
        }
        const bool showsPackets = form == form_t::packets || form == form_t::packetsAsJson;
        for (const connection_t& connection : connections) {
            // Without a look at single packets their quality of service is of no use, and costs the broker.
            listeners.push_back(std::make_unique<listener_t>(connection, showsPackets ? 2 : 0));
            listener_t* const listener = listeners.back().get();
            connect(listener, &listener_t::ready, this, [=] { noteReady(*listener); });
            connect(listener, &listener_t::problem, this, [=](const QString& words) { noteProblem(*listener, words); });
            connect(listener, &listener_t::failed, this, [=](const QString& words) { noteFailed(*listener, words); });
            if (showsPackets) {
                connect(listener, &listener_t::tooLong, this,
                        [](const QString&, int, const QString& words) { complain(harmless(words)); });
            }
            const int source = static_cast<int>(listeners.size());
            connect(listener, &listener_t::heard, this, [=](const packet_t& packet) {
                if (showsPackets) {
                    showPacket(packet);
                } else {
                    house.take(moment_t(packet.moment), packet.topic, packet.payload, packet.qos, packet.retain,
                               source);
                }
            });
        }
        connect(&drawing, &QTimer::timeout, this, [this] {
            drawing.start(redraw);
            draw();
        });
        house.setObserver([this] { noteChange(); });
    }

    void start()
    {
        for (const auto& listener : listeners) {
            listener->start();
        }
    }

    /// Says what is known in the end, where that was not on the screen.
    int finish()
    {
        for (const auto& listener : listeners) {
            listener->stop();
        }
        screen.leave();
        if (form == form_t::picture || form == form_t::lines) {
            frame_t frame{title, problemText(), 1000, 0};
            frame.columns = form == form_t::picture ? screen_t::columns() : frame.columns;
            for (const QString& row : pictureOf(house, now(), frame)) {
                say(row.startsWith(QLatin1Char('!')) ? row.mid(1) : row);
            }
        } else if (form == form_t::json) {
            print(jsonOf(house, now()));
        }
        return wasReady ? allFine : somethingFound;
    }

private:
    // Whoever reads may have had enough, as "head" does.
    static void put(const QByteArray& bytes)
    {
        if (!writeAll(STDOUT_FILENO, bytes)) {
            resultIsLost = resultIsLost || errno != EPIPE;
            QCoreApplication::exit(resultIsLost ? somethingFound : allFine);
        }
    }

    static void print(const QJsonObject& object)
    {
        put(harmlessJson(QJsonDocument(object).toJson(QJsonDocument::Compact)) + '\n');
    }

    void noteReady(const listener_t& listener)
    {
        if (form != form_t::picture) {
            complain(QStringLiteral("Listening at %1.").arg(listener.name()));
        }
        wasReady = true;
        problems.remove(listener.name());
        noteChange();
    }

    void noteProblem(const listener_t& listener, const QString& words)
    {
        if (form != form_t::picture && problems.value(listener.name()) != words) {
            complain(words);
        }
        problems[listener.name()] = words;
        if (listeners.size() == 1) {
            house.forgetBridges(); // told anew with the next session
        }
        noteChange();
    }

    void noteFailed(const listener_t& listener, const QString& words)
    {
        complain(words);
        problems[listener.name()] = words;
        if (++failed == static_cast<int>(listeners.size())) {
            QCoreApplication::exit(somethingFound);
        }
    }

    void noteChange()
    {
        if (form == form_t::picture) {
            if (wasReady && !(drawing.isActive() && drawing.remainingTimeAsDuration() < afterChange)) {
                drawing.start(afterChange);
            }
            return;
        }
        // One change may bring several events.
        const QVector<house_event_t>& events = house.events();
        for (auto event = std::upper_bound(events.begin(), events.end(), told,
                                           [](quint64 number, const house_event_t&one) { return number < one.number; });
             event != events.end(); ++event) {
            if (form == form_t::json) {
                print(jsonOf(*event));
            } else {
                put(lineOf(*event).toUtf8() + '\n');
            }
            told = event->number;
        }
    }

    void showPacket(const packet_t& packet)
    {
        line.resize(0); // keeps its memory
        packet_t shown = packet;
        hideSecrets(shown);
        if (form == form_t::packets) {
            appendWords(line, shown);
        } else {
            const QString time = QDateTime::fromMSecsSinceEpoch(packet.moment, Qt::UTC).toString(Qt::ISODateWithMs);
            appendJson(line, "time", '"' + time.toLatin1() + '"', shown);
        }
        put(form == form_t::packets ? line : harmlessJson(line));
    }

    QString problemText() const { return problems.values().join(QStringLiteral("; ")); }

    void draw() { screen.show(pictureOf(house, now(), {title, problemText(), screen_t::columns(), screen_t::rows()})); }

    const form_t form;
    QString title;
    house::house_model_t house;
    std::vector<std::unique_ptr<listener_t>> listeners;
    QMap<QString, QString> problems; ///< by broker
    bool wasReady = false;
    int failed = 0;
    quint64 told = 0; ///< number of the last event that was printed
    QByteArray line;
    QTimer drawing;
    screen_t screen;
};

} // namespace

int runWatch(const QStringList& arguments)
{
    QCommandLineParser options;
    options.setApplicationDescription(QStringLiteral(
        "Listens to a house and says nothing itself: who is there, who is master, which bridges are up, what happens.\n"
        "On a terminal a table that stays in place, until Ctrl-C; elsewhere a line for whatever happens, and the table "
        "in\nthe end. A node is known from the first packet that it sends.\n\n"
        "  flotrofobul watch --host box1 --installation house1\n"
        "  flotrofobul watch --config house.json --packets | grep request\n\n"
        "Exit codes: 0 it has listened; 1 no broker; 2 wrong usage."));
    addConnectionOptions(options);
    addTimeOption(options);
    const QCommandLineOption packets(QStringLiteral("packets"),
                                     QStringLiteral("Every packet, a line each: time, quality of service (r: "
                                                    "retained), topic, payload; no passwords."));
    const QCommandLineOption lines(QStringLiteral("lines"), QStringLiteral("Lines also on a terminal."));
    const QCommandLineOption json(QStringLiteral("json"),
                                  QStringLiteral("One JSON object a line; the last one is the state of the house."));
    options.addOptions({packets, lines, json});
    if (const auto code = readOptions(options, arguments)) {
        return *code;
    }
    if (!options.positionalArguments().isEmpty()) {
        complain(QStringLiteral("What is \"%1\"? All of watch are options: see \"flotrofobul watch --help\".")
                     .arg(options.positionalArguments().at(0)));
        return misused;
    }
    const auto time = readTime(options);
    const auto connections = time ? readConnections(options, installation_t::optional) : std::nullopt;
    if (!connections) {
        return misused;
    }
    const bool asJson = options.isSet(json);
    const form_t form = options.isSet(packets) ? (asJson ? form_t::packetsAsJson : form_t::packets)
                        : asJson               ? form_t::json
                        : options.isSet(lines) || !screen_t::isThere() ? form_t::lines
                                                                       : form_t::picture;
    watch_t watch(*connections, form);
    ending_t ending(*time);
    QObject::connect(&ending, &ending_t::asked, [] { QCoreApplication::exit(allFine); });
    watch.start();
    const int code = QCoreApplication::exec();
    return code == allFine ? watch.finish() : code;
}

} // namespace tools
} // namespace comunication
