// SPDX-License-Identifier: MIT
// What a survey keeps: survey.cpp takes packets in, survey_judgement.cpp says what they mean. For these two only.
#pragma once

#include "awaited.h"
#include "reasons.h"
#include "survey.h"
#include "topology.h"

namespace comunication {
namespace view {

using house::house_event_t;
using house::house_model_t;
using house::house_node_t;
using house::presence_t;

struct topic_parts_t;

struct survey_t::inside_t {
    inside_t(const QString& installationId, const QStringList& brokers, bool isRecording);

    /// An event with what is needed to say why, as long as that may change.
    struct told_t {
        scene_event_t event;
        parting_t parting; ///< of a node that is gone
        int lost = -1;     ///< a broker that was lost
        int seat = -1;
        bool isNew = true;
    };
    struct rhythm_t {
        moment_t last = house::never;
        moment_t before = house::never; ///< the one before the last
        moment_t usual{0};
    };
    struct known_facts_t {
        std::shared_ptr<const scene_facts_t> facts;
        quint64 changed = 0;
    };

    void bridges(moment_t now, int source);
    void packet(moment_t now, int source, const QString& topic, const QByteArray& payload, int qos, bool retain);
    void first(moment_t now, const house_node_t& node, const QString& topic, const QByteArray& payload, int qos,
               bool retain);
    void measure(moment_t now, int source, const topic_parts_t& parts);
    void moveHome(moment_t now, int source, const QString& id);
    void takeEvents();
    told_t& tell(moment_t now, const QString& text, tone_t tone, const QString& subject, const QString& why = {});
    void judgePartings(const topology_t& topology, moment_t now);
    void judgeLines(const topology_t& topology, moment_t now);
    void forgetStrangers();

    [[nodiscard]] evidence_t evidence() const { return {whole, models, names, links, homes, awaited}; }
    [[nodiscard]] std::shared_ptr<const scene_facts_t> factsOf(const house_node_t& node, int seat, const QString& why,
                                                               presence_t presence);
    [[nodiscard]] QPair<presence_t, QString> presenceOf(const house_node_t& node, int seat, const topology_t& topology,
                                                        moment_t now) const;
    [[nodiscard]] QString bridgeDownTo(int seat, const topology_t& topology) const;
    [[nodiscard]] QString alarmOf(const topology_t& topology) const;

    house_model_t whole;
    std::vector<house_model_t> models;
    QStringList names;
    QVector<link_t> links;
    QHash<QString, home_t> homes;
    awaited_t awaited;
    packet_rings_t rings;
    round_trips_t trips;
    double lastTrip = -1;
    QVector<double> newTrips;
    QHash<QString, rhythm_t> rhythms;
    QHash<QString, known_facts_t> known;
    QHash<QString, bool> bridgeState; ///< as it was told
    QHash<QString, moment_t> bridgeFell;
    QVector<quint64> toldOfModel;
    quint64 toldOfWhole = 0;
    QVector<told_t> events;
    quint64 eventCount = 0;
    QVector<QPair<int, int>> missing; ///< as it was told
    bool isChecking = false;          ///< a reason may still change
    std::optional<scene_t> last;
};

} // namespace view
} // namespace comunication
