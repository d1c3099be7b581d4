// SPDX-License-Identifier: MIT
// Packets as lines: as an object for programs and recordings, in words for people. Passwords are taken out of both.
#pragma once

#include "connection/listener.h"

#include <QtCore/QByteArray>
#include <QtCore/QJsonObject>
#include <QtCore/QString>

#include <optional>

namespace comunication {
namespace tools {

/// A packet of a recording: when it came, in milliseconds since the recording began.
struct recorded_t {
    qint64 at = 0;
    packet_t packet;
};

/// Puts "(not shown)" for what reads like a password, also where the payload is encoded, and for what a topic or a name
/// beside it says is one. True if it had to.
bool hideSecrets(packet_t& packet);

/// Appends the packet as one line: {"at":1.234,"topic":"...","qos":2,"retain":false,"payload":"..."}, with "base64" in
/// place of "payload" for what is no text. key and its value stand first: "at" or "time".
void appendJson(QByteArray& line, const char* key, const QByteArray& value, const packet_t& packet);
/// Seconds with three places.
[[nodiscard]] QByteArray secondsText(qint64 milliseconds);
/// Reads such a line of a recording; nothing if it is none.
[[nodiscard]] std::optional<recorded_t> packetIn(const QJsonObject& object);

/// Appends the packet for people: "12:00:01.234 2 topic payload", an r behind the quality of service if it is retained.
void appendWords(QByteArray& line, const packet_t& packet);
/// What strangers have written, so that a terminal takes it for text.
[[nodiscard]] QString harmless(const QString& text);
[[nodiscard]] QByteArray harmless(QByteArray text);
/// The same JSON with escapes for the control characters that JSON allows and a terminal obeys (DEL, CSI in UTF-8).
[[nodiscard]] QByteArray harmlessJson(QByteArray json);

} // namespace tools
} // namespace comunication
