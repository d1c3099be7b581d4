// SPDX-License-Identifier: MIT
#include <flotrofobul/house/settings.h>

#include <flotrofobul/platform/config/reading.h>
#include <flotrofobul/platform/config/spelling.h>
#include <flotrofobul/platform/logs/log_line.h>

#include <QtCore/QJsonObject>

namespace comunication {
namespace house {

namespace {

constexpr const char logSource[] = "libscomunication/libmosquittohouse/settings";
const QString path = QStringLiteral("house");

struct key_t {
    QLatin1String name;
    moment_t times_t::*time; ///< null: the rank
    config::range_t range;
};

constexpr key_t keys[] = {
    {"rank"_l1, nullptr, {bestRank, lastRank}},
    {"advertise"_l1, &times_t::advertise, {1000, 60000}},
    {"patience"_l1, &times_t::patience, {200, 30000}},
    {"start"_l1, &times_t::start, {200, 60000}},
};

} // namespace

void readSettings(const QJsonValue& section, settings_t* settings)
{
    if (!section.isObject()) {
        if (!section.isUndefined()) {
            config::logRefused(path, config::shown(section), QStringLiteral("an object"));
        }
        return;
    }
    QJsonObject rest = section.toObject();
    QStringList known;
    for (const key_t& key : keys) {
        known += path + u'.' + key.name;
        const QJsonValue value = rest.take(key.name);
        int number = 0;
        if (value.isUndefined()) {
            continue;
        }
        if (!config::assign(number, value, key.range)) {
            config::logRefused(known.last(), config::shown(value), config::allowed(number, key.range));
        } else if (key.time == nullptr) {
            settings->rank = number;
        } else {
            settings->times.*key.time = moment_t(number);
        }
    }
    for (const QString& key : rest.keys()) {
        const QString meant = config::probablyMeant(path + u'.' + key, known);
        FLOTROFOBUL_LOG(::utility::logs::warning,
                        "Unknown key \""_l1 + path + u'.' + key.left(80) + "\" in the configuration"_l1 +
                            (meant.isEmpty() ? QString() : QString(", is \""_l1 + meant + "\" meant?"_l1)));
    }
}

} // namespace house
} // namespace comunication
