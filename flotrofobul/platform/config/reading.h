// SPDX-License-Identifier: MIT
// How single values of a configuration are read and refused. Internal.
#pragma once

#include <QtCore/QJsonValue>
#include <QtCore/QString>

namespace comunication {
namespace config {

struct range_t {
    int lowest = 0;
    int highest = 0;
};

// Take a value; false, with the member as it was, if it has the wrong type or is out of range.
bool assign(bool& member, const QJsonValue& value, range_t range);
bool assign(QString& member, const QJsonValue& value, range_t range);
bool assign(int& member, const QJsonValue& value, range_t range);

// What a member of this type may be, in words.
QString allowed(const bool& member, range_t range);
QString allowed(const QString& member, range_t range);
QString allowed(const int& member, range_t range);

/// A value as a log line may show it.
QString shown(const QJsonValue& value);
/// Logs that the value at a path ("mqtt.global.port") is refused.
void logRefused(const QString& path, const QString& value, const QString& allowedText);

} // namespace config
} // namespace comunication
