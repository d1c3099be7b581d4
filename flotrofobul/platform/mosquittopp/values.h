// SPDX-License-Identifier: MIT
// What may be sent to a broker. For some values libmosquitto sends uninitialised memory, or lets them through although
// the broker closes the connection, so they are checked before. Internal.
#pragma once

#include <flotrofobul/platform/limits.h>

#include <QtCore/QByteArray>
#include <QtCore/QString>

namespace comunication {
namespace mosquittopp {

/// A code of libmosquitto and, if it is not 0, why.
struct verdict_t {
    int code = 0;
    const char* why = "";
};

verdict_t checkTopic(const QByteArray& topic);
verdict_t checkFilter(const QByteArray& filter);
verdict_t checkQos(int qos);
/// Client id, user name, any kind of topic: text that the protocol limits to 65535 bytes of UTF-8 and that fits into a
/// C string.
verdict_t checkText(const QByteArray& text);
/// Like checkText, without the rules for UTF-8.
verdict_t checkPassword(const QByteArray& password);

constexpr int longestText = 65535;
/// The longest payload of a publication beside its topic and header.
constexpr int longestPayload = limits::packetBytes.highest - longestText - 4;

} // namespace mosquittopp
} // namespace comunication
