// SPDX-License-Identifier: MIT
// The broker statistics: tables of which topic fills which field, and the construction of the records.
#include <flotrofobul/utility/statusbroker.h>

#include <flotrofobul/platform/logs/log_line.h>

#include <QtCore/QRegularExpression>

#include <vector>

namespace comunication {
namespace brokerdiagnostic {

using namespace ::utility::logs;

namespace {

constexpr const char logSource[] = "libscomunication/libmosquittoproto/utility/statusbroker";

struct statistic_t {
    QLatin1String levels; // compared exactly, up to the end of the topic
    QString& (*field)(diagnostic_broker&);
};

// The pattern ignores case, the compared levels do not: "$SYS/broker/HEAP/current" is stored, but
// "$SYS/broker/heap/CURRENT" is not.
struct group_t {
    QRegularExpression pattern;
    int firstCompared; // index of the first compared level
    std::vector<statistic_t> statistics;
};

QRegularExpression anyCase(const char* pattern)
{
    return QRegularExpression(QLatin1String(pattern), QRegularExpression::CaseInsensitiveOption);
}

bool matches(const QRegularExpression& pattern, const QString& topic)
{
    return pattern.match(topic).hasMatch();
}

// One row of a group, and the three rows of a load average.
#define STATISTIC(levels, path)                                                         \
    statistic_t                                                                         \
    {                                                                                   \
        levels ""_l1, [](diagnostic_broker& broker) -> QString& { return broker.path; } \
    }
#define AVERAGE(levels, path)                                                     \
    STATISTIC(levels "/1min", path->min1), STATISTIC(levels "/5min", path->min5), \
        STATISTIC(levels "/15min", path->min15)

// Tried in this order. Built once, when statistics are first recorded.
const std::vector<group_t>& groups()
{
    static const std::vector<group_t> table = {
        {anyCase(R"(^\$SYS\/broker\/bytes\/[a-zA-Z]+$|^\$SYS\/broker\/[a-zA-Z]+$)"),
         2,
         {STATISTIC("bytes/received", bytes->received), STATISTIC("bytes/sent", bytes->sent),
          STATISTIC("version", version), STATISTIC("timestamp", timestamp), STATISTIC("uptime", uptime)}},
        {anyCase(R"(^\$SYS\/broker\/messages\/[a-zA-Z]+$)"),
         3,
         {STATISTIC("stored", messages->message->stored), STATISTIC("received", messages->message->received),
          STATISTIC("sent", messages->message->sent)}},
        {anyCase(R"(^\$SYS\/broker\/publish\/[a-zA-Z]+\/[a-zA-Z]+$)"),
         3,
         {STATISTIC("messages/dropped", messages->publish->dropped),
          STATISTIC("messages/received", messages->publish->received),
          STATISTIC("messages/sent", messages->publish->sent),
          STATISTIC("bytes/received", messages->publishBytes->received),
          STATISTIC("bytes/sent", messages->publishBytes->sent)}},
        {anyCase(R"(^\$SYS\/broker\/store\/messages\/[a-zA-Z]+$)"),
         4,
         {STATISTIC("bytes", messages->store->bytes), STATISTIC("count", messages->store->count)}},
        {anyCase(R"(^\$SYS\/broker\/[a-zA-Z ]+\/count$)"),
         2,
         {STATISTIC("subscriptions/count", storage->subscriptions),
          STATISTIC("retained messages/count", storage->retained)}},
        {anyCase(R"(^\$SYS\/broker\/heap\/[a-zA-Z]+$)"),
         3,
         {STATISTIC("current", heap->current), STATISTIC("maximum", heap->maximum)}},
        {anyCase(R"(^\$SYS\/broker\/clients\/[a-zA-Z]+$)"),
         3,
         {STATISTIC("total", clients->total), STATISTIC("maximum", clients->maximum),
          STATISTIC("inactive", clients->inactive), STATISTIC("disconnected", clients->disconnected),
          STATISTIC("active", clients->active), STATISTIC("connected", clients->connected),
          STATISTIC("expired", clients->expired)}},
        {anyCase(R"(^\$SYS\/broker\/load\/[a-zA-Z\/]+\/\d+min$)"),
         3,
         {AVERAGE("messages/received", load->messagesReceived), AVERAGE("messages/sent", load->messagesSent),
          AVERAGE("messages/stored", load->messagesStored), AVERAGE("publish/sent", load->publish->sent),
          AVERAGE("publish/received", load->publish->received), AVERAGE("publish/dropped", load->publish->dropped),
          AVERAGE("bytes/received", load->bytes->received), AVERAGE("bytes/sent", load->bytes->sent),
          AVERAGE("sockets", load->sockets), AVERAGE("connections", load->connections)}},
    };
    return table;
}

#undef AVERAGE
#undef STATISTIC

bool storeStatistic(diagnostic_broker& broker, const QString& topic, const QString& payload)
{
    for (const group_t& group : groups()) {
        if (!matches(group.pattern, topic)) {
            continue;
        }
        const QString levels = topic.section(QLatin1Char('/'), group.firstCompared);
        for (const statistic_t& statistic : group.statistics) {
            if (levels == statistic.levels) {
                statistic.field(broker) = payload;
                return true;
            }
        }
    }
    return false;
}

bool storeBridge(diagnostic_broker& broker, const QString& topic, const QString& payload)
{
    static const QRegularExpression pattern =
        anyCase(R"(^\$SYS\/broker\/connection\/[a-zA-Z0-9\-\{\}\]\[\_]+\/state$)");
    if (!matches(pattern, topic)) {
        return false;
    }
    const QString name = topic.section(QLatin1Char('/'), 3, 3);
    broker.bridges->insert(name, diagnostic_bridges(name, payload == "1"_l1));
    return true;
}

bool isBrokerTopic(const QString& topic)
{
    static const QRegularExpression pattern(QStringLiteral(R"(^\$SYS\/broker\/)"));
    return matches(pattern, topic);
}

bool isLogTopic(const QString& topic)
{
    static const QRegularExpression pattern =
        anyCase(R"(^\$SYS\/broker\/log\/M\/[a-zA-Z]+$|^\$SYS\/broker\/log\/[a-zA-Z]+$)");
    return matches(pattern, topic);
}

// Like guarded(), but without the exception's own words in the log line.
template <typename Body>
void guardedWithoutWords(const char* function, Body&& body)
{
    guarded(function, logSource, body, [] { return QStringLiteral("Handling exception"); });
}

} // namespace

diagnostic_messages::diagnostic_messages()
{
    guardedWithoutWords(__func__, [this] {
        message = new diagnostic_message;
        publish = new diagnostic_publish_message;
        publishBytes = new diagnostic_bytes;
        store = new diagnostic_messages_store;
    });
}

diagnostic_messages::~diagnostic_messages()
{
    delete message;
    delete publish;
    delete publishBytes;
    delete store;
}

diagnostic_average_bytes::diagnostic_average_bytes()
{
    guardedWithoutWords(__func__, [this] {
        received = new diagnostic_average;
        sent = new diagnostic_average;
    });
}

diagnostic_average_bytes::~diagnostic_average_bytes()
{
    delete received;
    delete sent;
}

diagnostic_avarage_publish::diagnostic_avarage_publish()
{
    guardedWithoutWords(__func__, [this] {
        dropped = new diagnostic_average;
        received = new diagnostic_average;
        sent = new diagnostic_average;
    });
}

diagnostic_avarage_publish::~diagnostic_avarage_publish()
{
    delete dropped;
    delete received;
    delete sent;
}

diagnostic_load::diagnostic_load()
{
    guardedWithoutWords(__func__, [this] {
        connections = new diagnostic_average;
        bytes = new diagnostic_average_bytes;
        sockets = new diagnostic_average;
        publish = new diagnostic_avarage_publish;
        messagesSent = new diagnostic_average;
        messagesReceived = new diagnostic_average;
        messagesStored = new diagnostic_average;
    });
}

diagnostic_load::~diagnostic_load()
{
    delete connections;
    delete bytes;
    delete sockets;
    delete publish;
    delete messagesSent;
    delete messagesReceived;
    delete messagesStored;
}

diagnostic_logging::diagnostic_logging()
{
    guardedWithoutWords(__func__, [this] { lines = new QList<QString>; });
}

diagnostic_logging::~diagnostic_logging()
{
    delete lines;
}

diagnostic_broker::diagnostic_broker()
{
    guardedWithoutWords(__func__, [this] {
        bytes = new diagnostic_bytes;
        heap = new diagnostic_heap;
        clients = new diagnostic_clients;
        messages = new diagnostic_messages;
        load = new diagnostic_load;
        storage = new diagnostic_storage;
        logging = new diagnostic_logging;
        bridges = new QMap<QString, diagnostic_bridges>;
    });
}

diagnostic_broker::~diagnostic_broker()
{
    delete bytes;
    delete heap;
    delete clients;
    delete messages;
    delete load;
    delete storage;
    delete logging;
    delete bridges;
}

void diagnostic_broker::updateMessage(const QString& topic, const QString& payload)
{
    const char* const function = __func__;
    guardedWithoutWords(function, [&] {
        if (storeBrokerMessage) {
            rawMessages[topic] = payload;
        }
        if (!isBrokerTopic(topic)) {
            FLOTROFOBUL_LOG_AT(warning, QStringLiteral("No match generic topic"), function, logSource, __LINE__);
            return;
        }
        if ((storeBrokerBridgeConnection && storeBridge(*this, topic, payload)) ||
            (storeBrokerStatistics && storeStatistic(*this, topic, payload))) {
            lastUpdate = QDateTime::currentDateTime();
            return;
        }
        if (storeBrokerLogs && isLogTopic(topic)) {
            logging->lines->append(payload);
        }
        // Log lines get this line too, because they are not statistics.
        FLOTROFOBUL_LOG_AT(warning, topic % " .......... NO REGISTER"_l1, function, logSource, __LINE__);
    });
}

} // namespace brokerdiagnostic
} // namespace comunication
