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

// Finds the earlier values of repeated keys. It only has to understand valid JSON: what is not is refused by the
// parser afterwards, which keeps nothing then.
class repeated_keys_t {
public:
    explicit repeated_keys_t(const QByteArray& _text) : text(_text) {}

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
        std::string key;
        // Only objects and arrays leak, so that the usual packet has but one or two entries here.
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
        levels.push_back({text[position] == '{', text[position] == '{', position, {}, {}});
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
            levels.back().containers.insert_or_assign(levels.back().key, range_t{begin, position});
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
        bool escaped = false;
        for (++position; position < text.size() && text[position] != '"'; ++position) {
            if (text[position] == '\\') {
                escaped = true;
                ++position;
            }
        }
        position = std::min(position + 1, text.size());
        if (!levels.empty() && levels.back().keyComes) {
            takeKey(text.mid(begin, position - begin), escaped);
        }
    }

    void takeKey(const QByteArray& quoted, bool escaped)
    {
        level_t& level = levels.back();
        level.key = escaped ? unescaped(quoted) : quoted.mid(1, quoted.size() - 2).toStdString();
        const auto earlier = level.containers.find(level.key);
        if (earlier != level.containers.end()) {
            found.push_back(earlier->second);
            level.containers.erase(earlier);
        }
    }

    static std::string unescaped(const QByteArray& quoted)
    {
        return QJsonDocument::fromJson('[' + quoted + ']').array().at(0).toString().toStdString();
    }

    const QByteArray& text;
    int position = 0;
    std::vector<level_t> levels;
    std::vector<range_t> found;
};

} // namespace

QJsonDocument documentFromForeignJson(QByteArray text, QJsonParseError* error)
{
    for (const range_t& value : repeated_keys_t(text).find()) {
        // A number leaks nothing; the last value wins in any case.
        text[value.begin] = '0';
        std::fill(text.begin() + value.begin + 1, text.begin() + value.end, ' ');
    }
    return QJsonDocument::fromJson(text, error);
}

} // namespace comunication
