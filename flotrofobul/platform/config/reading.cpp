// SPDX-License-Identifier: MIT
#include <flotrofobul/platform/config/reading.h>

#include <flotrofobul/platform/jsonserializer/json_text.h>
#include <flotrofobul/platform/logs/log_line.h>

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>

#include <cmath>

namespace comunication {
namespace config {

namespace {

constexpr const char logSource[] = "libscomunication/libmosquittoconfig/mosquittocnf";

} // namespace

bool assign(bool& member, const QJsonValue& value, range_t)
{
    member = value.toBool(member);
    return value.isBool();
}

bool assign(QString& member, const QJsonValue& value, range_t)
{
    member = value.toString(member);
    return value.isString();
}

bool assign(int& member, const QJsonValue& value, range_t range)
{
    const double number = value.toDouble();
    if (!value.isDouble() || std::trunc(number) != number || number < range.lowest || number > range.highest) {
        return false;
    }
    member = static_cast<int>(number);
    return true;
}

QString allowed(const bool&, range_t)
{
    return QStringLiteral("true or false");
}

QString allowed(const QString&, range_t)
{
    return QStringLiteral("a text");
}

QString allowed(const int&, range_t range)
{
    return QStringLiteral("a whole number from %1 to %2").arg(range.lowest).arg(range.highest);
}

// In place of a value there may be the whole configuration, one level off and with the password: only plain values are
// shown, and no more of a text than a line can hold.
QString shown(const QJsonValue& value)
{
    if (value.isArray()) {
        return QStringLiteral("an array");
    }
    if (value.isObject()) {
        return QStringLiteral("an object");
    }
    const int longest = 64;
    const QByteArray json = jsonOf(QJsonDocument(QJsonArray{value}));
    const QString text = QString::fromUtf8(json.mid(1, json.size() - 2));
    return text.size() <= longest ? text : QString(text.left(longest) % "..."_l1);
}

void logRefused(const QString& path, const QString& value, const QString& allowedText)
{
    FLOTROFOBUL_LOG_AT(::utility::logs::error,
                       "Refused configuration value "_l1 % path % ": "_l1 % value % ", allowed: "_l1 % allowedText,
                       "deserialize", logSource, __LINE__);
}

} // namespace config
} // namespace comunication
