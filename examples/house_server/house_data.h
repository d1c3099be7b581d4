// SPDX-License-Identifier: MIT
// The persistent data of the house, in an SQLite file.
#pragma once

#include <QtCore/QJsonObject>
#include <QtCore/QString>

/// The wanted temperature of each room, and how often the house was started. What was stored survives the
/// sudden end of the program.
class house_data_t {
public:
    /// Opens the file, with first data when it is new, and counts this start. Returns what went wrong, or
    /// nothing.
    QString open(const QString& path);
    /// Stores wanted temperatures by room; what is no number is left out. All of them, or none when false.
    bool set(const QJsonObject& temperatures);
    /// {"starts": number, "temperatures": {room: degrees}}
    QJsonObject all() const;
};
