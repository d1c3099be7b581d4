// SPDX-License-Identifier: MIT
// Reading JSON that comes from elsewhere. Internal.
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QJsonDocument>

namespace comunication {

/// QJsonDocument::fromJson() for text that anybody may have written. Qt 5.15 leaks the earlier value where a key
/// occurs twice in an object and that value is an object or an array, so that one node that repeats a key could
/// eat up a panel's memory; the document that comes out is the same, the last value wins.
QJsonDocument documentFromForeignJson(QByteArray text, QJsonParseError* error = nullptr);

} // namespace comunication
