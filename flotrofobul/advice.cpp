// SPDX-License-Identifier: MIT
#include <flotrofobul/advice.h>

#include <flotrofobul/define/define.h>
#include <flotrofobul/define/topic_t.h>
#include <flotrofobul/platform/jsonserializer/json_text.h>
#include <flotrofobul/platform/logs/log_line.h>
#include <flotrofobul/platform/secrets.h>
#include <flotrofobul/platform/text.h>

#include <QRegExp>
#include <QtCore/QJsonDocument>

#include <chrono>
#include <utility>

namespace comunication {

using namespace ::utility::logs;

namespace {

constexpr const char logSource[] = "libscomunication/libmosquittoproto/advice";
constexpr const char adviceName[] = "advice";

constexpr int mostThings = 256;
constexpr std::chrono::seconds patience{10};
constexpr int longestPayload = 1024; // bytes
constexpr int longestShown = 120;    // characters of what a stranger has written

const QString fallback =
    QStringLiteral("the engine goes on with what it had: from the start broker 127.0.0.1:1883 and no installation");

QString shown(const QString& text)
{
    return text.size() <= longestShown ? text : QString(text.left(longestShown) + "..."_l1);
}

} // namespace

advice_t::advice_t(QObject* parent) : waiting(parent)
{
    waiting.setSingleShot(true);
    waiting.setInterval(patience);
    QObject::connect(&waiting, &QTimer::timeout, &waiting, [this] {
        const QStringList servers = heardServers();
        const QString heard = servers.isEmpty()
                                  ? QStringLiteral("no server has presented itself")
                                  : "heard of "_l1 + servers.join(", "_l1) + ", none of them is master"_l1;
        say(warning, "waiting for a master: "_l1 + heard);
    });
}

void advice_t::release()
{
    held = false;
    for (const line_t& line : std::exchange(heldLines, {})) {
        if (classlogs::getInstance()->isAdviceOn()) {
            FLOTROFOBUL_LOG_AS(line.level, line.text, adviceName);
        }
    }
}

bool advice_t::hasRoom() const
{
    return classlogs::getInstance()->isAdviceOn() && said.size() < mostThings;
}

void advice_t::say(int level, const QString& key, const QString& text)
{
    if (!hasRoom() || isSaid(key)) {
        return;
    }
    said.insert(qHash(key));
    if (held) {
        heldLines.push_back({level, text});
    } else {
        FLOTROFOBUL_LOG_AS(level, text, adviceName);
    }
}

void advice_t::configurationNotRead(const QString& path, const QString& why)
{
    say(error, "The configuration "_l1 + path + " was not taken: "_l1 + why + "; "_l1 + fallback);
}

void advice_t::configurationNoJson(const QString& path, const QByteArray& bytes, const QJsonParseError& outcome)
{
    const QByteArray before = bytes.left(outcome.offset);
    const int line = before.count('\n') + 1;
    const int column = QString::fromUtf8(before.mid(before.lastIndexOf('\n') + 1)).size() + 1;
    configurationNotRead(path,
                         QStringLiteral("%1 at line %2, column %3").arg(outcome.errorString()).arg(line).arg(column));
}

void advice_t::configurationRemarks(const QStringList& remarks)
{
    for (const QString& remark : remarks) {
        say(warning, remark);
    }
}

void advice_t::installationId(const QString& id)
{
    // Made anew from the template: an engine in another thread may be about to change the one in use.
    QString text = utility::topic_t::regex_allowed_topic_plain;
    text.replace(INSTALLATIONID, id);
    const QRegExp pattern(text, Qt::CaseSensitive, QRegExp::RegExp);
    const bool carried =
        pattern.exactMatch(LOCAL_PREFIX + u'/' + id + "/a/b/c"_l1) && pattern.capturedTexts().value(3) == id;
    if (!id.isEmpty() && !carried) {
        say(error, "No packet of installation "_l1 + shown(id) +
                       " may be recognised: always set an installation id of letters and digits. It stands in a "
                       "character class of the topic pattern, which characters such as - ] ^ change"_l1);
    }
}

void advice_t::clientId(const QString& id, const QString& hostname)
{
    // All that an Android device tells. The host may have given an id since.
    if (hostname.section(u'.', 0, 0) == "localhost"_l1 && id.endsWith(u'@' + QString(hostname).remove(u'.'))) {
        say(error, "The client id "_l1 + id +
                       " is that of every machine with the name localhost, and at one broker they keep throwing each "
                       "other out: give each node a client id of its own"_l1);
    }
}

void advice_t::subscriptionRefused(const QString& topic)
{
    say(warning, "The broker refuses the subscription of "_l1 + topic + ": does the broker's access list allow it?"_l1);
}

void advice_t::waitForMaster(std::function<QStringList()> heard)
{
    heardServers = std::move(heard);
    waiting.start();
}

void advice_t::nobodyListens(const QString& panel)
{
    say(warning, QStringLiteral("nobody listens"),
        shown(panel) +
            " is there, and the host of this server has not called init_subscription: it hears no request on "
            "the plain topics of its broker; call it in onConnection, every time"_l1);
}

void advice_t::packetLacks(const QJsonObject& packet)
{
    const QString topic = packet["topic"_l1].toString();
    const QString missing = !packet.contains("topic"_l1)     ? QStringLiteral("\"topic\"")
                            : !packet.contains("payload"_l1) ? QStringLiteral("\"payload\"")
                                                             : QString();
    say(error, "A packet was not published: "_l1 + missing + " is missing"_l1 +
                   (topic.isEmpty() ? QString() : " beside topic "_l1 + shown(topic)));
}

void advice_t::placeholderLeadsBack(const QString& topic)
{
    // Later, because a role subscribes many topics and speaks between them.
    QTimer::singleShot(0, &waiting, [this, topic] {
        say(error, "A placeholder leads back to itself and stays, in topic "_l1 + shown(topic));
    });
}

void advice_t::foreignThread()
{
    if (classlogs::getInstance()->isAdviceOn() && !foreignThreadSeen.exchange(true)) {
        FLOTROFOBUL_LOG_AS(error,
                           QStringLiteral("An engine is used from another thread than its own: call it through a "
                                          "signal or QMetaObject::invokeMethod"),
                           adviceName);
    }
}

void advice_t::payloadNoJson(const QString& sender, const QString& topic, const QString& payload,
                             const QJsonParseError& outcome)
{
    const QString encoder = "encoding "_l1 + sender;
    const QString place = sender + u' ' + topic;
    if (!hasRoom() || isSaid(encoder)) {
        return; // before a flood is decoded packet by packet
    }
    if (!decodedJson(payload).isEmpty()) {
        say(warning, encoder,
            "encoding is on at "_l1 + shown(sender) +
                ": its payloads are Base64, which engines do not decode; build both with encoding off"_l1);
        return;
    }
    if (isSaid(place)) {
        return;
    }
    say(error, place,
        QStringLiteral("The payload from %1 on %2 is no JSON: %3 at offset %4")
            .arg(shown(sender), shown(topic), outcome.errorString())
            .arg(outcome.offset));
}

void tracePayload(QLatin1String direction, const QString& topic, const QString& payload)
{
    if (!classlogs::getInstance()->isEnabled(trace)) {
        return;
    }
    QByteArray bytes = decodedJson(payload);
    if (bytes.isEmpty()) {
        bytes = payload.toUtf8();
    }
    const QJsonObject object = documentFromForeignJson(bytes).object();
    const QJsonObject shownObject = withoutSecrets(object).toObject();
    if (shownObject != object) {
        bytes = jsonOf(QJsonDocument(shownObject));
    } else if (object.isEmpty() && isSecret(textUpToZero(bytes))) {
        bytes = QByteArrayLiteral("(not shown)");
    }
    const int size = bytes.size();
    if (size > longestPayload) {
        bytes = bytes.left(longestPayload) + "... (" + QByteArray::number(size) + " bytes)";
    }
    FLOTROFOBUL_LOG_AS(trace, direction + u' ' + topic + u' ' + textUpToZero(bytes), adviceName);
}

} // namespace comunication
