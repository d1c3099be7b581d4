// SPDX-License-Identifier: MIT
#include "picture.h"

#include "picture_roles.h"
#include "recording_span.h"

#include "watch/packet_lines.h"

#include <QtCore/QFileInfo>
#include <QtCore/QUrl>

#include <algorithm>
#include <cmath>

namespace comunication {
namespace view {

using tools::harmless;

namespace {

constexpr std::chrono::milliseconds betweenSteps{100}; // of a recording that plays
constexpr moment_t leastSpan{60000};                   // of the time line
constexpr int steps = 20;                              // in which the time line grows
constexpr int keepalive = 60;
constexpr int timeout = 10;
constexpr int maxPacketBytes = 16777216;

QString titleOf(const QVector<tools::connection_t>& connections)
{
    const QString& installation = connections.first().installationId;
    const QString where =
        connections.size() == 1 ? connections.first().name() : picture_t::tr("%1 brokers").arg(connections.size());
    return installation.isEmpty() ? where : picture_t::tr("%1 at %2").arg(installation, where);
}

} // namespace

picture_t::picture_t(QObject* parent)
    : QObject(parent), brokerRows(brokerRoles), lineRows(lineRoles), nodeRows(nodeRoles), eventRows(eventRoles),
      packetRows(packetRoles), scene(std::make_shared<scene_t>()), watcher(new watcher_t)
{
    qRegisterMetaType<shared_scene_t>("comunication::view::shared_scene_t");
    qRegisterMetaType<moment_t>("comunication::view::moment_t");
    qRegisterMetaType<ring_view_t>("comunication::view::ring_view_t");
    qRegisterMetaType<rows_t*>();
    // What was on its way when something else was chosen is of no interest.
    connect(watcher, &watcher_t::changed, this, [this](quint64 number, const shared_scene_t& next) {
        if (number == generation) {
            take(next);
        }
    });
    connect(watcher, &watcher_t::passed, this, [this](quint64 number, moment_t moment) {
        if (number == generation) {
            pass(moment);
        }
    });
    connect(watcher, &watcher_t::ring, this, [this](quint64 number, const ring_view_t& ring) {
        if (number == generation) {
            showPackets(ring);
        }
    });
    connect(watcher, &watcher_t::reached, this,
            [this](quint64 number, moment_t moment, bool isEnd, const QString& words) {
                if (number == generation) {
                    reach(moment, isEnd, words);
                }
            });
    playTimer.setInterval(betweenSteps);
    connect(&playTimer, &QTimer::timeout, this, &picture_t::goOn);
    watcher->moveToThread(&thread);
    connect(&thread, &QThread::finished, watcher, &QObject::deleteLater);
    thread.start();
}

picture_t::~picture_t()
{
    thread.quit();
    thread.wait();
}

QDateTime picture_t::dateOf(moment_t moment)
{
    return moment == house::never ? QDateTime() : QDateTime::fromMSecsSinceEpoch(moment.count());
}

void picture_t::watch(const QVector<tools::connection_t>& connections, bool isGuess)
{
    empty();
    setBlank(isGuess);
    hasRecording = false;
    titleText = harmless(titleOf(connections));
    Q_EMIT titleChanged();
    QMetaObject::invokeMethod(
        watcher, [worker = watcher, number = generation, connections] { worker->watch(number, connections); });
}

bool picture_t::connectTo(const QString& host, int port, const QString& installation)
{
    const auto isLetterOrDigit = [](QChar c) { return c.isLetterOrNumber() && c.unicode() < 0x80; };
    const QString problem = host.trimmed().isEmpty() || tools::isUrl(host) ? tr("The host is a name or an address.")
                            : port < 1 || port > 65535                     ? tr("The port is a number from 1 to 65535.")
                            : !std::all_of(installation.begin(), installation.end(), isLetterOrDigit)
                                ? tr("An installation id has letters and digits only.")
                                : QString();
    setNotice(problem);
    if (problem.isEmpty()) {
        tools::connection_t connection;
        connection.host = host.trimmed();
        connection.port = port;
        connection.installationId = installation;
        connection.keepalive = keepalive;
        connection.timeout = timeout;
        connection.maxPacketBytes = maxPacketBytes;
        watch({connection});
    }
    return problem.isEmpty();
}

bool picture_t::open(const QString& file)
{
    const QString path = file.startsWith(QLatin1String("file:")) ? QUrl(file).toLocalFile() : file;
    const QString name = harmless(QFileInfo(path).fileName());
    recording_span_t found;
    if (const QString problem = recording_span_t::read(path, &found); !problem.isEmpty()) {
        setNotice(name + QLatin1Char(' ') + harmless(problem) + QLatin1Char('.'));
        return false;
    }
    empty();
    setNotice(QString());
    setBlank(false);
    hasRecording = true;
    live = false;
    titleText = name;
    whole = found.end;
    shown = found.begin;
    newest = found.begin;
    span = {found.begin, found.end};
    Q_EMIT titleChanged();
    Q_EMIT spanChanged();
    Q_EMIT timeChanged();
    Q_EMIT edgeChanged();
    QMetaObject::invokeMethod(watcher, [worker = watcher, number = generation, path] { worker->open(number, path); });
    show(dateOf(found.begin));
    return true;
}

void picture_t::empty()
{
    ++generation;
    pause();
    history.clear();
    eventList.clear();
    eventRows.show({});
    packetRing = {};
    packetRows.show({});
    nodePulses.clear();
    linePulses.clear();
    shown = house::never;
    newest = house::never;
    whole = house::never;
    span = {};
    live = true;
    selection = {};
    setWaiting(false);
    showScene(std::make_shared<scene_t>());
    Q_EMIT selectedChanged();
    Q_EMIT spanChanged();
    Q_EMIT timeChanged();
    Q_EMIT edgeChanged();
    fillDetails();
    fillPlot();
}

void picture_t::setViewWidth(qreal width)
{
    if (!qFuzzyCompare(size.width(), width)) {
        size.setWidth(width);
        Q_EMIT viewChanged();
        arrange();
        fillRows();
    }
}

void picture_t::setViewHeight(qreal height)
{
    if (!qFuzzyCompare(size.height(), height)) {
        size.setHeight(height);
        Q_EMIT viewChanged();
        arrange();
        fillRows();
    }
}

void picture_t::setSpeed(double speed)
{
    if (speed > 0 && speed <= 1000 && !qFuzzyCompare(speed, playSpeed)) {
        playSpeed = speed;
        Q_EMIT playingChanged();
    }
}

void picture_t::take(const shared_scene_t& next)
{
    const bool isHeard = std::any_of(next->brokers.begin(), next->brokers.end(), [](const scene_broker_t& broker) {
        return broker.hearing == hearing_t::listening;
    });
    setBlank(blank && !isHeard);
    history.add(next);
    newest = std::max(newest, next->moment);
    if (!next->events.isEmpty()) {
        showEvents(next->events);
    }
    if (hasRecording) {
        // Many come at once; what is shown in the end is shown by reach().
        if (!waiting && next->moment <= shown) {
            showScene(next);
        }
        return;
    }
    setSpan();
    Q_EMIT edgeChanged();
    if (live) {
        showScene(next);
        setTime(next->moment, true);
    }
    fillPlot();
}

void picture_t::pass(moment_t moment)
{
    if (moment > newest) {
        newest = moment;
        setSpan();
        Q_EMIT edgeChanged();
        if (live) {
            setTime(moment, true);
            fillPlot();
        }
    }
}

void picture_t::select(const QString& kind, const QString& id)
{
    if (selection.kind == kind && selection.id == id) {
        return;
    }
    selection = {id.isEmpty() ? QString() : kind, id};
    packetRing = {};
    packetRows.show({});
    const QString node = selection.kind == QLatin1String("node") ? id : QString();
    QMetaObject::invokeMethod(watcher, [worker = watcher, node] { worker->select(node); });
    fillRows();
    Q_EMIT selectedChanged();
    fillDetails();
}

// The time line grows in steps: marks on it do not move with each packet.
void picture_t::setSpan()
{
    span_t next = span;
    if (hasRecording) {
        return;
    }
    if (next.begin == house::never || next.begin < history.begin()) {
        next.begin = history.begin();
    }
    const moment_t least = next.begin + leastSpan;
    if (next.end == house::never || newest > next.end) {
        next.end = std::max(least, newest + (newest - next.begin) / steps);
    }
    // What is forgotten leaves it in steps as well.
    if (span.begin != house::never && next.begin - span.begin < (span.end - span.begin) / steps) {
        next.begin = span.begin;
    }
    if (next.begin != span.begin || next.end != span.end) {
        span = next;
        Q_EMIT spanChanged();
        showEvents({});
    }
}

void picture_t::setTime(moment_t moment, bool isLiveNow)
{
    if (moment != shown || live != isLiveNow) {
        shown = moment;
        live = isLiveNow;
        Q_EMIT timeChanged();
    }
}

void picture_t::setNotice(const QString& words)
{
    if (noticeText != words) {
        noticeText = words;
        Q_EMIT noticeChanged();
    }
}

void picture_t::setBlank(bool on)
{
    if (blank != on) {
        blank = on;
        Q_EMIT blankChanged();
    }
}

// While it plays, each step waits a moment, which is nothing to tell.
void picture_t::setWaiting(bool on)
{
    waiting = on;
    if (loading != (on && !isPlaying())) {
        loading = !loading;
        Q_EMIT loadingChanged();
    }
}

void picture_t::show(const QDateTime& date)
{
    if (!date.isValid() || span.begin == house::never) {
        return;
    }
    const moment_t wanted = std::clamp(moment_t(date.toMSecsSinceEpoch()), span.begin, span.end);
    if (!hasRecording && wanted >= newest) {
        goLive();
        return;
    }
    setTime(wanted, false);
    const bool isForgotten = hasRecording && history.begin() != house::never && wanted < history.begin();
    if (hasRecording && (wanted > newest || history.begin() == house::never || isForgotten)) {
        setWaiting(true);
        if (isForgotten) {
            history.clear();
            newest = span.begin;
            QMetaObject::invokeMethod(
                watcher, [worker = watcher, number = ++generation, wanted] { worker->feedAnewTo(number, wanted); });
        } else {
            QMetaObject::invokeMethod(watcher, [worker = watcher, wanted] { worker->feedTo(wanted); });
        }
    } else {
        setWaiting(false);
    }
    if (const shared_scene_t then = history.at(wanted)) {
        showScene(then);
    }
    fillPackets();
    fillPlot();
}

void picture_t::goLive()
{
    if (hasRecording) {
        show(end());
        return;
    }
    if (const shared_scene_t last = history.at(newest)) {
        showScene(last);
    }
    setTime(newest, true);
    fillPackets();
    fillPlot();
}

void picture_t::play()
{
    if (hasRecording && !isPlaying()) {
        if (shown >= span.end) {
            show(begin());
        }
        sincePlayed.start();
        playTimer.start();
        Q_EMIT playingChanged();
    }
}

void picture_t::pause()
{
    if (isPlaying()) {
        playTimer.stop();
        Q_EMIT playingChanged();
    }
}

// While packets of an earlier moment are still being read, time stands.
void picture_t::goOn()
{
    const qint64 passed = sincePlayed.restart();
    if (waiting) {
        return;
    }
    if (shown >= span.end) {
        pause();
        return;
    }
    show(dateOf(shown + moment_t(std::llround(double(passed) * playSpeed))));
}

void picture_t::reach(moment_t moment, bool isEnd, const QString& words)
{
    newest = std::max(newest, moment);
    if (isEnd && newest < span.end) {
        // It does not go as far as its last line promised.
        span.end = newest;
        Q_EMIT spanChanged();
        showEvents({});
    }
    if (!words.isEmpty()) {
        setNotice(titleText + QLatin1Char(' ') + harmless(words) + QLatin1Char('.'));
    }
    if (shown <= newest || isEnd) {
        setTime(std::min(shown, span.end), false);
        if (const shared_scene_t then = history.at(shown)) {
            showScene(then);
        }
        fillPackets();
        fillPlot();
        setWaiting(false);
    }
    Q_EMIT edgeChanged();
}

} // namespace view
} // namespace comunication
