// SPDX-License-Identifier: MIT
// What both roles do alike: presentations, elections and bridge states, and the log lines about them.
#include <flotrofobul/protobase_shared.h>

#include <flotrofobul/advice.h>
#include <flotrofobul/platform/config/mosquittocnf.h>
#include <flotrofobul/platform/jsonserializer/qjsonserializer.h>
#include <flotrofobul/utility/system_t.h>

#include <QtCore/QDateTime>
#include <QtCore/QTimer>

#include <stdexcept>

namespace comunication {

using namespace ::utility::logs;

namespace {

const QString presentationTopic = FORWARD_PREFIX + u'/' + topicOf(presentation);
const qos_t presentationQos = qosOf(presentation);
const bool presentationRetain = presentation["retain"_l1].toBool();
const QString presentationCommand = commandOf(topicOf(presentation));
const QString electionCommand = commandOf(topicOf(masterelection));
const QString bridgeStatePrefix = QStringLiteral("$SYS/broker/connection/");
const QString payloadUp = QStringLiteral("1");
const QString payloadDown = QStringLiteral("0");

// A master's record contains the record of the master before it, and so on: each reconnection of a default master would
// add a level, until receivers reject the packet as nested too deeply (QJsonDocument reads 1,024 levels). Nobody needs
// more than eight, so deeper ones are cut off.
constexpr int mostMasters = 8;

QJsonObject cutMasters(QJsonObject record, int levels)
{
    const QString key = QStringLiteral("masterData");
    const QJsonObject inner = record.value(key).toObject();
    if (!inner.isEmpty()) {
        record.insert(key, levels > 1 ? cutMasters(inner, levels - 1) : QJsonObject());
    }
    return record;
}

} // namespace

const QString& shared_t::installationId(const protobase_t& engine)
{
    return engine.configuration->getMqtt()->getGlobal()->getInstallation_id();
}

mosquittopp::mosquittoqt& shared_t::brokerClient(const protobase_t& engine)
{
    if (engine.client == nullptr) {
        throw std::logic_error("no broker client before the first connect");
    }
    return *engine.client;
}

advice_t& shared_t::advice(const protobase_t& engine)
{
    return *engine.advice;
}

void shared_t::adviseOnStart(protobase_t& engine)
{
    engine.advice->installationId(installationId(engine));
    engine.advice->release();
}

QJsonObject shared_t::ownRecord(const protobase_t& engine)
{
    return engine.serializer->serialize<system_t*>(engine.system.data());
}

std::unique_ptr<system_t> shared_t::recordOf(const protobase_t& engine, const QJsonObject& packet)
{
    return std::unique_ptr<system_t>(engine.serializer->deserialize<system_t*>(packet));
}

QString shared_t::masterId(const protobase_t& engine)
{
    return engine.system->getMasterId();
}

bool shared_t::takesLeave(const protobase_t& engine)
{
    return engine.closeDelay->isActive();
}

QJsonValue shared_t::hostSection(const protobase_t& engine, QLatin1String name)
{
    return engine.configuration->serialize().value(name);
}

void shared_t::storeMaster(protobase_t& engine, const QString& id, const QJsonObject& data)
{
    engine.system->setMaster(id, withoutDeeperMasters(data));
}

void shared_t::sendPresentation(protobase_t& engine, const QString& destination, const char* source)
{
    engine.system->setPublishDate(QDateTime::currentDateTime());
    QJsonObject packet = ownRecord(engine);
    QString topic = presentationTopic;
    engine.topic_resolution_destination(topic, destination);
    FLOTROFOBUL_LOG_AT(detail, "Try to public remote presentation: "_l1 + topic, "publish_presentation", source,
                       __LINE__);
    packet.insert("publishDate"_l1, engine.system->getPublishDate());
    packet.insert("connected"_l1, engine.getConnected());
    engine.publish(topic, packet, presentationQos, presentationRetain);
}

void shared_t::logStart(const protobase_t& engine, QLatin1String greeting, QLatin1String withoutId,
                        const char* function, const char* source)
{
    FLOTROFOBUL_LOG_AT(info, greeting, function, source, __LINE__);
    const QString& id = installationId(engine);
    if (id.isEmpty()) {
        FLOTROFOBUL_LOG_AT(warning, QStringLiteral("WARNING WARNING WARNING WARNING WARNING WARNING WARNING WARNING"),
                           function, source, __LINE__);
        FLOTROFOBUL_LOG_AT(warning, withoutId, function, source, __LINE__);
    } else {
        FLOTROFOBUL_LOG_AT(info, "Installation id is: "_l1 + id, function, source, __LINE__);
    }
}

// A bridge between servers is called <any>-<any>-<server>-<server>; other bridges have shorter names.
void shared_t::reportBridgeState(protobase_t& engine, const QString& topic, const QString& payload, const char* source)
{
    constexpr const char* function = "onChangeStausBroker";
    if (!topic.startsWith(bridgeStatePrefix)) {
        return;
    }
    const QPointer<protobase_t> alive(&engine);
    const QString name = topic.section(u'/', 3, 3);
    const bool up = payload == payloadUp;
    Q_EMIT engine.onBridgeConnectionEvent(topic, name, payload);
    if (!alive) {
        return;
    }
    const QStringList pieces = name.split(u'-');
    if (pieces.size() < 4) {
        // No blank before "is DOWN": log readers match the text as it is.
        FLOTROFOBUL_LOG_AT(warning, "Bridging "_l1 + name + (up ? " is UP"_l1 : "is DOWN"_l1), function, source,
                           __LINE__);
        return;
    }
    const QString joined = "server: "_l1 + pieces[2] + " to "_l1 + pieces[3];
    FLOTROFOBUL_LOG_AT(warning, "Bridging with "_l1 + joined + (up ? " is UP"_l1 : " is DOWN"_l1), function, source,
                       __LINE__);
    const QString serverPrefix = engine.system->getId_prefix() + service_t::server.ToString() + u'-';
    const QString master = engine.system->getMasterId();
    if (payload == payloadDown && (master == serverPrefix + pieces[2] || master == serverPrefix + pieces[3])) {
        FLOTROFOBUL_LOG_AT(warning, "Comunication that bridging with "_l1 + joined + " is DOWN"_l1, function, source,
                           __LINE__);
        Q_EMIT engine.onMasterBridgeError();
    }
}

void subscribeOrNot(protobase_t& engine, subscribe_t which, const QString& topic, qos_t qos)
{
    if (which == utility::subscribe_topics) {
        engine.subscribe(topic, qos);
    } else {
        engine.unsubscribe(topic);
    }
}

void subscribeThrough(protobase_t& engine, subscribe_t which, const bridges_t& bridges, const QString& topic, qos_t qos)
{
    for (const QString* const bridge : bridges) {
        subscribeOrNot(engine, which, *bridge + u'/' + topic, qos);
    }
}

QString resolvedTopic(protobase_t& engine, const QJsonObject& packet, const QString& sender, const QString& destination)
{
    QString topic = topicOf(packet);
    engine.topic_resolution(topic, sender, destination);
    return topic;
}

bool isPresentation(const topic_t& topic)
{
    return topic.getValue() == presentationCommand;
}

bool isElection(const topic_t& topic)
{
    return topic.getValue() == electionCommand;
}

bool isCompliant(const topic_t& topic, const system_t& node, const QJsonObject& packet)
{
    return topic.getSender() == node.getClientid() && packet.contains("connected"_l1) &&
           packet.contains("clientid"_l1) && packet.contains("type"_l1);
}

std::optional<QString> electedMaster(const QJsonObject& packet, const char* source)
{
    const QJsonValue named = packet.value("masterid"_l1);
    if (named.isUndefined()) {
        FLOTROFOBUL_LOG_AT(error, QStringLiteral("Master id is void"), "processMasterElection", source, __LINE__);
        return std::nullopt;
    }
    return named.toString();
}

QJsonObject withoutDeeperMasters(const QJsonObject& record)
{
    return cutMasters(record, mostMasters);
}

void reportPresentation(protobase_t& engine, const topic_t& topic, bool online, const QJsonObject& packet)
{
    Q_EMIT engine.on_Presentation(topic.getSender(), topic.getDestination(), online, packet);
}

void reportUnknown(protobase_t& engine, const topic_t& topic, const QJsonValue& value, int qos, bool retain,
                   const char* source)
{
    FLOTROFOBUL_LOG_AT(warning, "Message unknown: "_l1 + topic.getOriginal(), "onMessage", source, __LINE__);
    Q_EMIT engine.on_Unknown(topic.getOriginal(), value, qos, retain);
}

} // namespace comunication
