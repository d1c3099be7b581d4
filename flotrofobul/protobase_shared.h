// SPDX-License-Identifier: MIT
// What the engine's own files and both roles share, and hosts need not see. Internal.
#pragma once

#include <flotrofobul/define/packet.h>
#include <flotrofobul/platform/logs/log_line.h>
#include <flotrofobul/protobase_t.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <optional>

namespace comunication {

/// The function name in log lines about presentations, whichever helper writes them.
inline constexpr char inPresentation[] = "processPresentation";

using bridges_t = std::array<const QString*, 3>;
/// The bridges that carry presentations, elections and whatever both roles listen to.
inline constexpr bridges_t mainBridges{&FORWARD_PREFIX, &REMOTE_PREFIX, &CLOUD_PREFIX_1};

/// Access to what an engine hides from its host. The argument source is the file name for log lines.
struct shared_t {
    static const QString& installationId(const protobase_t& engine);
    /// The broker client; throws std::logic_error until the first connect() has created it.
    static mosquittopp::mosquittoqt& brokerClient(const protobase_t& engine);

    static advice_t& advice(const protobase_t& engine);
    /// To be called when a role is built: writes what there is to say about its configuration.
    static void adviseOnStart(protobase_t& engine);

    /// This node's record as a presentation packet carries it.
    static QJsonObject ownRecord(const protobase_t& engine);
    /// Reads a record from a presentation packet; throws QJsonSerializerException if a value has the wrong type.
    static std::unique_ptr<system_t> recordOf(const protobase_t& engine, const QJsonObject& packet);
    static QString masterId(const protobase_t& engine);
    /// Whether the last will is on its way and the link will be closed.
    static bool takesLeave(const protobase_t& engine);
    /// A section of the configuration beside "mqtt"; empty if there is none.
    static QJsonValue hostSection(const protobase_t& engine, QLatin1String name);
    /// Stores the id and record of the master. A slot of system_t::changeMasterIdEvent() must not delete the engine.
    static void storeMaster(protobase_t& engine, const QString& id, const QJsonObject& data);
    /// Publishes this node's presentation; exceptions pass to the role.
    static void sendPresentation(protobase_t& engine, const QString& destination, const char* source);

    /// Logs the start of a role, with a warning if the installation id is empty.
    static void logStart(const protobase_t& engine, QLatin1String greeting, QLatin1String withoutId,
                         const char* function, const char* source);
    /// Emits onBridgeConnectionEvent() for a bridge state topic, and onMasterBridgeError() if the bridge to the master
    /// is down; ignores any other topic.
    static void reportBridgeState(protobase_t& engine, const QString& topic, const QString& payload,
                                  const char* source);
};

// Subscribing

/// Subscribes (1) or unsubscribes (anything else) a topic.
void subscribeOrNot(protobase_t& engine, subscribe_t which, const QString& topic, qos_t qos);
/// Does the same with the topic behind each of the bridges.
void subscribeThrough(protobase_t& engine, subscribe_t which, const bridges_t& bridges, const QString& topic,
                      qos_t qos);
/// Start of the log line about an attempt. A server says "client" too, where both roles subscribe the same topic.
inline QLatin1String clientAttempt(subscribe_t which)
{
    return which == utility::subscribe_topics ? "Try to subscribe client "_l1 : "Try to unsubscribe client "_l1;
}
/// A template's topic with sender and destination filled in.
QString resolvedTopic(protobase_t& engine, const QJsonObject& packet, const QString& sender,
                      const QString& destination);

// Incoming packets

bool isPresentation(const topic_t& topic);
bool isElection(const topic_t& topic);
/// Whether a presentation was sent by the node that it describes and has all required keys.
bool isCompliant(const topic_t& topic, const system_t& node, const QJsonObject& packet);
/// The master id in an election packet; logs an error and returns nothing if it is missing.
std::optional<QString> electedMaster(const QJsonObject& packet, const char* source);
/// A copy of a record without the master records nested below the eighth level.
QJsonObject withoutDeeperMasters(const QJsonObject& record);

/// The first row of a table whose command the topic's value starts with, or null.
template <typename Kind, std::size_t Size>
const Kind* kindOf(const Kind (&kinds)[Size], const topic_t& topic)
{
    const QString command = topic.getValue();
    const Kind* const found = std::find_if(std::begin(kinds), std::end(kinds),
                                           [&command](const Kind& kind) { return command.startsWith(kind.command); });
    return found != std::end(kinds) ? found : nullptr;
}

/// Emits on_Presentation() for a node that came or went.
void reportPresentation(protobase_t& engine, const topic_t& topic, bool online, const QJsonObject& packet);
/// Logs a packet that no handler took, and emits on_Unknown().
void reportUnknown(protobase_t& engine, const topic_t& topic, const QJsonValue& value, int qos, bool retain,
                   const char* source);

/// Logs how many nodes are known, and a numbered line for each, as line(number, entry) returns it. Does nothing unless
/// somebody reads the lines: with 500 panels they cost more than the rest of a presentation.
template <typename Nodes, typename Line>
void logNodes(QLatin1String heading, const Nodes& nodes, const char* source, Line&& line)
{
    using namespace ::utility::logs;
    if (!classlogs::getInstance()->isEnabled(info)) {
        return;
    }
    FLOTROFOBUL_LOG_AT(info, heading + QString::number(nodes.size()), inPresentation, source, __LINE__);
    int number = 0;
    for (auto node = nodes.cbegin(); node != nodes.cend(); ++node) {
        FLOTROFOBUL_LOG_AT(info, line(QString::number(number++), node), inPresentation, source, __LINE__);
    }
}

} // namespace comunication
