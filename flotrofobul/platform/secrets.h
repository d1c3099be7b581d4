// SPDX-License-Identifier: MIT
// What payloads hold, and what of it nobody may see who reads a log or a recording. Internal.
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QJsonValue>
#include <QtCore/QString>

namespace comunication {

/// What an encoded payload holds; empty where it is no JSON in Base64.
QByteArray decodedJson(const QString& payload);

/// Whether a key or a text reads as if a password were near. It knows words: "wifiPass" is one, a compass is not.
bool isSecret(const QString& text);

/// Whether a name is that of a password, a token or a key.
bool isNameOfSecret(const QString& name);

/// Whether one of the two may find something in it, at the cost that every packet can bear; what it finds is to be
/// looked at properly. An escape of JSON may hide a letter.
bool maybeSecret(const QByteArray& text);

/// The same with every such value replaced.
QJsonValue withoutSecrets(const QJsonValue& value);

} // namespace comunication
