// SPDX-License-Identifier: MIT
#include "survey.h"

namespace comunication {
namespace view {

using house::house_model_t;
using house::house_node_t;

struct survey_t::inside_t {
    explicit inside_t(const QString& installationId) : whole(installationId) {}
    house_model_t whole;
    packet_rings_t rings;
    QVector<scene_broker_t> brokers;
    quint64 told = 0;
};

survey_t::survey_t(const QString& installationId, const QStringList& brokers, bool isRecording)
    : inside(std::make_unique<inside_t>(installationId))
{
    for (const QString& name : brokers) {
        scene_broker_t broker;
        broker.name = name;
        broker.hearing = isRecording ? hearing_t::recording : hearing_t::connecting;
        inside->brokers << broker;
    }
}

survey_t::~survey_t() = default;

void survey_t::take(moment_t now, int source, const QString& topic, const QByteArray& payload, int qos, bool retain)
{
    inside->whole.take(now, topic, payload, qos, retain, source);
    const QString id = topic.section(QLatin1Char('/'), 3, 3);
    inside->rings.add(now, id, topic, payload, qos, retain);
}

void survey_t::setLink(moment_t, int source, hearing_t hearing, const QString& problem)
{
    inside->brokers[source].hearing = hearing;
    inside->brokers[source].problem = problem;
}

scene_t survey_t::scene(moment_t now)
{
    scene_t scene;
    scene.moment = now;
    scene.brokers = inside->brokers;
    for (const house_node_t& node : inside->whole.nodes()) {
        auto facts = std::make_shared<scene_facts_t>();
        facts->id = node.id;
        facts->role = node.role;
        facts->presence = node.presence;
        facts->isMaster = node.isMaster();
        facts->master = node.master;
        facts->ready = node.ready;
        facts->encoded = node.encoded;
        facts->since = node.since;
        facts->record = node.record;
        facts->broker = 0;
        scene_node_t shown;
        shown.facts = facts;
        shown.rate = node.rate.perSecond(now);
        shown.heard = node.heard;
        shown.sent = node.sent;
        scene.nodes << shown;
    }
    for (const house::house_event_t& event : inside->whole.events()) {
        if (event.number > inside->told) {
            inside->told = event.number;
            scene.events << scene_event_t{event.number, event.moment, event.text(), {}, tone_t::plain, event.subject};
        }
    }
    scene.rate = inside->whole.rate(now);
    return scene;
}

std::optional<scene_t> survey_t::sceneIfChanged(moment_t now)
{
    return scene(now);
}

bool survey_t::isMoving(moment_t now) const
{
    return inside->whole.rate(now) > 0;
}

const packet_rings_t& survey_t::rings() const
{
    return inside->rings;
}

} // namespace view
} // namespace comunication
