// SPDX-License-Identifier: MIT
// The keys of the configuration as tables, with one loop that reads them and one that writes them.
#include <flotrofobul/platform/config/mosquittocnf.h>

#include <flotrofobul/platform/config/reading.h>
#include <flotrofobul/platform/config/spelling.h>
#include <flotrofobul/platform/text.h>

#include <optional>
#include <variant>

namespace comunication {
namespace config {

namespace {

constexpr range_t rangeOf(const limits::limit_t<int>& limit)
{
    return {limit.lowest, limit.highest};
}

template <typename Duration>
constexpr range_t rangeOf(const limits::limit_t<Duration>& limit)
{
    return {limit.lowest.count(), limit.highest.count()};
}

enum class privacy_t { open, secret };

template <typename Section>
struct setting_t {
    QLatin1String key;
    std::variant<bool Section::*, int Section::*, QString Section::*> member;
    range_t range = {};
    privacy_t privacy = privacy_t::open;
};

} // namespace

/// The three tables: each key, where it is stored, and for a number its range. Friend of the sections.
struct settings_t {
    template <typename Section>
    static QJsonObject& unknown(Section& section)
    {
        return section.unknown;
    }

    template <typename Section>
    static const QJsonObject& unknown(const Section& section)
    {
        return section.unknown;
    }

    static const auto& of(const config_global&)
    {
        using section_t = config_global;
        static constexpr setting_t<section_t> table[] = {
            {"installation_id"_l1, &section_t::installationId},
            {"host"_l1, &section_t::host},
            {"port"_l1, &section_t::port, rangeOf(limits::port)},
            {"interval"_l1, &section_t::interval, rangeOf(limits::interval)},
            {"autoconnect"_l1, &section_t::autoconnect},
            {"logging"_l1, &section_t::logging},
        };
        return table;
    }

    static const auto& of(const config_connect&)
    {
        using section_t = config_connect;
        static constexpr setting_t<section_t> table[] = {
            {"keepalive"_l1, &section_t::keepalive, rangeOf(limits::keepalive)},
            {"cleansession"_l1, &section_t::cleansession},
            {"username"_l1, &section_t::username},
            {"password"_l1, &section_t::password, {}, privacy_t::secret},
            {"timeout"_l1, &section_t::timeout, rangeOf(limits::connectTimeout)},
            {"outbox_messages"_l1, &section_t::outboxMessages, rangeOf(limits::outboxMessages)},
            {"outbox_bytes"_l1, &section_t::outboxBytes, rangeOf(limits::outboxBytes)},
            {"max_packet_bytes"_l1, &section_t::maxPacketBytes, rangeOf(limits::packetBytes)},
        };
        return table;
    }

    static const auto& of(const config_security&)
    {
        using section_t = config_security;
        static constexpr setting_t<section_t> table[] = {
            {"tls_enable"_l1, &section_t::tlsEnable},
            {"tls_insecure"_l1, &section_t::tlsInsecure},
            {"ca_file"_l1, &section_t::caFile},
        };
        return table;
    }
};

namespace {

void merge(QJsonObject& into, const QJsonObject& from)
{
    for (auto it = from.constBegin(); it != from.constEnd(); ++it) {
        into.insert(it.key(), it.value());
    }
}

// Takes the object under a key out of its parent; nothing if it is missing or refused.
std::optional<QJsonObject> takeObject(QJsonObject& parent, QLatin1String key, const QString& path)
{
    const QJsonValue value = parent.take(key);
    if (value.isObject()) {
        return value.toObject();
    }
    if (!value.isUndefined()) {
        // A text here is most likely a whole configuration in quotes.
        logRefused(path, value.isString() ? QStringLiteral("a text") : shown(value), QStringLiteral("an object"));
    }
    return std::nullopt;
}

// What is left of the section are the keys that nobody knows.
template <typename Section>
QStringList readSection(Section& section, QJsonObject& parent, QLatin1String name)
{
    const QString path = "mqtt."_l1 % name;
    std::optional<QJsonObject> json = takeObject(parent, name, path);
    if (!json) {
        return {};
    }
    for (const auto& setting : settings_t::of(section)) {
        const QJsonValue value = json->take(setting.key);
        if (value.isUndefined()) {
            continue;
        }
        std::visit(
            [&](auto member) {
                if (!assign(section.*member, value, setting.range)) {
                    const bool secret = setting.privacy == privacy_t::secret;
                    logRefused(path % "."_l1 % setting.key, secret ? QStringLiteral("(not shown)") : shown(value),
                               allowed(section.*member, setting.range));
                }
            },
            setting.member);
    }
    merge(settings_t::unknown(section), *json);
    QStringList left;
    for (const QString& key : json->keys()) {
        left += path % "."_l1 % key;
    }
    return left;
}

template <typename Section>
QStringList pathsOf(const Section& section, QLatin1String name)
{
    QStringList paths("mqtt."_l1 + name);
    for (const auto& setting : settings_t::of(section)) {
        paths += "mqtt."_l1 % name % "."_l1 % setting.key;
    }
    return paths;
}

QStringList remarksOn(const QStringList& unknownPaths, const QStringList& knownPaths)
{
    constexpr int mostRemarks = 10;
    QStringList remarks;
    for (const QString& path : unknownPaths.mid(0, mostRemarks)) {
        const QString meant = probablyMeant(path, knownPaths);
        remarks += "Unknown key \""_l1 % path.left(80) % "\" in the configuration, "_l1 %
                   (meant.isEmpty() ? QStringLiteral("it is kept and has no effect")
                                    : QString("is \""_l1 % meant % "\" meant?"_l1));
    }
    return remarks;
}

template <typename Section>
QJsonObject writeSection(const Section& section)
{
    QJsonObject json = settings_t::unknown(section);
    for (const auto& setting : settings_t::of(section)) {
        std::visit([&](auto member) { json.insert(setting.key, section.*member); }, setting.member);
    }
    return json;
}

} // namespace

mosquittocnf::mosquittocnf(QObject* parent) : QObject(parent), mqtt(std::make_unique<config_mqtt>())
{}

mosquittocnf::~mosquittocnf() = default;

bool mosquittocnf::deserialize(const QJsonObject& json)
{
    const QStringList known = QStringList("mqtt"_l1) + pathsOf(mqtt->global, "global"_l1) +
                              pathsOf(mqtt->connect, "connect"_l1) + pathsOf(mqtt->security, "security"_l1);
    QJsonObject rest = json;
    const bool present = rest.contains("mqtt"_l1);
    std::optional<QJsonObject> sections = takeObject(rest, "mqtt"_l1, QStringLiteral("mqtt"));
    merge(unknown, rest);
    if (!sections) {
        unknownKeys = remarksOn(rest.keys(), known);
        return !present;
    }
    // What stands beside "mqtt" is the host's own.
    QStringList left = readSection(mqtt->global, *sections, "global"_l1);
    left += readSection(mqtt->connect, *sections, "connect"_l1);
    left += readSection(mqtt->security, *sections, "security"_l1);
    for (const QString& key : sections->keys()) {
        left += "mqtt."_l1 + key;
    }
    unknownKeys = remarksOn(left, known);
    merge(mqtt->unknown, *sections);
    return true;
}

QJsonObject mosquittocnf::serialize() const
{
    QJsonObject sections = mqtt->unknown;
    sections.insert("global"_l1, writeSection(mqtt->global));
    sections.insert("connect"_l1, writeSection(mqtt->connect));
    sections.insert("security"_l1, writeSection(mqtt->security));
    QJsonObject json = unknown;
    json.insert("mqtt"_l1, sections);
    return json;
}

} // namespace config
} // namespace comunication
