// SPDX-License-Identifier: MIT
#include <flotrofobul/platform/jsonserializer/json_text.h>

#include <QtCore/QJsonArray>

#include <algorithm>
#include <string>
#include <unordered_map>
#include <vector>

namespace comunication {

namespace {

struct range_t {
    int begin;
    int end;
};

// Finds the earlier values of repeated keys in valid JSON.
class repeated_keys_t {
public:
    explicit repeated_keys_t(const QByteArray& text) : text(text) {}

    std::vector<range_t> find()
    {
        while (position < text.size()) {
            switch (text[position]) {
            case '"': string(); break;
            case '{':
            case '[': open(); break;
            case '}':
            case ']': close(); break;
            case ':': afterKey(); break;
            case ',':
                ++position;
                expectKey();
                break;
            default: ++position; break;
            }
        }
        return std::move(found);
    }

private:
    struct level_t {
        bool isObject;
        bool keyComes;
        int begin;
        range_t key;
        // Only objects and arrays leak, so for the usual packet there are only one or two entries.
        std::unordered_map<std::string, range_t> containers;
    };

    void expectKey()
    {
        if (!levels.empty()) {
            levels.back().keyComes = levels.back().isObject;
        }
    }

    void open()
    {
        if (levels.size() == deepest) { // the parser refuses the whole text here
            position = text.size();
            return;
        }
        const bool isObject = text[position] == '{';
        levels.push_back({isObject, isObject, position, {0, 0}, {}});
        ++position;
    }

    void close()
    {
        ++position;
        if (levels.empty()) {
            return;
        }
        const int begin = levels.back().begin;
        levels.pop_back();
        if (!levels.empty() && levels.back().isObject) {
            level_t& level = levels.back();
            level.containers.insert_or_assign(textOf(level.key), range_t{begin, position});
        }
    }

    void afterKey()
    {
        ++position;
        if (!levels.empty()) {
            levels.back().keyComes = false;
        }
    }

    void string()
    {
        const int begin = position;
        do {
            position = text.indexOf('"', position + 1);
        } while (position > 0 && isEscaped(position));
        position = position < 0 ? text.size() : position + 1;
        if (!levels.empty() && levels.back().keyComes) {
            takeKey({begin, position});
        }
    }

    bool isEscaped(int quote) const
    {
        int backslashes = 0;
        while (text[quote - 1 - backslashes] == '\\') { // ends at the opening quote at the latest
            ++backslashes;
        }
        return backslashes % 2 != 0;
    }

    void takeKey(range_t quoted)
    {
        level_t& level = levels.back();
        level.key = quoted;
        if (level.containers.empty()) {
            return;
        }
        const auto earlier = level.containers.find(textOf(quoted));
        if (earlier != level.containers.end()) {
            found.push_back(earlier->second);
            level.containers.erase(earlier);
        }
    }

    // A key without its quotes and escapes.
    std::string textOf(range_t quoted) const
    {
        const QByteArray key =
            QByteArray::fromRawData(text.constData() + quoted.begin, std::max(quoted.end - quoted.begin, 0));
        if (key.contains('\\')) {
            return QJsonDocument::fromJson('[' + key + ']').array().at(0).toString().toStdString();
        }
        return key.mid(1, key.size() - 2).toStdString();
    }

    static constexpr std::size_t deepest = 1024;

    const QByteArray& text;
    int position = 0;
    std::vector<level_t> levels;
    std::vector<range_t> found;
};

} // namespace

QJsonDocument documentFromForeignJson(QByteArray text, QJsonParseError* error)
{
    // Repeats nested in repeats nested in repeats are nobody's packet, and checking each would take forever.
    qint64 mayBeChecked = 2 * qint64(text.size());
    for (const range_t& value : repeated_keys_t(text).find()) {
        const int length = value.end - value.begin;
        mayBeChecked -= length;
        if (mayBeChecked < 0) {
            if (error != nullptr) {
                *error = {value.begin, QJsonParseError::DeepNesting};
            }
            return QJsonDocument();
        }
        if (QJsonDocument::fromJson(text.mid(value.begin, length)).isNull()) {
            break; // no JSON, so neither is the whole text: the parser below will say so
        }
        // A number leaks nothing, and the last value wins in any case.
        text[value.begin] = '0';
        std::fill(text.begin() + value.begin + 1, text.begin() + value.end, ' ');
    }
    return QJsonDocument::fromJson(text, error);
}

} // namespace comunication
