// SPDX-License-Identifier: MIT
#include "watch/packet_lines.h"

#include <flotrofobul/platform/jsonserializer/json_text.h>
#include <flotrofobul/platform/secrets.h>
#include <flotrofobul/platform/text.h>

#include <QtCore/QDateTime>
#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

#include <algorithm>
#include <cmath>

namespace comunication {
namespace tools {

namespace {

constexpr double longestSeconds = 1e12; // of a recording; with more, milliseconds would not be a number
constexpr char hexDigits[] = "0123456789abcdef";
const QByteArray notShown = QByteArrayLiteral("(not shown)");

bool isAscii(const QByteArray& text)
{
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<signed char>(c) >= 0; });
}

bool isUtf8(const QByteArray& text)
{
    return isAscii(text) || textUpToZero(text).toUtf8() == text;
}

// However its JSON is laid out, and whatever spaces and line ends tools such as base64 put around and into it.
QByteArray encodedIn(const QByteArray& payload)
{
    const auto begin = std::find_if_not(payload.begin(), payload.end(), [](char c) { return c == ' ' || c == '\n'; });
    if (begin == payload.end() || (*begin != 'e' && *begin != 'W')) { // as "{" and "[" begin
        return QByteArray();
    }
    const QByteArray letters = textUpToZero(payload.simplified().replace(' ', "")).toLatin1();
    const auto decoded = QByteArray::fromBase64Encoding(letters, QByteArray::AbortOnBase64DecodingErrors);
    const bool isJson = decoded && (decoded.decoded.startsWith('{') || decoded.decoded.startsWith('[')) &&
                        !documentFromForeignJson(decoded.decoded).isNull();
    return isJson ? decoded.decoded : QByteArray();
}

// A value whose name stands beside it: {"name": "password", "value": "x"}.
bool namesSecret(const QJsonObject& object)
{
    static const char* const namers[] = {"name",     "key",    "id",        "field",  "label",
                                         "property", "option", "parameter", "setting"};
    return std::any_of(std::begin(namers), std::end(namers), [&](const char* namer) {
        return isNameOfSecret(object.value(QLatin1String(namer)).toString());
    });
}

// Beyond what the log of the library hides: a recording is kept, and goes to others.
QJsonValue withoutNamedSecrets(const QJsonValue& value, bool isNamed)
{
    if (value.isArray()) {
        QJsonArray array;
        for (const QJsonValue one : value.toArray()) {
            array.append(withoutNamedSecrets(one, isNamed));
        }
        return array;
    }
    if (!value.isObject()) {
        return isNamed ? QJsonValue(QLatin1String(notShown)) : value;
    }
    QJsonObject object = value.toObject();
    const bool namesOne = isNamed || namesSecret(object);
    for (auto member = object.begin(); member != object.end(); ++member) {
        member.value() = withoutNamedSecrets(member.value(), namesOne || isNameOfSecret(member.key()));
    }
    return object;
}

void appendString(QByteArray& line, const QByteArray& text)
{
    line += '"';
    const char* const data = text.constData();
    int begin = 0;
    for (int i = 0; i < text.size(); ++i) {
        const auto c = static_cast<unsigned char>(data[i]);
        if (c >= 0x20 && c != '"' && c != '\\') {
            continue;
        }
        line.append(data + begin, i - begin);
        begin = i + 1;
        line += '\\';
        if (c < 0x20) {
            line.append("u00").append(hexDigits[c >> 4]).append(hexDigits[c & 15]);
        } else {
            line += static_cast<char>(c);
        }
    }
    line.append(data + begin, text.size() - begin);
    line += '"';
}

} // namespace

bool hideSecrets(packet_t& packet)
{
    QByteArray& payload = packet.payload;
    const bool isNamed = isNameOfSecret(packet.topic.mid(packet.topic.lastIndexOf(QLatin1Char('/')) + 1));
    const QByteArray inside = encodedIn(payload);
    const QByteArray& text = inside.isEmpty() ? payload : inside;
    if (text.isEmpty() || (!isNamed && !maybeSecret(text))) {
        return false;
    }
    const QJsonDocument document = documentFromForeignJson(text);
    QByteArray shown;
    if (document.isNull()) {
        shown = isNamed || isSecret(QString::fromUtf8(text.constData(), text.size())) ? notShown : text;
    } else {
        const QJsonValue value = document.isArray() ? QJsonValue(document.array()) : QJsonValue(document.object());
        const QJsonValue without = withoutSecrets(withoutNamedSecrets(value, isNamed));
        if (without != value) {
            shown = jsonOf(without.isArray() ? QJsonDocument(without.toArray()) : QJsonDocument(without.toObject()));
        } else {
            shown = text;
        }
    }
    if (shown == text) {
        return false;
    }
    payload = inside.isEmpty() ? shown : shown.toBase64();
    return true;
}

QByteArray secondsText(qint64 milliseconds)
{
    return QByteArray::number(milliseconds / 1000) + '.' +
           QByteArray::number(milliseconds % 1000).rightJustified(3, '0');
}

void appendJson(QByteArray& line, const char* key, const QByteArray& value, const packet_t& packet)
{
    line.append("{\"").append(key).append("\":").append(value).append(",\"topic\":");
    appendString(line, packet.topic.toUtf8());
    line.append(",\"qos\":").append(static_cast<char>('0' + packet.qos));
    line.append(packet.retain ? ",\"retain\":true," : ",\"retain\":false,");
    if (isUtf8(packet.payload)) {
        line.append("\"payload\":");
        appendString(line, packet.payload);
    } else {
        line.append("\"base64\":\"").append(packet.payload.toBase64()).append('"');
    }
    line.append("}\n");
}

std::optional<recorded_t> packetIn(const QJsonObject& object)
{
    const QJsonValue at = object.value(QLatin1String("at"));
    const QJsonValue topic = object.value(QLatin1String("topic"));
    if (!at.isDouble() || !topic.isString()) {
        return std::nullopt;
    }
    recorded_t result;
    result.at = std::llround(std::clamp(at.toDouble(), -longestSeconds, longestSeconds) * 1000);
    result.packet.topic = topic.toString();
    result.packet.qos = std::clamp(object.value(QLatin1String("qos")).toInt(), 0, 2);
    result.packet.retain = object.value(QLatin1String("retain")).toBool();
    const QJsonValue binary = object.value(QLatin1String("base64"));
    result.packet.payload = binary.isString() ? QByteArray::fromBase64(binary.toString().toLatin1())
                                              : object.value(QLatin1String("payload")).toString().toUtf8();
    return result;
}

void appendWords(QByteArray& line, const packet_t& packet)
{
    static qint64 second = -1; // the same for many packets
    static QByteArray clock;
    if (packet.moment / 1000 != second) {
        second = packet.moment / 1000;
        clock = QDateTime::fromMSecsSinceEpoch(packet.moment).toString(QStringLiteral("HH:mm:ss.")).toLatin1();
    }
    line.append(clock).append(QByteArray::number(packet.moment % 1000).rightJustified(3, '0')).append(' ');
    line.append(static_cast<char>('0' + packet.qos)).append(packet.retain ? "r " : "  ");
    line.append(harmless(packet.topic.toUtf8())).append(' ');
    if (isUtf8(packet.payload)) {
        const QByteArray inside = encodedIn(packet.payload);
        line.append(inside.isEmpty() ? "" : "(encoded) ").append(harmless(inside.isEmpty() ? packet.payload : inside));
    } else {
        line.append("(base64) ").append(packet.payload.toBase64());
    }
    line.append('\n');
}

QByteArray harmlessJson(QByteArray json)
{
    if (isAscii(json) && !json.contains('\x7f')) {
        return json;
    }
    QByteArray result;
    for (const char c : json) {
        const auto byte = static_cast<unsigned char>(c);
        const bool isUpper = byte >= 0x80 && byte < 0xa0 && result.endsWith('\xc2');
        if (isUpper) {
            result.chop(1);
        }
        if (isUpper || byte == 0x7f) {
            result += "\\u00" + QByteArray::number(byte, 16);
        } else {
            result += c;
        }
    }
    return result;
}

QByteArray harmless(QByteArray text)
{
    const auto isControl = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; };
    if (std::none_of(text.begin(), text.end(), isControl) && isAscii(text)) {
        return text;
    }
    return harmless(textUpToZero(text)).toUtf8();
}

QString harmless(const QString& text)
{
    QString result = text;
    std::replace_if(
        result.begin(), result.end(),
        [](QChar c) { return c.category() == QChar::Other_Control || c.category() == QChar::Other_Format; },
        QLatin1Char(' '));
    return result;
}

} // namespace tools
} // namespace comunication
