// SPDX-License-Identifier: MIT
// Reads JSON that somebody else has written. Internal.
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QJsonDocument>

namespace comunication {

/// QJsonDocument::fromJson() for text that anybody may have written. When a key occurs twice in an object and its first
/// value is an object or an array, Qt 5.15 leaks that value, so a node that repeats a key could use up a panel's
/// memory. The resulting document is the same: the last value wins.
QJsonDocument documentFromForeignJson(QByteArray text, QJsonParseError* error = nullptr);

} // namespace comunication
