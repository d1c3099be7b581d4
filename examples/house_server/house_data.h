// SPDX-License-Identifier: MIT
// The persistent data of the house, in an SQLite file.
#pragma once

#include <QtCore/QJsonObject>
#include <QtCore/QString>

/// The wanted temperature of each room, and how often the house was started. Stored data survives a sudden end of the
/// program.
class house_data_t {
public:
    /// Opens the file, fills a new one with initial data, and counts this start. Returns what went wrong, or an empty
    /// text.
    QString open(const QString& path);
    /// Stores wanted temperatures by room, except values that are no numbers. If one fails, none is stored: false.
    bool set(const QJsonObject& temperatures);
    /// {"starts": number, "temperatures": {room: degrees}}
    QJsonObject all() const;
};
