// SPDX-License-Identifier: MIT
#include <flotrofobul/platform/secrets.h>

#include <flotrofobul/platform/jsonserializer/json_text.h>
#include <flotrofobul/platform/text.h>

#include <QtCore/QJsonArray>
#include <QtCore/QJsonObject>

#include <algorithm>
#include <iterator>

namespace comunication {

namespace {

// What names a secret, alone or joined to other letters ("userpass"); what is in doubt is one.
const char* const stems[] = {"pass", "pwd", "pw", "secret"};
// Of the name of a value also these; letters only.
const char* const furtherStems[] = {"token", "credential", "apikey", "accesskey", "privatekey", "sharedkey"};
// Words with a stem and without a secret.
const char* const ordinary[] = {"bypass",   "bypassed",  "bypasses",  "compass", "compasses", "encompass",
                                "overpass", "passage",   "passages",  "passed",  "passes",    "passing",
                                "passive",  "passenger", "secretary", "surpass", "trespass",  "underpass"};
constexpr int longestName = 40; // a longer one is Base64, in which "pw" comes up by chance

bool isLower(QChar c)
{
    return c >= u'a' && c <= u'z';
}

bool isUpper(QChar c)
{
    return c >= u'A' && c <= u'Z';
}

bool isBase64(QChar c)
{
    return isLower(c) || isUpper(c) || (c >= u'0' && c <= u'9') || c == u'+' || c == u'/';
}

/// The word to which the letters from begin to end belong: all of one case, or a capital before small ones.
QString wordAround(const QString& text, int begin, int end)
{
    const bool areSmall = isLower(text[begin]);
    const auto isBefore = areSmall ? isLower : isUpper;
    if (areSmall || isUpper(text[begin + 1])) {
        while (begin > 0 && isBefore(text[begin - 1])) {
            --begin;
        }
        begin -= areSmall && begin > 0 && isUpper(text[begin - 1]) ? 1 : 0;
    }
    const auto isBehind = isLower(text[end - 1]) ? isLower : isUpper;
    while (end < text.size() && isBehind(text[end])) {
        ++end;
    }
    return text.mid(begin, end - begin).toLower();
}

bool isInBase64(const QString& text, int at)
{
    const auto before = std::find_if_not(text.rbegin() + (text.size() - at), text.rend(), isBase64);
    const auto after = std::find_if_not(text.begin() + at, text.end(), isBase64);
    return after - before.base() > longestName;
}

bool isOneOf(const QString& word, const char* const* begin, const char* const* end)
{
    return std::any_of(begin, end, [&](const char* one) { return word == QLatin1String(one); });
}

bool namesSecret(const QString& text, int at, const char* stem)
{
    const int length = static_cast<int>(qstrlen(stem));
    if (!QStringView(text).mid(at).startsWith(QLatin1String(stem), Qt::CaseInsensitive)) {
        return false;
    }
    const QString word = wordAround(text, at, at + length);
    if (length > 2) {
        return !isOneOf(word, std::begin(ordinary), std::end(ordinary));
    }
    // Two letters are a word or the end of one, not part of "upward" or "lampWatts".
    const bool isApart = isLower(text[at]) && isUpper(text[at + 1]);
    return !isApart && word.endsWith(QLatin1String(stem)) && !isInBase64(text, at);
}

// Of bytes, without regard to case.
bool hasWord(const char* text, const char* end, const char* word)
{
    for (; *word != 0; ++word, ++text) {
        if (text == end || (*text | 0x20) != *word) {
            return false;
        }
    }
    return true;
}

} // namespace

QByteArray decodedJson(const QString& payload)
{
    if (!payload.startsWith(u'e')) { // as "{" does in Base64
        return QByteArray();
    }
    const auto decoded = QByteArray::fromBase64Encoding(
        payload.toLatin1(), QByteArray::Base64Encoding | QByteArray::AbortOnBase64DecodingErrors);
    const bool isJson = decoded && decoded.decoded.startsWith('{') && documentFromForeignJson(*decoded).isObject();
    return isJson ? *decoded : QByteArray();
}

bool isSecret(const QString& text)
{
    for (int at = 0; at < text.size(); ++at) {
        const int lower = text[at].unicode() | 0x20;
        if ((lower == 'p' || lower == 's') && std::any_of(std::begin(stems), std::end(stems), [&](const char* stem) {
                return namesSecret(text, at, stem);
            })) {
            return true;
        }
    }
    return false;
}

bool isNameOfSecret(const QString& name)
{
    if (isSecret(name)) {
        return true;
    }
    QString letters;
    std::copy_if(name.begin(), name.end(), std::back_inserter(letters),
                 [](QChar c) { return isLower(c) || isUpper(c); });
    return std::any_of(std::begin(furtherStems), std::end(furtherStems),
                       [&](const char* stem) { return letters.contains(QLatin1String(stem), Qt::CaseInsensitive); });
}

bool maybeSecret(const QByteArray& text)
{
    constexpr const char* starts[] = {"pass", "pw", "secret", "token", "credential"};
    const char* const end = text.constData() + text.size();
    for (const char* at = text.constData(); at != end; ++at) {
        switch (*at | 0x20) {
        case 'p':
        case 's':
        case 't':
        case 'c':
            if (std::any_of(std::begin(starts), std::end(starts),
                            [&](const char* start) { return hasWord(at, end, start); })) {
                return true;
            }
            break;
        case 'k': // of something: a "key" alone is none
            if (hasWord(at, end, "key") && at != text.constData() && at[-1] != '"') {
                return true;
            }
            break;
        case '\\' | 0x20:
            if (*at == '\\' && at + 1 != end && at[1] == 'u') {
                return true;
            }
            break;
        default: break;
        }
    }
    return false;
}

QJsonValue withoutSecrets(const QJsonValue& value)
{
    if (value.isArray()) {
        QJsonArray array;
        for (const QJsonValue one : value.toArray()) {
            array.append(withoutSecrets(one));
        }
        return array;
    }
    if (!value.isObject()) { // a text may be JSON in its turn
        return isSecret(value.toString()) ? QJsonValue("(not shown)"_l1) : value;
    }
    QJsonObject object = value.toObject();
    for (auto member = object.begin(); member != object.end(); ++member) {
        member.value() = isSecret(member.key()) ? QJsonValue("(not shown)"_l1) : withoutSecrets(member.value());
    }
    return object;
}

} // namespace comunication
