// SPDX-License-Identifier: MIT
// The records of pending requests and their registry.
#include <flotrofobul/messages/messages.h>

#include <flotrofobul/platform/logs/log_line.h>
#include <flotrofobul/platform/owning_map.h>

#include <QtCore/QPointer>

#include <deque>
#include <utility>

namespace comunication {
namespace message {

using namespace ::utility::logs;

namespace {

constexpr const char logSource[] = "libscomunication/libmosquittoproto/messages/messages";

// The line numbers are fixed: log readers know them.
#define LOG_EXCEPTION_AT(line) \
    FLOTROFOBUL_LOG_AT(caught, QStringLiteral("Handling exception"), __func__, logSource, line)

constexpr std::size_t keptRecords = 64; // replaced records that a host may still hold

} // namespace

classmessage::classmessage() : timeCreation(QDateTime::currentMSecsSinceEpoch())
{}

classsubscribe::classsubscribe(QObject* /*parent*/)
{}

classsubscribe::classsubscribe(const QString& givenTopic, qos_t givenQos, int givenMid, state_req_t givenState,
                               QObject* parent)
    : classsubscribe(parent)
{
    setTopic(givenTopic);
    setQos(givenQos);
    setMid(givenMid);
    setState(givenState);
}

classpublish::classpublish(QObject* /*parent*/)
{}

classpublish::classpublish(const QString& givenTopic, const QString& givenPayload, int givenMid, qos_t givenQos,
                           bool givenRetainflag, state_req_t givenState, QObject* parent)
    : classpublish(parent)
{
    setTopic(givenTopic);
    setPayload(givenPayload);
    setQos(givenQos);
    setRetainflag(givenRetainflag);
    setMid(givenMid);
    setState(givenState);
}

struct classmessages::requests_t {
    owning_map_t<int, classsubscribe> subscriptions;
    owning_map_t<int, classpublish> publications;
    std::deque<QPointer<QObject>> replaced; // a host may hold such a record, or may have deleted it

    ~requests_t() { clear(); }

    template <typename Record>
    void add(owning_map_t<int, Record>& map, std::unique_ptr<Record> record)
    {
        const int mid = record->getMid();
        if (auto former = map.put(mid, std::move(record))) {
            replaced.emplace_back(former.get());
            static_cast<void>(former.release());
            deleteReplaced(keptRecords);
        }
    }

    void clear()
    {
        publications.clear();
        subscriptions.clear();
        deleteReplaced(0);
    }

private:
    void deleteReplaced(std::size_t remaining)
    {
        while (replaced.size() > remaining) {
            delete replaced.front();
            replaced.pop_front();
        }
    }
};

classmessages::classmessages() : requests(std::make_unique<requests_t>())
{}

classmessages::~classmessages() = default;

bool classmessages::addSubscription(int mid, const QString& topic, qos_t qos)
{
    requests->add(requests->subscriptions,
                  std::make_unique<classsubscribe>(topic, qos, mid, utility::state_registered, nullptr));
    return true;
}

bool classmessages::addPublication(int mid, const QString& topic, const QString& payload, qos_t qos, bool retain)
{
    requests->add(requests->publications,
                  std::make_unique<classpublish>(topic, payload, mid, qos, retain, utility::state_registered, nullptr));
    return true;
}

classsubscribe* classmessages::getSubsciption(int mid)
try {
    return requests->subscriptions.find(mid);
} catch (...) {
    LOG_EXCEPTION_AT(73);
    return nullptr;
}

classpublish* classmessages::getPublications(int mid)
try {
    return requests->publications.find(mid);
} catch (...) {
    LOG_EXCEPTION_AT(87);
    return nullptr;
}

// The topic is deliberately not compared: the lowest mid tells whether anything is subscribed.
int classmessages::getMidSubsciption(const QString& /*topic*/)
try {
    const auto& subscriptions = requests->subscriptions.map();
    return subscriptions.isEmpty() ? -1 : subscriptions.firstKey();
} catch (...) {
    LOG_EXCEPTION_AT(105);
    return -2;
}

int classmessages::removePublications(int mid)
try {
    return requests->publications.remove(mid);
} catch (...) {
    LOG_EXCEPTION_AT(122);
    return -2;
}

int classmessages::removeSubsciption(int mid)
try {
    return requests->subscriptions.remove(mid);
} catch (...) {
    LOG_EXCEPTION_AT(138);
    return -2;
}

int classmessages::reset()
try {
    requests->clear();
    return 0;
} catch (...) {
    LOG_EXCEPTION_AT(157);
    return -2;
}

QMap<int, classsubscribe*>* classmessages::getSubscriptions() const
{
    return &requests->subscriptions.map();
}

QMap<int, classpublish*>* classmessages::getPublications() const
{
    return &requests->publications.map();
}

} // namespace message
} // namespace comunication
