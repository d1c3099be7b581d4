// SPDX-License-Identifier: MIT
// flotrofobul record: writes every packet of a house to a file.
#include "command.h"
#include "connection/ending.h"
#include "recording/recording.h"
#include "watch/screen.h"

#include <QtCore/QDateTime>
#include <QtCore/QElapsedTimer>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

namespace comunication {
namespace tools {

namespace {

class record_t : public QObject {
public:
    record_t(const connection_t& connection, int givenFile, const QString& givenPath)
        : listener(connection), heading{connection.name(), connection.installationId, 0}, file(givenFile),
          path(givenPath)
    {
        connect(&listener, &listener_t::ready, this, &record_t::begin);
        connect(&listener, &listener_t::failed, this, [](const QString& words) {
            complain(words);
            QCoreApplication::exit(somethingFound);
        });
        connect(&listener, &listener_t::problem, this, [this](const QString& words) {
            if (!isAway) {
                isAway = true;
                note({{QStringLiteral("lost"), words}});
                complain(words);
            }
        });
        connect(&listener, &listener_t::heard, this, &record_t::take);
        connect(&listener, &listener_t::tooLong, this, &record_t::leaveOut);
        listener.start();
    }

    /// The words in the end; the exit code.
    [[nodiscard]] int finish()
    {
        listener.stop();
        say(QStringLiteral("%1 packets in %2 s are in %3.").arg(count).arg(seconds(), 0, 'f', 1).arg(path));
        if (hidden > 0) {
            say(QStringLiteral("%1 of them had something like a password, which is not in the file.").arg(hidden));
        }
        if (leftOut > 0) {
            complain(QStringLiteral("%1 packets are not in the file, since they were too long.").arg(leftOut));
        }
        return leftOut == 0 ? allFine : somethingFound;
    }
    [[nodiscard]] bool hasBegun() const { return clock.isValid(); }

private:
    // What arrives before the last subscription is confirmed is retained, and is kept as well.
    void start()
    {
        if (!clock.isValid()) {
            clock.start();
            // Not before: without a broker an older recording stays. What is no plain file cannot be emptied.
            static_cast<void>(::ftruncate(file, 0) == 0);
            heading.began = QDateTime::currentMSecsSinceEpoch();
            write(lineOf(heading));
        }
    }

    void begin()
    {
        start();
        complain((isAway ? QStringLiteral("Listening at %1 again.")
                         : QStringLiteral("Recording what is said at %1, until Ctrl-C."))
                     .arg(listener.name()));
        if (isAway) {
            isAway = false;
            note({{QStringLiteral("back"), QString()}});
        }
    }

    void take(const packet_t& packet)
    {
        start();
        packet_t shown = packet;
        hidden += hideSecrets(shown);
        line.resize(0); // keeps its memory
        appendJson(line, "at", secondsText(clock.elapsed()), shown);
        ++count;
        write(line);
    }

    void leaveOut(const QString& topic, int bytes, const QString& words)
    {
        start();
        if (++leftOut == 1) { // how many more, the last words tell
            complain(harmless(words));
        }
        note({{QStringLiteral("left_out"), topic}, {QStringLiteral("bytes"), bytes}});
    }

    void note(QJsonObject object)
    {
        object.insert(QStringLiteral("at"), seconds());
        write(QJsonDocument(object).toJson(QJsonDocument::Compact) + '\n');
    }

    // Each line by itself: whatever happens to this process, what was written is in the file.
    void write(const QByteArray& bytes)
    {
        if (!isBroken && !writeAll(file, bytes)) {
            isBroken = true;
            complain(QStringLiteral("%1 cannot be written any more: %2")
                         .arg(path, QString::fromLocal8Bit(std::strerror(errno))));
            QCoreApplication::exit(somethingFound);
        }
    }

    [[nodiscard]] double seconds() const { return clock.isValid() ? double(clock.elapsed()) / 1000 : 0; }

    listener_t listener;
    heading_t heading;
    const int file;
    const QString path;
    QElapsedTimer clock;
    QByteArray line;
    qint64 count = 0;
    qint64 hidden = 0;
    qint64 leftOut = 0;
    bool isAway = false;
    bool isBroken = false;
};

} // namespace

int runRecord(const QStringList& arguments)
{
    QCommandLineParser options;
    options.setApplicationDescription(QStringLiteral(
        "Writes every packet of a house to a file, one JSON object a line, until Ctrl-C. It says nothing itself.\n"
        "\"flotrofobul replay\" says the same again at another broker. What reads like a password is left out.\n\n"
        "  flotrofobul record --config house.json monday.rec\n\n"
        "Exit codes: 0 recorded; 1 no broker, the file cannot be written, or packets were too long for it; 2 wrong "
        "usage."));
    options.addPositionalArgument(QStringLiteral("FILE"), QStringLiteral("The recording; it must not be there yet."));
    addConnectionOptions(options);
    addTimeOption(options);
    const QCommandLineOption force(QStringLiteral("force"), QStringLiteral("Overwrite the file."));
    options.addOption(force);
    if (const auto code = readOptions(options, arguments)) {
        return *code;
    }
    if (options.positionalArguments().size() != 1) {
        complain(QStringLiteral("Exactly one file is needed: flotrofobul record FILE"));
        return misused;
    }
    const auto time = readTime(options);
    const auto connection = time ? readConnection(options, installation_t::optional) : std::nullopt;
    if (!connection) {
        return misused;
    }
    // What is said in a house is nobody else's business.
    const QString path = options.positionalArguments().at(0);
    const QByteArray name = QFile::encodeName(path);
    constexpr int mode = O_WRONLY | O_APPEND | O_CLOEXEC;
    int file = ::open(name.constData(), mode | O_CREAT | O_EXCL, S_IRUSR | S_IWUSR);
    const bool isNew = file >= 0;
    if (!isNew && errno == EEXIST && options.isSet(force)) {
        file = ::open(name.constData(), mode);
    }
    if (file < 0) {
        complain(
            errno == EEXIST
                ? QStringLiteral("%1 is there already; --force overwrites it.").arg(path)
                : QStringLiteral("%1 cannot be written: %2").arg(path, QString::fromLocal8Bit(std::strerror(errno))));
        return misused;
    }
    int code = allFine;
    {
        record_t record(*connection, file, path);
        ending_t ending(*time);
        QObject::connect(&ending, &ending_t::asked, [] { QCoreApplication::exit(allFine); });
        code = QCoreApplication::exec();
        if (code == allFine && record.hasBegun()) {
            code = record.finish();
        } else if (!record.hasBegun()) {
            if (isNew) {
                ::unlink(name.constData()); // nothing is in it
            }
            code = somethingFound;
        }
    }
    ::close(file);
    return code;
}

} // namespace tools
} // namespace comunication
