// SPDX-License-Identifier: MIT
// What does the packet work, in a thread of its own, so that the face only draws: listens at brokers or plays a
// recording, and says what is to be shown.
#pragma once

#include "scene.h"
#include "survey.h"

#include "connection/connection.h"
#include "connection/listener.h"
#include "recording/recording.h"

#include <QtCore/QObject>
#include <QtCore/QTimer>

#include <memory>
#include <optional>
#include <vector>

namespace comunication {
namespace view {

/// Belongs to its thread: all of it is called there. Each signal names what was being watched, by the number that
/// watch() or open() was given.
class watcher_t : public QObject {
    Q_OBJECT
public:
    explicit watcher_t(QObject* parent = nullptr);
    ~watcher_t() override;

    /// Listens, in place of what was watched. A broker that is not there is tried again.
    void watch(quint64 generation, const QVector<tools::connection_t>& connections);
    /// Has a recording in place of what was watched; nothing is read yet.
    void open(quint64 generation, const QString& path);
    /// Reads a recording on, up to a moment, in slices; a later call takes the place of an earlier one.
    void feedTo(moment_t moment);
    /// The same from its beginning, for what has been read and is not known any more.
    void feedAnewTo(quint64 generation, moment_t moment);
    /// Whose packets are wanted.
    void select(const QString& id);

Q_SIGNALS:
    void changed(quint64 generation, const comunication::view::shared_scene_t& scene);
    /// Nothing has changed, and it is later.
    void passed(quint64 generation, comunication::view::moment_t moment);
    void ring(quint64 generation, const comunication::view::ring_view_t& packets);
    /// A recording is read up to there; at its end, with words if that is not a proper one.
    void reached(quint64 generation, comunication::view::moment_t moment, bool isEnd, const QString& words);

private:
    struct ear_t;

    void stop();
    void listen(int source);
    void wake();
    void makeScene();
    void showRing();
    void rewind();
    void feed();
    [[nodiscard]] moment_t momentOf(const tools::recorded_t& packet) const;

    quint64 generation = 0;
    std::unique_ptr<survey_t> survey;
    std::vector<std::unique_ptr<ear_t>> ears;
    std::unique_ptr<tools::recording_t> recording;
    std::optional<tools::recorded_t> pending;
    QString recordingPath;
    moment_t began = house::never;
    moment_t target = house::never;
    moment_t clock = house::never;      ///< of the recording
    moment_t sceneClock = house::never; ///< when it was last shown
    QString wanted;
    quint64 ringRevision = 0;
    QTimer drawing; ///< runs while something changes
    QTimer silence; ///< when nothing is heard
    QTimer feeding;
};

} // namespace view
} // namespace comunication

Q_DECLARE_METATYPE(comunication::view::moment_t)
Q_DECLARE_METATYPE(comunication::view::ring_view_t)
