// SPDX-License-Identifier: MIT
#include "doctor/examination.h"

#include "connection/dialling.h"
#include "connection/listener.h"

#include <flotrofobul/define/define.h>
#include <flotrofobul/platform/jsonserializer/json_text.h>
#include <flotrofobul/platform/qt.h>

#include <QtCore/QDateTime>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

#include <algorithm>

namespace comunication {
namespace tools {

using namespace std::chrono_literals;
using mosquittopp::mosquittoqt;

namespace {

constexpr int refused = 0x80; // in the SUBACK, and above it: some brokers give the reasons of MQTT 5
constexpr std::chrono::milliseconds farewell{300};
constexpr std::chrono::seconds longestFarewell{3};
const QString bridgeStates = QStringLiteral("$SYS/broker/connection/#");
const QString first = QStringLiteral("{\"d\":\"first\"}");
const QString brokerItself[] = {QStringLiteral("$SYS/broker/version"), QStringLiteral("$SYS/broker/clients/connected")};

QString wrapped(const QJsonValue& value)
{
    return QString::fromUtf8(jsonOf(QJsonDocument(QJsonObject{{QStringLiteral("d"), value}})));
}

int dial(mosquittoqt& client, const connection_t& connection)
{
    return dial(client, connection, std::max(connection.keepalive, leastKeepalive));
}

} // namespace

const QStringList& echoedKinds()
{
    static const QStringList kinds{QStringLiteral("connection"), QStringLiteral("status"), QStringLiteral("request"),
                                   QStringLiteral("command"), QStringLiteral("notification")};
    return kinds;
}

trial_client_t::trial_client_t(const connection_t& givenConnection, what_t givenWhat)
    : connection(givenConnection), what(givenWhat), id(strangerId()),
      topic(QStringLiteral("%1/%2/%3/nobody/connection/check").arg(LOCAL_PREFIX, givenConnection.installationId, id)),
      payload(wrapped(givenWhat == what_t::large ? QString(largePayload, u'x') : QStringLiteral("probe"))),
      client(id, true, false)
{
    connect(&client, &mosquittoqt::onConnect, this, [this](int rc) {
        if (rc == 0) {
            client.subscribe(nullptr, topic, 1);
            client.subscribe(nullptr, topic.section(u'/', 0, -2) + QStringLiteral("/#"), 1);
            client.publish(nullptr, topic, first, 1, false);
        }
    });
    connect(&client, &mosquittoqt::onMessage, this,
            [this](int, const QString&, const QString& text, int, int, bool retain) { hear(text, retain); });
    connect(&client, &mosquittoqt::onPublish, this, [this](int mid) {
        // What the broker keeps comes again to a subscription that is made again.
        if (mid == probe && this->what == what_t::retained) {
            client.subscribe(nullptr, topic, 1);
        }
    });
    connect(&client, &mosquittoqt::onDisconnect, this, [this] {
        if (result == trial_t::lost) {
            result = trial_t::ended;
        }
    });
}

void trial_client_t::start()
{
    dial(client, connection);
}

void trial_client_t::hear(const QString& text, bool retain)
{
    firsts += text == first ? 1 : 0;
    if (result == trial_t::notTried) {
        result = trial_t::lost; // until it comes back
        client.publish(&probe, topic, payload, 1, what == what_t::retained);
    } else if (text == payload && (what == what_t::large || retain)) {
        result = trial_t::passed;
        forget();
    }
}

// A retained packet that is empty takes back the one before it.
void trial_client_t::forget()
{
    if (what == what_t::retained) {
        client.publish(nullptr, topic, QString(), 1, true);
    }
}

void trial_client_t::stop()
{
    if (result == trial_t::lost && client.getConnected()) {
        forget();
    }
    client.disconnect(this);
    QTimer::singleShot(farewell, this, [this] { client.disconnect_sync(); });
}

examination_t::examination_t(const connection_t& givenConnection, const QString& id,
                             std::chrono::milliseconds givenTime)
    : connection(givenConnection), time(givenTime), client(QString(), true, false),
      retained(givenConnection, trial_client_t::what_t::retained), large(givenConnection, trial_client_t::what_t::large)
{
    seen.id = id.isEmpty() ? strangerId() : id;
    seen.ownId = id.isEmpty();
    client.setClientId(seen.id);
    seen.house = house::house_model_t(connection.installationId);
    utility::topic_t::setInstallationid(connection.installationId);
    connect(&client, &mosquittoqt::onConnect, this, &examination_t::join);
    connect(&client, &mosquittoqt::onDisconnect, this, &examination_t::lose);
    connect(&client, &mosquittoqt::onSubscribe, this,
            [this](int mid, int count, const int* codes) { granted(mid, count > 0 ? codes[0] : refused); });
    connect(&client, &mosquittoqt::onMessage, this,
            [this](int, const QString& topic, const QString& payload, int, int qos, bool retain) {
                hear(topic, payload, qos, retain);
            });
}

void examination_t::start()
{
    // A doctor that is killed leaves as a panel does.
    client.will_set(QStringLiteral("%1/%2/%3/%4/own_server/connection/presentation")
                        .arg(FORWARD_PREFIX, LOCAL_PREFIX, connection.installationId, seen.id),
                    presentation(false), 2, false);
    const int rc = dial(client, connection);
    if (rc != 0) {
        lose(rc);
    }
}

void examination_t::join(int rc)
{
    seen.answer = rc;
    if (rc != 0) {
        lose(0);
        return;
    }
    subscribe(bridgeStates);
    for (const QString& topic : brokerItself) {
        subscribe(topic);
    }
    // One subscription for everything, so that a copy is a copy.
    subscribe(QStringLiteral("+/%1/#").arg(LOCAL_PREFIX));
    QTimer::singleShot(time, this, &examination_t::takeLeave);
}

void examination_t::subscribe(const QString& topic)
{
    int mid = 0;
    client.subscribe(&mid, topic, 2);
    requests.insert(mid, topic);
}

void examination_t::granted(int mid, int code)
{
    const QString topic = requests.take(mid);
    const QString everybody = QStringLiteral("+/%1/#").arg(LOCAL_PREFIX);
    if (code >= refused && topic == everybody) {
        // It may be that only the other installations are not for us.
        subscribe(QStringLiteral("+/%1/%2/#").arg(LOCAL_PREFIX, connection.installationId));
    } else if (code >= refused) {
        seen.refusedSubscriptions << topic;
    }
    if (requests.isEmpty() && !probed) {
        probed = true;
        probe();
    }
}

void examination_t::probe()
{
    for (const QString& kind : echoedKinds()) {
        client.publish(nullptr,
                       QStringLiteral("%1/%2/%3/%4/%4/%5/check")
                           .arg(FORWARD_PREFIX, LOCAL_PREFIX, connection.installationId, seen.id, kind),
                       wrapped(QStringLiteral("probe")), 2, false);
    }
    present(true);
    retained.start();
    large.start();
}

void examination_t::hear(const QString& topic, const QString& payload, int qos, bool retain)
{
    const QByteArray bytes = payload.toUtf8();
    bool parsed = false;
    const utility::topic_t parts(topic, &parsed);
    if (parsed && parts.getSender() == seen.id) {
        if (parts.getOrigin() != FORWARD_PREFIX) {
            seen.returnedUnder.insert(parts.getOrigin());
        } else if (parts.getDestination() == seen.id) {
            seen.echoes.insert(parts.getValue().section(u'/', 0, 0));
        }
        return;
    }
    seen.house.take(house::moment_t(QDateTime::currentMSecsSinceEpoch()), topic, bytes, qos, retain);
    if (parsed) {
        note(parts, bytes, retain);
    }
}

// What the model of the house does not keep.
void examination_t::note(const utility::topic_t& topic, const QByteArray& payload, bool retain)
{
    const QString kind = topic.getValue().section(u'/', 0, 0);
    if (retain) {
        if (kind == QLatin1String("status")) {
            seen.kept[topic.getSender()] << topic.getOriginal();
        }
        return;
    }
    if (topic.getOrigin() == FORWARD_PREFIX) {
        seen.near.insert(topic.getSender());
    }
    if (kind == QLatin1String("request")) {
        seen.asked.insert(topic.getSender(), topic.getDestination());
    }
    if (topic.getDestination() == seen.id && topic.getValue() == QLatin1String("connection/presentation")) {
        answer_of_server_t& answer = seen.answers[topic.getSender()];
        if (answer.copies.isEmpty()) {
            const QJsonObject record = QJsonDocument::fromJson(payload).object().value(QStringLiteral("d")).toObject();
            answer.arrived = QDateTime::currentDateTime();
            answer.published = qt::dateOf(record.value(QStringLiteral("publishDate")).toString());
        }
        ++answer.copies[topic.getOrigin()];
    }
}

QString examination_t::presentation(bool here) const
{
    const QString none;
    return wrapped(QJsonObject{{QStringLiteral("clientid"), seen.id},
                               {QStringLiteral("type"), QStringLiteral("client")},
                               {QStringLiteral("connected"), here},
                               {QStringLiteral("os"), none},
                               {QStringLiteral("versionLib"), none},
                               {QStringLiteral("versionApp"), QStringLiteral("doctor")},
                               {QStringLiteral("hostname"), none},
                               {QStringLiteral("publishDate"), qt::textOf(QDateTime::currentDateTime())},
                               {QStringLiteral("brokerip"), connection.host},
                               {QStringLiteral("masterid"), none},
                               {QStringLiteral("masterData"), QJsonObject()}});
}

int examination_t::present(bool here)
{
    int mid = 0;
    client.publish(&mid,
                   QStringLiteral("%1/%2/%3/%4/own_server/connection/presentation")
                       .arg(FORWARD_PREFIX, LOCAL_PREFIX, connection.installationId, seen.id),
                   presentation(here), 2, false);
    return mid;
}

void examination_t::lose(int rc)
{
    if (done) {
        return;
    }
    seen.lost = seen.answer == 0;
    seen.lossCode = rc;
    seen.problem = client.linkProblem();
    takeLeave();
}

void examination_t::takeLeave()
{
    if (done) {
        return;
    }
    done = true;
    seen.retained = retained.outcome();
    seen.large = large.outcome();
    seen.copyForEach = retained.gotCopies();
    retained.stop();
    large.stop();
    client.disconnect(this);
    auto* const end = new QTimer(this);
    end->setSingleShot(true);
    connect(end, &QTimer::timeout, this, [this] {
        client.disconnect_sync();
        Q_EMIT finished();
    });
    end->start(farewell + 100ms);
    if (client.getConnected()) {
        end->start(longestFarewell);
        // Others know of it only when the broker has the whole of it.
        connect(&client, &mosquittoqt::onPublish, this, [end, goodbye = present(false)](int mid) {
            if (mid == goodbye) {
                end->start(farewell + 100ms);
            }
        });
    }
}

} // namespace tools
} // namespace comunication
