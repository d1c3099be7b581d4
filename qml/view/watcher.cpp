// SPDX-License-Identifier: MIT
#include "watcher.h"

#include "recording_span.h"

#include <QtCore/QDateTime>
#include <QtCore/QElapsedTimer>

#include <algorithm>
#include <chrono>
#include <utility>

namespace comunication {
namespace view {

namespace {

constexpr std::chrono::milliseconds betweenScenes{100};
constexpr std::chrono::milliseconds whileFading{1000}; // rates that fall, packets that are awaited
constexpr std::chrono::milliseconds inSilence{10000};
constexpr std::chrono::milliseconds beforeNextTry{2000};
constexpr moment_t betweenRecorded{1000};      // scenes, where a recording is read quickly
constexpr std::chrono::milliseconds slice{30}; // of reading, before whoever waits has a turn
constexpr int mostScenesInSlice = 50;

moment_t present()
{
    return moment_t(QDateTime::currentMSecsSinceEpoch());
}

} // namespace

/// A broker that is listened to.
struct watcher_t::ear_t {
    tools::connection_t connection;
    std::unique_ptr<tools::listener_t> listener;
    QTimer again; ///< for a broker that was not there
};

watcher_t::watcher_t(QObject* parent) : QObject(parent), drawing(this), silence(this), feeding(this)
{
    drawing.setSingleShot(true);
    connect(&drawing, &QTimer::timeout, this, &watcher_t::makeScene);
    silence.setInterval(inSilence);
    silence.setTimerType(Qt::VeryCoarseTimer);
    connect(&silence, &QTimer::timeout, this, &watcher_t::makeScene);
    connect(&feeding, &QTimer::timeout, this, &watcher_t::feed);
}

watcher_t::~watcher_t()
{
    stop();
}

void watcher_t::stop()
{
    drawing.stop();
    silence.stop();
    feeding.stop();
    ears.clear();
    recording.reset();
    pending.reset();
    survey.reset();
    ringRevision = 0;
    wanted.clear();
}

void watcher_t::watch(quint64 number, const QVector<tools::connection_t>& connections)
{
    stop();
    generation = number;
    QStringList names;
    for (const tools::connection_t& one : connections) {
        names << one.name();
    }
    survey = std::make_unique<survey_t>(connections.isEmpty() ? QString() : connections.first().installationId, names);
    for (int i = 0; i < connections.size(); ++i) {
        ears.push_back(std::make_unique<ear_t>());
        ears.back()->connection = connections[i];
        ears.back()->again.setSingleShot(true);
        connect(&ears.back()->again, &QTimer::timeout, this, [this, i] { listen(i); });
        listen(i);
    }
    silence.start();
    wake();
}

void watcher_t::listen(int source)
{
    ear_t& ear = *ears[static_cast<std::size_t>(source)];
    // With quality of service 0 the broker has less to do, and a copy that is lost here harms nobody.
    ear.listener = std::make_unique<tools::listener_t>(ear.connection, 0);
    tools::listener_t* const listener = ear.listener.get();
    connect(listener, &tools::listener_t::ready, this, [this, source] {
        survey->setLink(present(), source, hearing_t::listening);
        wake();
    });
    connect(listener, &tools::listener_t::problem, this, [this, source](const QString& words) {
        survey->setLink(present(), source, hearing_t::lost, words);
        wake();
    });
    connect(listener, &tools::listener_t::failed, this, [this, source](const QString& words) {
        survey->setLink(present(), source, hearing_t::connecting, words);
        wake();
        ears[static_cast<std::size_t>(source)]->again.start(beforeNextTry);
    });
    connect(listener, &tools::listener_t::heard, this, [this, source](const tools::packet_t& packet) {
        survey->take(moment_t(packet.moment), source, packet.topic, packet.payload, packet.qos, packet.retain);
        wake();
    });
    listener->start();
}

void watcher_t::wake()
{
    if (!drawing.isActive() || drawing.remainingTimeAsDuration() > betweenScenes) {
        drawing.start(betweenScenes);
    }
}

void watcher_t::makeScene()
{
    if (!survey || recording) {
        return;
    }
    const moment_t now = present();
    if (auto next = survey->sceneIfChanged(now)) {
        Q_EMIT changed(generation, std::make_shared<const scene_t>(std::move(*next)));
    } else {
        Q_EMIT passed(generation, now);
    }
    showRing();
    if (survey->isMoving(now)) {
        drawing.start(whileFading);
    }
}

void watcher_t::showRing()
{
    if (survey && !wanted.isEmpty() && survey->rings().last(wanted) != ringRevision) {
        ringRevision = survey->rings().last(wanted);
        Q_EMIT ring(generation, survey->rings().of(wanted));
    }
}

void watcher_t::select(const QString& id)
{
    wanted = id;
    ringRevision = 0;
    showRing();
}

void watcher_t::open(quint64 number, const QString& path)
{
    stop();
    generation = number;
    recordingPath = path;
    rewind();
}

void watcher_t::rewind()
{
    recording = std::make_unique<tools::recording_t>(recordingPath);
    pending.reset();
    clock = house::never;
    sceneClock = house::never;
    if (recording->open()) {
        const tools::heading_t& heading = recording->heading();
        began = moment_t(heading.began);
        survey = std::make_unique<survey_t>(heading.installationId, QStringList{heading.broker}, true);
        pending = recording->next();
        clock = pending ? momentOf(*pending) : began;
    }
}

moment_t watcher_t::momentOf(const tools::recorded_t& packet) const
{
    // Never backwards, and not beyond what can be.
    const moment_t moment = began + std::clamp(moment_t(packet.at), moment_t(0), longestRecording);
    return clock == house::never ? moment : std::max(clock, moment);
}

void watcher_t::feedTo(moment_t moment)
{
    if (!recording) {
        return;
    }
    target = moment;
    feeding.start(0);
}

void watcher_t::feedAnewTo(quint64 number, moment_t moment)
{
    generation = number;
    rewind();
    feedTo(moment);
}

// Up to the target, or until the slice is used up.
void watcher_t::feed()
{
    if (!recording || !survey) {
        feeding.stop();
        Q_EMIT reached(generation, target, true, QStringLiteral("cannot be read any more"));
        return;
    }
    QElapsedTimer spent;
    spent.start();
    int scenes = 0;
    while (spent.elapsed() < slice.count() && scenes < mostScenesInSlice) {
        const moment_t next = pending ? momentOf(*pending) : house::never;
        const bool isOver = !pending || next > target;
        // A scene at the end of each step, and one at the target.
        const moment_t due = sceneClock == house::never ? clock : sceneClock + betweenRecorded;
        if (isOver || next > due) {
            const moment_t end = pending ? std::max(target, clock) : clock;
            const moment_t moment = isOver ? std::max(end, sceneClock) : std::max(due, clock);
            if (auto scene = survey->sceneIfChanged(moment)) {
                Q_EMIT changed(generation, std::make_shared<const scene_t>(std::move(*scene)));
                ++scenes;
            }
            // Where nothing is said nothing has to be shown; only what fades.
            sceneClock = isOver || survey->isMoving(moment) ? moment : std::max(moment, next - moment_t(1));
            if (isOver) {
                feeding.stop();
                showRing();
                const QString& words = recording->problem();
                Q_EMIT reached(generation, moment, !pending, pending ? QString() : words);
                return;
            }
            continue;
        }
        clock = next;
        const tools::packet_t& packet = pending->packet;
        survey->take(clock, 0, packet.topic, packet.payload, packet.qos, packet.retain);
        pending = recording->next();
    }
    showRing();
}

} // namespace view
} // namespace comunication
