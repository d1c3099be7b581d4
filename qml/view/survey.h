// SPDX-License-Identifier: MIT
// What is known of a house that is heard at one broker or several: who sits where, what crosses between the brokers,
// why somebody is gone. It is fed with packets and with the states of links; no broker, no clock and no timer in here.
#pragma once

#include "packet_rings.h"
#include "round_trips.h"
#include "scene.h"

#include <QtCore/QHash>
#include <QtCore/QMap>

#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace comunication {
namespace view {

class survey_t {
public:
    static constexpr int mostEvents = 500;

    /// brokers: those that are listened to, by name; "source" is the index of one of them.
    survey_t(const QString& installationId, const QStringList& brokers, bool isRecording = false);
    ~survey_t();
    survey_t(const survey_t&) = delete;
    survey_t& operator=(const survey_t&) = delete;

    /// Takes a packet as a broker delivered it, $SYS included.
    void take(moment_t now, int source, const QString& topic, const QByteArray& payload, int qos, bool retain);
    /// How things stand with the link to a broker, with words where that is not well.
    void setLink(moment_t now, int source, hearing_t hearing, const QString& problem = QString());

    /// What there is to see now. Events that were in a scene before come again only where they read otherwise now.
    [[nodiscard]] scene_t scene(moment_t now);
    /// The same; nothing if it would look like the one before.
    [[nodiscard]] std::optional<scene_t> sceneIfChanged(moment_t now);
    /// Whether a later scene would differ although nothing is heard: rates that fall, packets that are awaited.
    [[nodiscard]] bool isMoving(moment_t now) const;

    [[nodiscard]] const packet_rings_t& rings() const;

private:
    struct inside_t;
    std::unique_ptr<inside_t> inside;
};

} // namespace view
} // namespace comunication
