// SPDX-License-Identifier: MIT
// What the benchmarks give their engines: a configuration, and a packet of about 240 bytes on the wire.
#pragma once

#include <QtCore/QJsonObject>
#include <QtCore/QString>

inline QJsonObject benchConfiguration(quint16 port = 1883)
{
    return {
        {QStringLiteral("mqtt"),
         QJsonObject{{QStringLiteral("global"), QJsonObject{{QStringLiteral("installation_id"), QStringLiteral("1234")},
                                                            {QStringLiteral("port"), port}}}}}};
}

/// The number makes each one differ.
inline QJsonObject benchReading(int number)
{
    return {{QStringLiteral("room"), QStringLiteral("living room")},
            {QStringLiteral("device"), QStringLiteral("thermostat-7")},
            {QStringLiteral("temperature"), 21.5},
            {QStringLiteral("humidity"), 48},
            {QStringLiteral("setpoint"), 22.0},
            {QStringLiteral("mode"), QStringLiteral("comfort")},
            {QStringLiteral("battery"), 87},
            {QStringLiteral("updated"), QStringLiteral("2026-11-21T15:04:05Z")},
            {QStringLiteral("number"), number},
            {QStringLiteral("note"), QStringLiteral("valve at the east wall")}};
}
