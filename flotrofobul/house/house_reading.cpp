// SPDX-License-Identifier: MIT
#include <flotrofobul/house/house_reading.h>

#include <flotrofobul/define/packet.h>
#include <flotrofobul/platform/jsonserializer/json_text.h>
#include <flotrofobul/platform/secrets.h>
#include <flotrofobul/platform/text.h>

namespace comunication {
namespace house {

namespace {

const QString dataKey = QStringLiteral("d");

struct wayName_t {
    const QString& name;
    way_t way;
};
const wayName_t wayNames[] = {{FORWARD_PREFIX, way_t::forward},
                              {REMOTE_PREFIX, way_t::remote},
                              {CLOUD_PREFIX_1, way_t::cloud},
                              {CLOUD_PREFIX_2, way_t::cloud}};

/// What the first level after the destination says of who speaks.
struct speaker_t {
    QLatin1String level;
    role_t role;
};
constexpr speaker_t speakers[] = {
    {"status"_l1, role_t::server},  {"notification"_l1, role_t::server}, {"master"_l1, role_t::server},
    {"request"_l1, role_t::client}, {"command"_l1, role_t::client},
};

QStringView nextLevel(QStringView& rest)
{
    const qsizetype slash = rest.indexOf(u'/');
    const QStringView level = slash < 0 ? rest : rest.left(slash);
    rest = slash < 0 ? QStringView() : rest.mid(slash + 1);
    return level;
}

} // namespace

bool split(const QString& topic, parts_t* parts)
{
    QStringView rest(topic);
    if (rest.startsWith(u'/')) {
        rest = rest.mid(1);
    }
    QStringView level = nextLevel(rest);
    for (const wayName_t& one : wayNames) {
        if (level == one.name) {
            parts->way = one.way;
            level = nextLevel(rest);
            break;
        }
    }
    parts->installation = nextLevel(rest);
    parts->sender = nextLevel(rest);
    parts->destination = nextLevel(rest);
    parts->value = rest;
    return level == LOCAL_PREFIX && !parts->installation.isEmpty() && !parts->sender.isEmpty() &&
           parts->sender.size() <= longestId && !parts->destination.isEmpty() && !parts->value.isEmpty();
}

/// Whether a destination stands for several nodes.
bool isWord(QStringView destination)
{
    return destination == "own_server"_l1 || destination.startsWith("all"_l1);
}

/// The text of a view as a key to look up; valid as long as the view is.
QString borrowed(QStringView view)
{
    return QString::fromRawData(view.data(), static_cast<int>(view.size()));
}

// As "{" begins in Base64, as decodedJson() has it. Cheap enough for every packet.
bool looksEncoded(const QByteArray& payload)
{
    return payload.startsWith('e');
}

QJsonValue valueIn(const QByteArray& payload)
{
    const QByteArray json = looksEncoded(payload) ? decodedJson(textUpToZero(payload)) : payload;
    return documentFromForeignJson(json).object().value(dataKey);
}

QJsonObject shortened(const QJsonObject& record)
{
    static const char* const keys[] = {"clientid", "type",        "os",        "versionLib", "versionApp",
                                       "hostname", "publishDate", "connected", "brokerip",   "masterid"};
    QJsonObject result;
    for (const char* const key : keys) {
        const QJsonValue value = record.value(QLatin1String(key));
        if (value.isBool()) {
            result.insert(QLatin1String(key), value);
        } else if (value.isString()) {
            result.insert(QLatin1String(key), value.toString().left(longestText));
        }
    }
    return result;
}

role_t roleOf(QStringView kind)
{
    for (const speaker_t& speaker : speakers) {
        if (kind == speaker.level) {
            return speaker.role;
        }
    }
    return role_t::unknown;
}

} // namespace house
} // namespace comunication
