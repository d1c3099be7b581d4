// SPDX-License-Identifier: MIT
// Reads JSON that somebody else has written, and writes it so that every node writes the same. Internal.
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QJsonDocument>

namespace comunication {

/// QJsonDocument::fromJson() for text that anybody may have written: where a key occurs several times in an object, its
/// last value wins. Qt 5.15 leaks the earlier ones that are objects or arrays, so that one node that repeats a key
/// could eat up a panel's memory, and takes any of them where an object has many members. Repeats nested in repeats
/// beyond twice the size of the text are refused as nested too deep.
QJsonDocument documentFromForeignJson(QByteArray text, QJsonParseError* error = nullptr);

/// QJsonDocument::toJson() with every number written as the double that it is to most readers, a whole one of up to 64
/// bits without an exponent. Qt 5 writes it so; Qt 6 writes more digits than a double holds, and more exponents.
QByteArray jsonOf(const QJsonDocument& document, QJsonDocument::JsonFormat format = QJsonDocument::Compact);

} // namespace comunication
