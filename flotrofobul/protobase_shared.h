// SPDX-License-Identifier: MIT
// What the files of the engine and both roles share, so that hosts need not see it. Internal.
#pragma once

#include <flotrofobul/define/packet.h>
#include <flotrofobul/platform/logs/log_line.h>
#include <flotrofobul/protobase_t.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <optional>

namespace comunication {

/// The operation that the log lines of its helpers name.
inline constexpr char inPresentation[] = "processPresentation";

using bridges_t = std::array<const QString*, 3>;
/// The bridges of presentations, elections and whatever both roles listen to.
inline constexpr bridges_t mainBridges{&FORWARD_PREFIX, &REMOTE_PREFIX, &CLOUD_PREFIX_1};

/// Access to what an engine keeps from its host. source is the file that log lines name.
struct shared_t {
    static const QString& installationId(const protobase_t& engine);
    /// The broker client; throws std::logic_error before the first connect has created it.
    static mosquittopp::mosquittoqt& brokerClient(const protobase_t& engine);

    /// This node's record as a presentation packet holds it.
    static QJsonObject ownRecord(const protobase_t& engine);
    /// A record out of a presentation packet; throws QJsonSerializerException when a value does not fit.
    static std::unique_ptr<system_t> recordOf(const protobase_t& engine, const QJsonObject& packet);
    /// Stores the master and its record. The record's signal of it must not be used to delete the engine.
    static void storeMaster(protobase_t& engine, const QString& id, const QJsonObject& data);
    /// Publishes the presentation of this node; exceptions pass to the role.
    static void sendPresentation(protobase_t& engine, const QString& destination, const char* source);

    /// Logs that a role starts, and a warning where the installation has no id.
    static void logStart(const protobase_t& engine, QLatin1String greeting, QLatin1String withoutId,
                         const char* function, const char* source);
    /// Reports a bridge state topic, and whether the bridge joins the master; nothing for any other topic.
    static void reportBridgeState(protobase_t& engine, const QString& topic, const QString& payload,
                                  const char* source);
};

// Subscribing

/// Subscribes (1) or unsubscribes (anything else) a topic.
void subscribeOrNot(protobase_t& engine, subscribe_t which, const QString& topic, qos_t qos);
/// The same behind each of three bridges.
void subscribeThrough(protobase_t& engine, subscribe_t which, const bridges_t& bridges, const QString& topic,
                      qos_t qos);
/// Begins the log line of an attempt; "client" for servers too where both roles subscribe the topic.
inline QLatin1String clientAttempt(subscribe_t which)
{
    return which == utility::subscribe_topics ? "Try to subscribe client "_l1 : "Try to unsubscribe client "_l1;
}
/// The topic of a template with sender and destination in their places.
QString resolvedTopic(protobase_t& engine, const QJsonObject& packet, const QString& sender,
                      const QString& destination);

// Packets that arrive

bool isPresentation(const topic_t& topic);
bool isElection(const topic_t& topic);
/// Whether a presentation comes from the node that it speaks of and says all that it has to.
bool isCompliant(const topic_t& topic, const system_t& node, const QJsonObject& packet);
/// The id that an election packet names; without one, says so in the log.
std::optional<QString> electedMaster(const QJsonObject& packet, const char* source);
/// Cuts the master records that are nested deeper than the eighth level of a record.
QJsonObject withoutDeeperMasters(const QJsonObject& record);

/// The first of a table's kinds whose command the topic's value begins with; null when there is none.
template <typename Kind, std::size_t Size>
const Kind* kindOf(const Kind (&kinds)[Size], const topic_t& topic)
{
    const QString command = topic.getValue();
    const Kind* const found = std::find_if(std::begin(kinds), std::end(kinds),
                                           [&command](const Kind& kind) { return command.startsWith(kind.command); });
    return found != std::end(kinds) ? found : nullptr;
}

/// Emits on_Presentation() for a node that has come or gone.
void reportPresentation(protobase_t& engine, const topic_t& topic, bool online, const QJsonObject& packet);
/// Logs and emits a packet that no handler took.
void reportUnknown(protobase_t& engine, const topic_t& topic, const QJsonValue& value, int qos, bool retain,
                   const char* source);

/// Logs the number of known nodes and a numbered line for each, made by line(number, entry). The list is walked for a
/// reader only: with 500 panels it costs more than all the rest of a presentation.
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
