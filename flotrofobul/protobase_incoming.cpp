// SPDX-License-Identifier: MIT
// Messages and acknowledgements from the broker.
#include <flotrofobul/protobase_t.h>

#include <flotrofobul/advice.h>
#include <flotrofobul/define/define.h>
#include <flotrofobul/messages/messages.h>
#include <flotrofobul/platform/jsonserializer/json_text.h>
#include <flotrofobul/platform/logs/log_line.h>
#include <flotrofobul/utility/statusbroker.h>
#include <flotrofobul/utility/system_t.h>

#include <QtCore/QScopeGuard>

#include <algorithm>
#include <utility>

namespace comunication {

using namespace ::utility::logs;

namespace {

constexpr const char logSource[] = "libscomunication/libmosquittoproto/protobase_t";

constexpr int subscriptionRefused = 0x80; // in the SUBACK, and above it: some brokers give the reasons of MQTT 5

void logPending(message::classmessages& messages, const char* function)
{
    FLOTROFOBUL_LOG_AS(detail, "Published: "_l1 + QString::number(messages.getPublications()->size()), function);
    FLOTROFOBUL_LOG_AS(detail, "Subscribe: "_l1 + QString::number(messages.getSubscriptions()->size()), function);
}

} // namespace

void protobase_t::on_message(int mid, QString topic, QString payload, int payloadlen, int qos, bool retain)
try {
    FLOTROFOBUL_LOG(detail, "Recieve message => mid: "_l1 + QString::number(mid) + " topic: "_l1 + topic + " qos: "_l1 +
                                QString::number(qos) + " retain: "_l1 + QString::number(retain));
    if (topic.startsWith(PREFIX_PERFORMANCE, Qt::CaseInsensitive)) {
        FLOTROFOBUL_LOG(detail, "$SYS message "_l1 + topic);
        if (statusbroker) {
            FLOTROFOBUL_LOG(warning, QStringLiteral("Recording status broker is enabled..."));
            statistics->updateMessage(topic, payload);
        }
        onChangeStausBroker(mid, topic, payload, payloadlen, qos, retain);
        return;
    }
    const int levels = topic.count(u'/') + 1;
    if (levels < topic_t::getTopic_min_len()) {
        FLOTROFOBUL_LOG(error, "Message error length: "_l1 + topic);
        return;
    }
    bool ok = false;
    topic_t parsed(topic, &ok);
    if (!ok) {
        // The parser has logged the same text; this second line says that the message is dropped.
        FLOTROFOBUL_LOG(error, "Unknown topic not processing messsage: "_l1 + topic);
        return;
    }
    const QString sender = parsed.getSender();
    if (sender == system->getClientid()) {
        FLOTROFOBUL_LOG(detail, "Myself Message topic "_l1 + parsed.getOriginal());
        return;
    }
    FLOTROFOBUL_LOG(info, "Recieve message topic: "_l1 + topic);
    // Incoming payloads are never decoded: encoded ones are meant for consumers that are not engines.
    QJsonParseError outcome{};
    const QJsonDocument document = documentFromForeignJson(payload.toUtf8(), &outcome);
    const QPointer<protobase_t> alive(this);
    const auto traced = qScopeGuard([&] { tracePayload("received"_l1, topic, payload); }); // also where the role throws
    onMessage(mid, std::move(parsed), document.object().value(dataKey), qos, retain);
    // Nothing at all is how a retained message is taken back.
    if (alive && outcome.error != QJsonParseError::NoError && !payload.isEmpty()) {
        advice->payloadNoJson(sender, topic, payload, outcome);
    }
} catch (...) {
    FLOTROFOBUL_LOG(caught, exceptionText());
}

void protobase_t::on_publish(int mid)
{
    const char* const function = __func__;
    guarded(function, logSource, [&] {
        if (auto* const record = messages->getPublications(mid)) {
            FLOTROFOBUL_LOG_AS(info,
                               "Publish topic mid "_l1 + QString::number(mid) + " - topic "_l1 + record->getTopic() +
                                   " - qos "_l1 + QString::number(record->getQos()) + " - retain: "_l1 +
                                   QString::number(record->getRetainflag()),
                               function);
            record->setState(utility::state_acknowledged);
            messages->removePublications(mid);
        } else {
            FLOTROFOBUL_LOG_AS(warning, "Publish topic with mid "_l1 + QString::number(mid) + " not found!"_l1,
                               function);
        }
        logPending(*messages, function);
        lastWills.removeOne(mid);
    });
    guarded(function, logSource, [&] { onPublish(mid); });
}

void protobase_t::on_subscribe(int mid, int qos_count, const int* granted_qos)
{
    const char* const function = __func__;
    QString topic;
    guarded(function, logSource, [&] {
        if (auto* const record = messages->getSubsciption(mid)) {
            topic = record->getTopic();
            record->setState(utility::state_acknowledged);
            FLOTROFOBUL_LOG_AS(info,
                               "Subscribe topic mid "_l1 + QString::number(mid) + " - topic "_l1 + topic +
                                   " - qos "_l1 + QString::number(record->getQos()),
                               function);
        } else {
            FLOTROFOBUL_LOG_AS(warning, "Subscribe topic with mid "_l1 + QString::number(mid) + " not found!"_l1,
                               function);
        }
        logPending(*messages, function);
    });
    const QPointer<protobase_t> alive(this);
    const bool refused = granted_qos != nullptr && qos_count > 0 &&
                         *std::max_element(granted_qos, granted_qos + qos_count) >= subscriptionRefused;
    guarded(function, logSource, [&] { onSubscribe(mid, qos_count, granted_qos, topic); });
    if (alive && refused && !topic.isEmpty()) {
        advice->subscriptionRefused(topic);
    }
}

void protobase_t::on_unsubscribe(int mid)
{
    const char* const function = __func__;
    QString topic;
    guarded(function, logSource, [&] {
        if (auto* const record = messages->getSubsciption(mid)) {
            topic = record->getTopic();
            FLOTROFOBUL_LOG_AS(info,
                               "Unsubscribe topic mid "_l1 + QString::number(mid) + " - topic "_l1 + topic +
                                   " - qos "_l1 + QString::number(record->getQos()),
                               function);
            record->setState(utility::state_unsubscribed);
            messages->removeSubsciption(mid);
        } else {
            FLOTROFOBUL_LOG_AS(warning, "Unubscribe topic with mid "_l1 + QString::number(mid) + " not found!"_l1,
                               function);
        }
    });
    guarded(function, logSource, [&] { onUnsubscribe(mid, topic); });
}

} // namespace comunication
