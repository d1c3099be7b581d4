// SPDX-License-Identifier: MIT
// What the benchmarks give their engines: a configuration, a packet of about 240 bytes on the wire, and silence.
#pragma once

#include <flotrofobul/platform/logs/classlogs.h>

#include <QtCore/QJsonObject>
#include <QtCore/QString>

/// No log line costs anything from here on.
inline void silenceLog()
{
    ::utility::logs::classlogs::getInstance()->setLevel(::utility::logs::fatal - 1);
}

inline QJsonObject benchConfiguration(quint16 port = 1883)
{
    return {
        {QStringLiteral("mqtt"),
         QJsonObject{{QStringLiteral("global"), QJsonObject{{QStringLiteral("installation_id"), QStringLiteral("1234")},
                                                            {QStringLiteral("port"), port}}}}}};
}

/// The number makes each packet differ.
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
