// SPDX-License-Identifier: MIT
#include <flotrofobul/messages/messages.h>

#include <flotrofobul/platform/logs/log_line.h>

#include <utility>

namespace comunication {
namespace message {

using namespace ::utility::logs;

namespace {

constexpr const char logSource[] = "libscomunication/libmosquittoproto/messages/messages";

// The line numbers are part of the texts that the system's readers of logs know.
#define LOG_EXCEPTION_AT(line) \
    FLOTROFOBUL_LOG_AT(caught, QStringLiteral("Handling exception"), __func__, logSource, line)

template <typename Record>
Record* find(const QMap<int, Record*>& records, int mid)
{
    return records.value(mid, nullptr);
}

// Puts the record under its mid; returns the one that stood there.
template <typename Record>
Record* insert(QMap<int, Record*>& records, std::unique_ptr<Record> record)
{
    Record*& place = records[record->getMid()];
    return std::exchange(place, record.release());
}

template <typename Record>
int remove(QMap<int, Record*>& records, int mid)
{
    const std::unique_ptr<Record> record(find(records, mid));
    return record ? records.remove(mid) : 0;
}

template <typename Record>
void clear(QMap<int, Record*>& records)
{
    qDeleteAll(records);
    records.clear();
}

} // namespace

classmessage::classmessage() : timeCreation(QDateTime::currentMSecsSinceEpoch())
{}

classsubscribe::classsubscribe(QObject* /*parent*/)
{}

classsubscribe::classsubscribe(const QString& topic, qos_t qos, int mid, state_req_t state, QObject* parent)
    : classsubscribe(parent)
{
    setTopic(topic);
    setQos(qos);
    setMid(mid);
    setState(state);
}

classpublish::classpublish(QObject* /*parent*/)
{}

classpublish::classpublish(const QString& topic, const QString& payload, int mid, qos_t qos, bool retainflag,
                           state_req_t state, QObject* parent)
    : classpublish(parent)
{
    setTopic(topic);
    setPayload(payload);
    setQos(qos);
    setRetainflag(retainflag);
    setMid(mid);
    setState(state);
}

classmessages::classmessages()
    : subscriptions(std::make_unique<QMap<int, classsubscribe*>>()),
      publications(std::make_unique<QMap<int, classpublish*>>())
{}

classmessages::~classmessages()
{
    clear(*publications);
    clear(*subscriptions);
}

void classmessages::retire(QObject* replaced)
{
    constexpr std::size_t kept = 64;
    if (replaced == nullptr) {
        return;
    }
    replacedRecords.emplace_back(replaced);
    if (replacedRecords.size() > kept) {
        replacedRecords.pop_front();
    }
}

bool classmessages::addSubscription(int mid, const QString& topic, qos_t qos)
{
    retire(
        insert(*subscriptions, std::make_unique<classsubscribe>(topic, qos, mid, utility::state_registered, nullptr)));
    return true;
}

bool classmessages::addPublication(int mid, const QString& topic, const QString& payload, qos_t qos, bool retain)
{
    retire(insert(*publications, std::make_unique<classpublish>(topic, payload, mid, qos, retain,
                                                                utility::state_registered, nullptr)));
    return true;
}

classsubscribe* classmessages::getSubsciption(int mid)
try {
    return find(*subscriptions, mid);
} catch (...) {
    LOG_EXCEPTION_AT(73);
    return nullptr;
}

classpublish* classmessages::getPublications(int mid)
try {
    return find(*publications, mid);
} catch (...) {
    LOG_EXCEPTION_AT(87);
    return nullptr;
}

// The topic is not compared: callers ask whether, and from which mid on, anything is subscribed.
int classmessages::getMidSubsciption(const QString& /*topic*/)
try {
    return subscriptions->isEmpty() ? -1 : subscriptions->firstKey();
} catch (...) {
    LOG_EXCEPTION_AT(105);
    return -2;
}

int classmessages::removePublications(int mid)
try {
    return remove(*publications, mid);
} catch (...) {
    LOG_EXCEPTION_AT(122);
    return -2;
}

int classmessages::removeSubsciption(int mid)
try {
    return remove(*subscriptions, mid);
} catch (...) {
    LOG_EXCEPTION_AT(138);
    return -2;
}

int classmessages::reset()
try {
    clear(*publications);
    clear(*subscriptions);
    replacedRecords.clear();
    return 0;
} catch (...) {
    LOG_EXCEPTION_AT(157);
    return -2;
}

} // namespace message
} // namespace comunication
