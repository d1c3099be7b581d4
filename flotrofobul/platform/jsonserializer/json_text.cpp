// SPDX-License-Identifier: MIT
#include <flotrofobul/platform/jsonserializer/json_text.h>

#include <flotrofobul/platform/qt.h>

#include <QtCore/QJsonArray>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <forward_list>
#include <string>
#include <string_view>
#include <vector>

namespace comunication {

namespace {

// As Qt's parser compares keys of one length: what follows a zero character does not count. Treating more keys as equal
// than it does would lose members, fewer would leak them.
int compareKeys(std::string_view left, std::string_view right)
{
    if (left.size() != right.size()) {
        return left.size() < right.size() ? -1 : 1;
    }
    return std::strncmp(left.data(), right.data(), left.size());
}

QByteArray unitsOf(const QString& text)
{
    const int bytes = text.size() * static_cast<int>(sizeof(QChar));
    return QByteArray::fromRawData(reinterpret_cast<const char*>(text.utf16()), bytes).toHex();
}

// Blanks the earlier members of an object that give a key a value which a later one gives anew. Valid JSON stays valid,
// and what is not stays as it is for the parser to refuse: it is looked at before it is blanked.
class repeated_members_t {
public:
    explicit repeated_members_t(QByteArray& givenText) : text(givenText), mayBeChecked(2 * qint64(givenText.size()))
    {
        text.detach(); // the keys are views into it
        members.reserve(usualMembers);
        levels.reserve(usualLevels);
    }

    void blank()
    {
        while (position < text.size()) {
            switch (text.at(position)) {
            case '"': string(); break;
            case '{':
            case '[': open(); break;
            case '}':
            case ']': close(); break;
            case ',': endMember(); break;
            default: ++position; break;
            }
        }
    }

    /// Where repeats within repeats, or values nested too deep, were given up; -1 when they were not.
    int refusedAt() const { return refused; }

private:
    struct member_t {
        int begin;
        int end; // after the comma
        std::string_view key;
    };
    struct level_t {
        bool isObject;
        bool keyComes;
        std::size_t firstMember;
    };

    void stop() { position = text.size(); }

    void open()
    {
        if (levels.size() == deepest) { // the parser refuses the whole text here
            stop();
            return;
        }
        const bool isObject = text.at(position) == '{';
        levels.push_back({isObject, isObject, members.size()});
        ++position;
    }

    void close()
    {
        ++position;
        if (levels.empty()) {
            return;
        }
        if (!blankRepeats(levels.back().firstMember)) {
            stop();
            return;
        }
        members.resize(levels.back().firstMember);
        levels.pop_back();
    }

    void endMember()
    {
        ++position;
        if (!levels.empty() && levels.back().isObject) {
            levels.back().keyComes = true;
            if (members.size() > levels.back().firstMember) {
                members.back().end = position;
            }
        }
    }

    void string()
    {
        const int begin = position;
        do {
            position = nextQuote(position + 1);
        } while (position < text.size() && isEscaped(position));
        position = std::min<int>(position + 1, text.size());
        if (!levels.empty() && levels.back().keyComes) {
            levels.back().keyComes = false;
            members.push_back({begin, position, keyOf(begin, position)});
        }
    }

    // The size of the text where there is none.
    int nextQuote(int from) const
    {
        const char* const start = text.constData();
        const int size = text.size();
        const void* const quote = std::memchr(start + from, '"', std::size_t(size - from));
        return quote != nullptr ? static_cast<int>(static_cast<const char*>(quote) - start) : size;
    }

    bool isEscaped(int quote) const
    {
        int backslashes = 0;
        while (text.at(quote - 1 - backslashes) == '\\') { // ends at the opening quote at the latest
            ++backslashes;
        }
        return backslashes % 2 != 0;
    }

    // A key without its quotes and escapes.
    std::string_view keyOf(int begin, int end)
    {
        const std::string_view quoted(text.constData() + begin, std::size_t(end - begin));
        if (quoted.find('\\') == std::string_view::npos) {
            return quoted.substr(1, quoted.size() - std::min<std::size_t>(quoted.size(), 2));
        }
        const QString key = QJsonDocument::fromJson('[' + text.mid(begin, end - begin) + ']').array().at(0).toString();
        // Halves of surrogate pairs have no form of their own in UTF-8, where all would be the same.
        decodedKeys.push_front(key.isValidUtf16() ? key.toStdString() : '\xff' + unitsOf(key).toStdString());
        return decodedKeys.front();
    }

    // Parses and empties a slice of the repeats, so that many do not take much memory at once.
    bool isJson(QByteArray& values)
    {
        QJsonParseError outcome{};
        QJsonDocument::fromJson(values + ']', &outcome);
        values.clear();
        if (outcome.error == QJsonParseError::DeepNesting) {
            refused = members[repeats.front()].begin;
        }
        return outcome.error == QJsonParseError::NoError;
    }

    // False when the scan is to end here.
    bool blankRepeats(std::size_t first)
    {
        repeats.clear();
        const std::size_t count = members.size() - first;
        if (count > fewMembers) {
            findAmongMany(first);
        } else if (count > 1) {
            findAmongFew(first);
        }
        if (repeats.empty()) {
            return true;
        }
        QByteArray values; // each an object of its own, in which nothing can be repeated
        for (const std::size_t index : repeats) {
            const member_t& member = members[index];
            mayBeChecked -= member.end - member.begin;
            if (mayBeChecked < 0) {
                refused = member.begin;
                return false;
            }
            values += (values.isEmpty() ? "[{" : ",{") + text.mid(member.begin, member.end - 1 - member.begin) + '}';
            if ((values.size() > usualSlice || index == repeats.back()) && !isJson(values)) {
                return false;
            }
        }
        for (const std::size_t index : repeats) {
            const member_t& member = members[index];
            std::fill(text.begin() + member.begin, text.begin() + member.end, ' ');
        }
        return true;
    }

    void findAmongFew(std::size_t first)
    {
        for (std::size_t index = first; index + 1 < members.size(); ++index) {
            const std::string_view key = members[index].key;
            const auto isSame = [key](const member_t& later) { return compareKeys(later.key, key) == 0; };
            if (std::any_of(members.begin() + std::ptrdiff_t(index) + 1, members.end(), isSame)) {
                repeats.push_back(index);
            }
        }
    }

    void findAmongMany(std::size_t first)
    {
        std::vector<std::size_t> order(members.size() - first);
        std::generate(order.begin(), order.end(), [next = first]() mutable { return next++; });
        std::sort(order.begin(), order.end(), [this](std::size_t left, std::size_t right) {
            const int difference = compareKeys(members[left].key, members[right].key);
            return difference < 0 || (difference == 0 && left < right);
        });
        for (std::size_t place = 0; place + 1 < order.size(); ++place) {
            if (compareKeys(members[order[place]].key, members[order[place + 1]].key) == 0) {
                repeats.push_back(order[place]);
            }
        }
    }

    static constexpr std::size_t deepest = 1024;
    static constexpr std::size_t fewMembers = 16; // compared each with each
    static constexpr std::size_t usualMembers = 32;
    static constexpr std::size_t usualLevels = 8;
    static constexpr int usualSlice = 64 * 1024; // bytes

    QByteArray& text;
    int position = 0;
    qint64 mayBeChecked;
    int refused = -1;
    std::vector<level_t> levels;
    std::vector<member_t> members; // of all objects that are open, the innermost last
    std::vector<std::size_t> repeats;
    std::forward_list<std::string> decodedKeys; // allocates nothing while it is empty
};

// As Qt 5 writes a number that Qt 6 has written.
QByteArray asDouble(const QByteArray& number)
{
    constexpr int digitsOfDouble = 15;
    constexpr double firstBeyond = 18446744073709551616.0; // what 64 bits hold
    const bool hasExponent = number.contains('e');
    if (!hasExponent && (number.size() <= digitsOfDouble || number.contains('.'))) {
        return number;
    }
    const double value = number.toDouble();
    const bool isShort = hasExponent && (std::abs(value) >= firstBeyond || std::floor(value) != value);
    return isShort ? number : QByteArray::number(value, 'f', QLocale::FloatingPointShortest);
}

QByteArray withDoubles(QByteArray json)
{
    const auto begins = [](char c) { return (c >= '0' && c <= '9') || c == '-'; };
    const auto goesOn = [begins](char c) { return begins(c) || c == '+' || c == '.' || c == 'e'; };
    for (int position = 0; position < json.size(); ++position) {
        if (json.at(position) == '"') {
            do {
                position += json.at(position) == '\\' ? 2 : 1;
            } while (json.at(position) != '"');
        } else if (begins(json.at(position))) {
            const auto end = std::find_if_not(json.constBegin() + position, json.constEnd(), goesOn);
            const QByteArray number = json.mid(position, static_cast<int>(end - json.constBegin()) - position);
            const QByteArray written = asDouble(number);
            if (written != number) {
                json.replace(position, number.size(), written);
            }
            position += written.size() - 1;
        }
    }
    return json;
}

} // namespace

QByteArray jsonOf(const QJsonDocument& document, QJsonDocument::JsonFormat format)
{
    const QByteArray json = document.toJson(format);
    return qt::writesOtherNumbers ? withDoubles(json) : json;
}

QJsonDocument documentFromForeignJson(QByteArray text, QJsonParseError* error)
{
    repeated_members_t repeated(text);
    repeated.blank();
    if (repeated.refusedAt() >= 0) {
        if (error != nullptr) {
            *error = {repeated.refusedAt(), QJsonParseError::DeepNesting};
        }
        return QJsonDocument();
    }
    return QJsonDocument::fromJson(text, error);
}

} // namespace comunication
