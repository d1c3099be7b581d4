// SPDX-License-Identifier: MIT
#include "details.h"

#include "watch/packet_lines.h"

#include <flotrofobul/platform/secrets.h>
#include <flotrofobul/platform/text.h>

#include <QtCore/QDateTime>
#include <QtCore/QJsonDocument>

namespace comunication {
namespace view {

namespace {

void add(QVariantList* list, const QString& name, const QString& value)
{
    if (!value.isEmpty()) {
        *list << QVariantMap{{QStringLiteral("name"), name}, {QStringLiteral("value"), tools::harmless(value)}};
    }
}

QString timeOf(moment_t moment)
{
    return moment == house::never
               ? QString()
               : QDateTime::fromMSecsSinceEpoch(moment.count()).toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"));
}

QString brokerOf(const scene_t& scene, int broker)
{
    return broker >= 0 && broker < scene.brokers.size() ? scene.brokers[broker].name : QString();
}

} // namespace

QString wordOf(direction_t direction)
{
    switch (direction) {
    case direction_t::unknown: return QStringLiteral("unknown");
    case direction_t::up: return QStringLiteral("up");
    case direction_t::down: return QStringLiteral("down");
    case direction_t::missing: return QStringLiteral("missing");
    }
    return {};
}

QString wordOf(hearing_t hearing)
{
    switch (hearing) {
    case hearing_t::connecting: return QStringLiteral("connecting");
    case hearing_t::listening: return QStringLiteral("listening");
    case hearing_t::lost: return QStringLiteral("lost");
    case hearing_t::unheard: return QStringLiteral("unheard");
    case hearing_t::recording: return QStringLiteral("recording");
    }
    return {};
}

QString wordOf(house::presence_t presence)
{
    return presence == house::presence_t::here   ? QStringLiteral("here")
           : presence == house::presence_t::gone ? QStringLiteral("gone")
                                                 : QStringLiteral("unknown");
}

QString rateTextOf(double rate)
{
    return rate < 0.05 ? QString() : QString::number(rate, 'f', rate < 10 ? 1 : 0) + QStringLiteral("/s");
}

QVariantList detailsOf(const scene_t& scene, const scene_node_t& node)
{
    const scene_facts_t& facts = *node.facts;
    QVariantList list;
    add(&list, QStringLiteral("role"),
        house::wordOf(facts.role) + (facts.isMaster ? QStringLiteral(", master") : QString()));
    add(&list, QStringLiteral("state"),
        facts.presence == house::presence_t::here && facts.ready ? QStringLiteral("here, ready")
                                                                 : wordOf(facts.presence));
    add(&list, QStringLiteral("why"), facts.why);
    add(&list, QStringLiteral("follows"), facts.isMaster ? QString() : facts.master);
    add(&list, QStringLiteral("at"), brokerOf(scene, facts.broker));
    add(&list, QStringLiteral("since"), timeOf(facts.since));
    add(&list, QStringLiteral("master since"), facts.isMaster ? timeOf(facts.masterSince) : QString());
    add(&list, QStringLiteral("last sign of life"), timeOf(node.heard));
    add(&list, QStringLiteral("rate"), rateTextOf(node.rate));
    static const char* const ways[house::wayCount] = {"at its broker", "over bridges", "over the cloud",
                                                      "without a prefix"};
    QStringList counts;
    for (int i = 0; i < house::wayCount; ++i) {
        if (node.packets[i] > 0) {
            counts << QString::number(node.packets[i]) + QLatin1Char(' ') + QLatin1String(ways[i]);
        }
    }
    add(&list, QStringLiteral("packets"), counts.join(QStringLiteral(", ")));
    add(&list, QStringLiteral("encoding"),
        facts.encoded ? QStringLiteral("on: its payloads are Base64, which engines do not decode") : QString());
    add(&list, QStringLiteral("installation"), facts.installation);
    return list;
}

QVariantList detailsOf(const scene_t& scene, const scene_broker_t& broker)
{
    static const char* const words[] = {"not reached yet", "listening", "lost", "not listened to", "recorded there"};
    const int place = static_cast<int>(&broker - scene.brokers.constData());
    QVariantList list;
    add(&list, QStringLiteral("state"), QLatin1String(words[static_cast<int>(broker.hearing)]));
    add(&list, QStringLiteral("problem"), broker.problem);
    add(&list, QStringLiteral("version"), broker.version);
    add(&list, QStringLiteral("clients"), broker.clients < 0 ? QString() : QString::number(broker.clients));
    add(&list, QStringLiteral("rate"), rateTextOf(broker.rate));
    QStringList nodes;
    for (const scene_node_t& node : scene.nodes) {
        if (node.facts->broker == place) {
            nodes << node.facts->id;
        }
    }
    add(&list, QStringLiteral("nodes"), nodes.join(QStringLiteral(", ")));
    return list;
}

QVariantList detailsOf(const scene_t& scene, const scene_line_t& line)
{
    static const char* const words[] = {"not known", "up", "down", "missing: one side speaks, nothing of it arrives"};
    QVariantList list;
    const QString from = brokerOf(scene, line.from);
    const QString to = brokerOf(scene, line.to);
    const auto direction = [&](const QString& one, const QString& other, direction_t state, double rate, qint64 count) {
        QString text = QLatin1String(words[static_cast<int>(state)]);
        text += count > 0 ? QStringLiteral(", %1 packets").arg(count) : QString();
        text += rateTextOf(rate).isEmpty() ? QString() : QStringLiteral(", ") + rateTextOf(rate);
        add(&list, one + QStringLiteral(" to ") + other, text);
    };
    direction(from, to, line.there, line.rateThere, line.countThere);
    direction(to, from, line.back, line.rateBack, line.countBack);
    add(&list, QStringLiteral("bridges"), line.names.join(QStringLiteral(", ")));
    add(&list, QStringLiteral("down"), line.down.join(QStringLiteral(", ")));
    return list;
}

QString recordTextOf(const QJsonObject& record)
{
    if (record.isEmpty()) {
        return {};
    }
    QStringList lines =
        QString::fromUtf8(QJsonDocument(record).toJson(QJsonDocument::Indented)).trimmed().split(QLatin1Char('\n'));
    for (QString& line : lines) {
        line = tools::harmless(line);
    }
    return lines.join(QLatin1Char('\n'));
}

QString payloadTextOf(const ring_packet_t& packet)
{
    const QByteArray inside = packet.payload.startsWith('e') ? decodedJson(textUpToZero(packet.payload)) : QByteArray();
    const bool isCut = packet.size > packet.payload.size();
    QString text = textUpToZero(inside.isEmpty() ? packet.payload : inside);
    // A character that the cut has halved is no reason to take it for bytes.
    if (inside.isEmpty() && !isCut && text.toUtf8() != packet.payload) {
        text = QStringLiteral("(base64) ") + QString::fromLatin1(packet.payload.toBase64());
    }
    text = (inside.isEmpty() ? QString() : QStringLiteral("(encoded) ")) + tools::harmless(text);
    return isCut ? text + QStringLiteral(" ... (%1 bytes)").arg(packet.size) : text;
}

} // namespace view
} // namespace comunication
