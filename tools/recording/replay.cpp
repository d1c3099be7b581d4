// SPDX-License-Identifier: MIT
// flotrofobul replay: says at a broker what a recording holds, in its order and at its speed.
#include "command.h"
#include "connection/dialling.h"
#include "connection/ending.h"
#include "recording/recording.h"

#include <flotrofobul/platform/mosquittopp/mosquittoqt.h>

#include <QtCore/QElapsedTimer>
#include <QtCore/QSet>
#include <QtCore/QTimer>

#include <algorithm>

namespace comunication {
namespace tools {

using mosquittopp::mosquittoqt;

namespace {

constexpr int mostUnderWay = 2000; // packets that the broker has not taken over; more only wait in memory
constexpr int mostInOneTurn = 200;
constexpr int keepalive = 60;                        // seconds
constexpr std::chrono::milliseconds farewell{10000}; // for what is under way in the end

class replay_t : public QObject {
public:
    replay_t(const connection_t& givenConnection, recording_t& givenRecording, double givenSpeed)
        : connection(givenConnection), recording(givenRecording), speed(givenSpeed), client(strangerId(), true, true)
    {
        connect(&client, &mosquittoqt::onConnect, this, [this](int rc) { rc == 0 ? begin() : lose(); });
        connect(&client, &mosquittoqt::onDisconnect, this, [this] { lose(); });
        connect(&client, &mosquittoqt::onPublish, this, [this](int mid) {
            underWay.remove(mid);
            twice.remove(mid);
            go();
        });
        due.setTimerType(Qt::PreciseTimer);
        due.setSingleShot(true);
        connect(&due, &QTimer::timeout, this, &replay_t::go);
    }

    void start()
    {
        if (dial(client, connection, keepalive) != 0) {
            QTimer::singleShot(0, this, [this] { lose(); });
        }
    }

    [[nodiscard]] bool isWhole() const { return refused == 0 && !recording.isBroken(); }

    void sum()
    {
        if (!clock.isValid()) {
            return;
        }
        say(QStringLiteral("%1 packets in %2 s; they took %3 s when they were recorded%4.")
                .arg(count)
                .arg(double(spent) / 1000, 0, 'f', 3)
                .arg(double(last - first) / 1000, 0, 'f', 3)
                .arg(brokersOwn > 0 ? QStringLiteral("; %1 of the broker itself ($SYS) are left out").arg(brokersOwn)
                                    : QString()));
        if (latest > 100) {
            complain(QStringLiteral("The broker or this machine was too slow: up to %1 ms late.").arg(latest));
        }
        if (refused > 0) {
            complain(QStringLiteral("%1 packets have a topic that cannot be published and are left out.").arg(refused));
        }
        if (!recording.problem().isEmpty()) {
            complain(QStringLiteral("The recording ") + recording.problem() + QLatin1Char('.'));
        }
        client.disconnect_sync();
    }

private:
    void lose()
    {
        complain(problemAt(connection.name(), client.linkProblem()));
        // Later packets would come at another time than recorded.
        QCoreApplication::exit(somethingFound);
    }

    void begin()
    {
        fetch();
        first = pending ? pending->at : 0;
        last = first;
        clock.start();
        go();
    }

    void fetch()
    {
        while ((pending = recording.next()) && pending->packet.topic.startsWith(QLatin1Char('$'))) {
            ++brokersOwn;
        }
    }

    // By the clock since the beginning: a delay of one packet does not move the next.
    void go()
    {
        if (!clock.isValid()) {
            return;
        }
        for (int turn = 0; pending; ++turn) {
            const auto moment = static_cast<qint64>(double(pending->at - first) / speed);
            const qint64 wait = moment - clock.elapsed();
            if (wait > 0 || turn == mostInOneTurn) {
                due.start(static_cast<int>(std::clamp<qint64>(wait, 0, 3600000)));
                return;
            }
            // A broker passes on at once what has a lower quality of service: it would overtake.
            const packet_t& packet = pending->packet;
            if (underWay.size() >= mostUnderWay || (packet.qos < 2 && !twice.isEmpty())) {
                return; // goes on with the next acknowledgement
            }
            int mid = 0;
            const int rc = client.publishRaw(&mid, packet.topic, packet.payload, packet.qos, packet.retain);
            if (rc == 0) {
                underWay.insert(mid);
                if (packet.qos == 2) {
                    twice.insert(mid);
                }
                ++count;
            } else {
                ++refused;
            }
            latest = std::max(latest, -wait);
            last = pending->at;
            spent = clock.elapsed();
            fetch();
        }
        if (underWay.isEmpty()) {
            QCoreApplication::exit(allFine);
        } else if (!isLeaving) {
            isLeaving = true;
            QTimer::singleShot(farewell, this, [this] {
                complain(QStringLiteral("%1 packets are not confirmed by the broker.").arg(underWay.size()));
                QCoreApplication::exit(somethingFound);
            });
        }
    }

    const connection_t connection;
    recording_t& recording;
    const double speed;
    mosquittoqt client;
    QTimer due;
    QElapsedTimer clock; ///< since the first packet
    std::optional<recorded_t> pending;
    QSet<int> underWay;
    QSet<int> twice; ///< those of them with quality of service 2
    bool isLeaving = false;
    qint64 first = 0;
    qint64 last = 0;
    qint64 spent = 0;
    qint64 latest = 0; ///< how late a packet was
    qint64 count = 0;
    qint64 refused = 0;
    qint64 brokersOwn = 0;
};

// Several names of this machine are one.
QString plainName(const QString& broker)
{
    QString name = broker.toLower();
    for (const char* const self : {"localhost:", "[::1]:"}) {
        if (name.startsWith(QLatin1String(self))) {
            name = QStringLiteral("127.0.0.1:") + name.mid(static_cast<int>(qstrlen(self)));
        }
    }
    return name;
}

} // namespace

int runReplay(const QStringList& arguments)
{
    QCommandLineParser options;
    options.setApplicationDescription(QStringLiteral(
        "Says at a broker what \"flotrofobul record\" has recorded: in its order and at its speed, what the broker "
        "said\nof itself ($SYS) left out. Nodes at that broker take it for real: use a broker of its own, such as\n\n"
        "  /usr/sbin/mosquitto -p 18830 &\n"
        "  flotrofobul replay --host 127.0.0.1:18830 monday.rec\n\n"
        "Exit codes: 0 all was said; 1 not all: no broker, a real one without --yes, a broken line, a signal; 2 wrong "
        "usage."));
    options.addPositionalArgument(QStringLiteral("FILE"), QStringLiteral("The recording."));
    addConnectionOptions(options);
    const QCommandLineOption speedOption(QStringLiteral("speed"), QStringLiteral("Times as fast (default 1)."),
                                         QStringLiteral("N"), QStringLiteral("1"));
    const QCommandLineOption yes(QStringLiteral("yes"),
                                 QStringLiteral("Also at the broker that was recorded, where real nodes hear it."));
    options.addOptions({speedOption, yes});
    if (const auto code = readOptions(options, arguments)) {
        return *code;
    }
    bool isNumber = false;
    const double speed = options.value(speedOption).toDouble(&isNumber);
    if (options.positionalArguments().size() != 1 || !isNumber || !(speed >= 0.001 && speed <= 100000)) {
        complain(options.positionalArguments().size() != 1
                     ? QStringLiteral("Exactly one recording is needed: flotrofobul replay FILE")
                     : QStringLiteral("--speed takes 0.001 to 100000."));
        return misused;
    }
    const auto connection = readConnection(options, installation_t::optional);
    if (!connection) {
        return misused;
    }
    const QString path = options.positionalArguments().at(0);
    recording_t recording(path);
    if (!recording.open()) {
        complain(QStringLiteral("%1 %2.").arg(path, recording.problem()));
        return misused;
    }
    if (!options.isSet(yes) && plainName(recording.heading().broker) == plainName(connection->name())) {
        complain(QStringLiteral("%1 is the broker that was recorded: the real nodes there would take old packets for "
                                "new ones, commands too.\nName another broker with --host, or say --yes.")
                     .arg(connection->name()));
        return somethingFound;
    }
    replay_t replay(*connection, recording, speed);
    ending_t ending(std::chrono::milliseconds(0));
    QObject::connect(&ending, &ending_t::asked, [] { QCoreApplication::exit(somethingFound); });
    replay.start();
    const int code = QCoreApplication::exec();
    replay.sum();
    return code == allFine && !replay.isWhole() ? static_cast<int>(somethingFound) : code;
}

} // namespace tools
} // namespace comunication
