// SPDX-License-Identifier: MIT
// What payloads hold, and what of it nobody may see who reads a log or a recording. Internal.
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QJsonValue>
#include <QtCore/QString>

namespace comunication {

/// What an encoded payload holds; empty where it is no JSON in Base64.
QByteArray decodedJson(const QString& payload);

/// Whether a key or a text reads as if a password were near.
bool isSecret(const QString& text);

/// The same with every such value replaced.
QJsonValue withoutSecrets(const QJsonValue& value);

} // namespace comunication
