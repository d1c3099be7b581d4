// SPDX-License-Identifier: MIT
// Publishing and subscribing: placeholders, and how payloads are wrapped and encoded.
#include <flotrofobul/protobase_t.h>

#include <flotrofobul/advice.h>
#include <flotrofobul/messages/messages.h>
#include <flotrofobul/platform/jsonserializer/json_text.h>
#include <flotrofobul/platform/mosquittopp/mosquittoqt.h>
#include <flotrofobul/protobase_shared.h>
#include <flotrofobul/utility/system_t.h>

#include <QtCore/QThread>
#include <QtCore/QVector>

#include <algorithm>
#include <utility>

namespace comunication {

using namespace ::utility::logs;

namespace {

constexpr const char logSource[] = "libscomunication/libmosquittoproto/protobase_t";

const QString packetPrefix = FORWARD_PREFIX + u'/' + PREFIX + u'/';
const QString performanceTopic = topicOf(performance);

constexpr auto withoutPadding = QByteArray::Base64Encoding | QByteArray::OmitTrailingEquals;

// Does what QString::replace() does. Placeholders begin with "@"; searching for that character needs no search tables.
void putInPlace(QString& topic, const QString& placeholder, const QString& word)
{
    int at = topic.indexOf(u'@');
    while (at >= 0) {
        if (QStringView(topic).mid(at).startsWith(placeholder)) {
            topic.replace(at, placeholder.size(), word);
            at += word.size();
        } else {
            ++at;
        }
        at = topic.indexOf(u'@', at);
    }
}

QString payloadText(bool encoding, const QByteArray& bytes, QByteArray::Base64Options options)
{
    // With the size: without it Qt looks for a zero byte first, one character at a time.
    return encoding ? QString::fromLatin1(bytes.toBase64(options)) : QString::fromUtf8(bytes.constData(), bytes.size());
}

using placeholders_t = QMap<QString, QList<QString>>;

// A replacement of a placeholder by a word that leads back to that placeholder.
using loop_t = QPair<QString, QString>;

// A topic on its way through the placeholders. A loop is gone through once only, as by a client id
// "panel@clientid": what is left of the placeholder afterwards stands for itself.
struct expansion_t {
    QString topic;
    QVector<loop_t> loops;
    int steps = 0;

    bool maySpend(const QString& placeholder, const QString& word) const
    {
        return !loops.contains({placeholder, word});
    }
};

// Words that only together form a placeholder anew could go on for ever; no topic of MQTT is longer.
constexpr int mostSteps = 1000;
constexpr int longestTopic = 65535;

bool leadsTo(const QString& placeholder, const QString& word, const placeholders_t& placeholders, QStringList seen = {})
{
    for (auto entry = placeholders.cbegin(); entry != placeholders.cend(); ++entry) {
        if (!word.contains(entry.key()) || seen.contains(entry.key())) {
            continue;
        }
        seen += entry.key();
        const auto goesOn = [&](const QString& next) { return leadsTo(placeholder, next, placeholders, seen); };
        if (!entry->isEmpty() && (entry.key() == placeholder || std::any_of(entry->begin(), entry->end(), goesOn))) {
            return true;
        }
    }
    return false;
}

// What the first placeholder of a topic that may still be replaced makes of it; nothing when there is none.
QVector<expansion_t> expanded(const expansion_t& one, const placeholders_t& placeholders)
{
    QVector<expansion_t> made;
    if (one.steps == mostSteps || one.topic.size() > longestTopic) {
        return made;
    }
    for (auto entry = placeholders.cbegin(); entry != placeholders.cend() && made.isEmpty(); ++entry) {
        if (!one.topic.contains(entry.key())) {
            continue;
        }
        for (const QString& word : *entry) {
            if (one.maySpend(entry.key(), word)) {
                made.append({QString(one.topic).replace(entry.key(), word), one.loops, one.steps + 1});
                if (leadsTo(entry.key(), word, placeholders)) {
                    made.last().loops.append({entry.key(), word});
                }
            }
        }
    }
    return made;
}

bool holdsPlaceholder(const QString& topic, const placeholders_t& placeholders)
{
    for (auto entry = placeholders.cbegin(); entry != placeholders.cend(); ++entry) {
        if (!entry->isEmpty() && topic.contains(entry.key())) {
            return true;
        }
    }
    return false;
}

// One pass: every topic gives way to the replacements of one of its placeholders. False when none had any.
bool expandOnce(QVector<expansion_t>& topics, const placeholders_t& placeholders)
{
    bool anyMade = false;
    const QVector<expansion_t> snapshot = topics;
    for (const expansion_t& one : snapshot) {
        const QVector<expansion_t> made = expanded(one, placeholders);
        if (!made.isEmpty()) {
            topics += made;
            const auto same = [&one](const expansion_t& other) { return other.topic == one.topic; };
            topics.erase(std::remove_if(topics.begin(), topics.end(), same), topics.end());
            anyMade = true;
        }
    }
    return anyMade;
}

} // namespace

void protobase_t::init_subscription(subscribe_t which)
try {
    FLOTROFOBUL_LOG(info, QStringLiteral("Init subscriptions "));
    for (const QJsonValue member : subscriptions) {
        const QJsonObject entry = member.toObject();
        const QString topic = topicOf(entry);
        const qos_t qos = qosOf(entry);
        const bool ofBroker = topic == performanceTopic;
        if (ofBroker && !statusbroker) {
            continue;
        }
        FLOTROFOBUL_LOG(detail, clientAttempt(which) + topic);
        subscribeOrNot(*this, which, topic, qos);
        if (!ofBroker) {
            subscribeThrough(*this, which, mainBridges, topic, qos);
        }
    }
} catch (...) {
    FLOTROFOBUL_LOG(caught, exceptionText());
}

void protobase_t::subscribe(const QString& topic, qos_t qos)
try {
    QList<QString> topics{topic};
    topic_subscribe_resolution(topics);
    for (QString& one : topics) {
        one.replace(INSTALLATIONID, shared_t::installationId(*this));
        FLOTROFOBUL_LOG(detail, "Try to subscribe topic: "_l1 + one + " qos: "_l1 + QString::number(qos));
        int mid = 0;
        shared_t::brokerClient(*this).subscribe(&mid, one, qos);
        messages->addSubscription(mid, one, qos);
        noteSessionOf(mid);
    }
    for (const QString& one : qAsConst(topics)) {
        if (holdsPlaceholder(one, placeholders)) {
            advice->placeholderLeadsBack(one);
        }
    }
} catch (...) {
    FLOTROFOBUL_LOG(caught, exceptionText("Handling exception "_l1, "Handling exception"_l1));
}

void protobase_t::unsubscribe(const QString& topic)
try {
    QList<QString> topics{topic};
    topic_subscribe_resolution(topics);
    for (QString& one : topics) {
        // Looked up before the installation id is filled in: callers pass topics as the registry holds them.
        const int held = messages->getMidSubsciption(one);
        if (held == -1) {
            FLOTROFOBUL_LOG(error, "No mid for "_l1 + one + " in messages"_l1);
            continue;
        }
        const auto* const record = messages->getSubsciption(held);
        const qos_t qos = record != nullptr ? record->getQos() : utility::at_most_once;
        auto& broker = shared_t::brokerClient(*this);
        messages->removeSubsciption(held);
        one.replace(INSTALLATIONID, shared_t::installationId(*this));
        FLOTROFOBUL_LOG(detail, "Try to unsubscribe topic: "_l1 + one);
        int mid = 0;
        broker.unsubscribe(&mid, one);
        messages->addSubscription(mid, one, qos);
        noteSessionOf(mid);
    }
} catch (...) {
    FLOTROFOBUL_LOG(caught, exceptionText("Handling generic exception."_l1, "Handling generic exception."_l1));
}

void protobase_t::topic_subscribe_resolution(QList<QString>& topics)
{
    QVector<expansion_t> expansions;
    for (const QString& topic : qAsConst(topics)) {
        expansions.append({topic, {}});
    }
    while (expandOnce(expansions, placeholders)) {
    }
    topics.clear();
    for (const expansion_t& one : qAsConst(expansions)) {
        topics.append(one.topic);
    }
}

void protobase_t::publish(QString topic, const QJsonObject& payload, qos_t qos, bool retain)
{
    protobase_t::publish(std::move(topic), QJsonValue(payload), qos, retain);
}

void protobase_t::publish(QString topic, const QJsonValue& payload, qos_t qos, bool retain)
try {
    topic_publish_resolution_sender(topic);
    putInPlace(topic, INSTALLATIONID, shared_t::installationId(*this));
    FLOTROFOBUL_LOG(detail, "Try to publish topic: "_l1 + topic + " qos: "_l1 + QString::number(qos) + " retain: "_l1 +
                                QString::number(retain));
    const QJsonObject body{{dataKey, payload}};
    const QString text = Encode(body);
    int mid = 0;
    shared_t::brokerClient(*this).publish(&mid, topic, text, qos, retain);
    messages->addPublication(mid, topic, text, qos, retain);
    noteSessionOf(mid);
    if (classlogs::getInstance()->isEnabled(trace)) { // readable, also where encoding is on
        tracePayload("published"_l1, topic, JsonObjectToString(body, QJsonDocument::Compact));
    }
    if (QThread::currentThread() != thread()) {
        advice->foreignThread();
    }
} catch (...) {
    FLOTROFOBUL_LOG(caught, exceptionText("Handling exception."_l1, "Handling exception"_l1));
}

void protobase_t::noteSessionOf(int mid)
{
    if (const int ends = client->pendingEnds(); mid > 0 && ends > 0) {
        laterRequests[mid] = ends;
    }
}

void protobase_t::publish(const QJsonObject& packet, qos_t /*qos*/, bool retain)
try {
    const QJsonValue payload = packet["payload"_l1];
    const QJsonValue value = packet["topic"_l1];
    if (payload.isUndefined() || value.isUndefined()) {
        FLOTROFOBUL_LOG(error, QStringLiteral("Packet not compliant!"));
        advice->packetLacks(packet);
        return;
    }
    QString topic = packetPrefix + value.toString();
    if (topic.size() <= topic_t::getTopic_min_len()) {
        FLOTROFOBUL_LOG(error, QStringLiteral("Payload or topic not compliant!"));
        FLOTROFOBUL_LOG(error, "Topic: "_l1 + topic);
        FLOTROFOBUL_LOG(error, "Payload: "_l1 + (payload.isObject()
                                                     ? JsonObjectToString(payload.toObject(), QJsonDocument::Compact)
                                                     : payload.toString()));
        return;
    }
    QString destination = packet["destination"_l1].toString();
    if (destination.isEmpty()) {
        destination = system->getMasterId();
    }
    topic_resolution_destination(topic, destination);
    QJsonObject body = packet;
    body.remove("topic"_l1);
    body.remove("destination"_l1);
    // The host's packets always go out at QoS 2, and never through a role's override.
    protobase_t::publish(std::move(topic), body, utility::exactly_once, retain);
} catch (...) {
    FLOTROFOBUL_LOG(caught, exceptionText("Handling exception."_l1, "Handling exception"_l1));
}

void protobase_t::topic_publish_resolution_sender(QString& topic)
{
    putInPlace(topic, SENDER, system->getClientid());
}

void protobase_t::topic_resolution(QString& topic, const QString& sender, const QString& destination)
{
    putInPlace(topic, SENDER, sender);
    putInPlace(topic, DESTINATION, destination);
}

void protobase_t::topic_resolution_destination(QString& topic, const QString& destination)
{
    putInPlace(topic, DESTINATION, destination);
    topic_publish_resolution_sender(topic);
}

QString protobase_t::getCommandTopic(QString topic)
try {
    return commandOf(topic);
} catch (...) {
    FLOTROFOBUL_LOG(caught, QStringLiteral("Handling exception"));
    return QString();
}

QString protobase_t::JsonObjectToString(const QJsonObject& object, QJsonDocument::JsonFormat format)
try {
    return QString::fromUtf8(jsonOf(QJsonDocument(object), format));
} catch (...) {
    FLOTROFOBUL_LOG(caught, exceptionText());
    return QString();
}

QJsonObject protobase_t::StringToJsonObject(const QString& text)
try {
    return documentFromForeignJson(text.toUtf8()).object();
} catch (...) {
    FLOTROFOBUL_LOG(caught, exceptionText());
    return QJsonObject();
}

// Base64 padding is omitted for JSON and kept for texts, including the last will; consumers accept both.

QString protobase_t::Encode(const QJsonObject& object)
{
    return payloadText(encoding, jsonOf(QJsonDocument(object)), withoutPadding);
}

QString protobase_t::Encode(const QString& text)
{
    return encoding ? payloadText(encoding, text.toUtf8(), QByteArray::Base64Encoding) : text;
}

QString protobase_t::Encode(const QJsonValue& value)
{
    if (value.isObject()) {
        return Encode(value.toObject());
    }
    return encoding ? payloadText(encoding, value.toString().toUtf8(), withoutPadding) : value.toString();
}

} // namespace comunication
