// SPDX-License-Identifier: MIT
// Reads JSON that somebody else has written. Internal.
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QJsonDocument>

namespace comunication {

/// QJsonDocument::fromJson() for text that anybody may have written: where a key occurs several times in an object, its
/// last value wins. Qt 5.15 leaks the earlier ones that are objects or arrays, so that one node that repeats a key
/// could eat up a panel's memory, and takes any of them where an object has many members. Repeats nested in repeats
/// beyond twice the size of the text are refused as nested too deep.
QJsonDocument documentFromForeignJson(QByteArray text, QJsonParseError* error = nullptr);

} // namespace comunication
