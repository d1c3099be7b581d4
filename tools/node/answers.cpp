// SPDX-License-Identifier: MIT
#include "node/answers.h"

#include <flotrofobul/define/define.h>

namespace comunication {
namespace tools {

namespace {

struct kind_t {
    const char* word;
    const QString* kind;
};

const kind_t kinds[] = {
    {"persistent", &PREFIX_DB_PERSISTENT},
    {"realtime", &PREFIX_DB_REALTIME},
    {"presence", &PREFIX_DB_PRESENCESIMULATION},
    {"command", &PREFIX_DB_COMAMND},
};

const QString requestWord = QStringLiteral("request/");
const QString statusWord = QStringLiteral("status/");

QString faultOf(const QString& request, const QJsonValue& value, answer_t& answer)
{
    if (value.isNull()) {
        answer.silent = true;
        return QString();
    }
    if (!value.isObject()) {
        return QStringLiteral(" has to be an object, or null for no answer");
    }
    const QJsonObject object = value.toObject();
    for (auto it = object.begin(); it != object.end(); ++it) {
        const QString to = it->toString();
        if (it.key() == QLatin1String("payload") && it->isObject()) {
            answer.payload = it->toObject();
        } else if (it.key() == QLatin1String("topic") && !to.isEmpty()) {
            answer.topic = to;
        } else if (it.key() == QLatin1String("to") && (to == QLatin1String("all") || to == QLatin1String("asker"))) {
            answer.toAll = to == QLatin1String("all");
        } else if (it.key() == QLatin1String("retain") && it->isBool()) {
            answer.retain = it->toBool();
        } else {
            return QStringLiteral(".%1 is refused: there are payload (an object), topic (a text), to (\"all\" or "
                                  "\"asker\") and retain (true or false)")
                .arg(it.key());
        }
    }
    if (!object.contains(QStringLiteral("payload"))) {
        return QStringLiteral(".payload is missing");
    }
    if (answer.topic.isEmpty() && statusTopic(request).isEmpty()) {
        return QStringLiteral(".topic is missing: this request has no status of its own to be answered with");
    }
    return QString();
}

} // namespace

QString requestTopic(const QString& kind)
{
    const QString word = kind.section(u'/', 0, 0);
    for (const kind_t& known : kinds) {
        if (word == QLatin1String(known.word)) {
            return requestWord + *known.kind + kind.mid(word.size());
        }
    }
    return kind;
}

QString kindWords()
{
    QStringList words;
    for (const kind_t& known : kinds) {
        words << QLatin1String(known.word);
    }
    return words.join(QStringLiteral(", "));
}

QString statusTopic(const QString& request)
{
    for (const kind_t& known : kinds) {
        if (known.kind != &PREFIX_DB_COMAMND && request.startsWith(requestWord + *known.kind)) {
            return statusWord + request.mid(requestWord.size());
        }
    }
    return QString();
}

answers_t answers_t::read(const QJsonObject& json, QStringList& faults)
{
    answers_t result;
    for (auto it = json.begin(); it != json.end(); ++it) {
        const QString request = requestTopic(it.key());
        answer_t answer;
        const QString fault = request.startsWith(requestWord)
                                  ? faultOf(request, it.value(), answer)
                                  : QStringLiteral(" is no request: it has to be one of %1, with further levels as "
                                                   "needed, or a topic that begins with request/")
                                        .arg(kindWords());
        if (!fault.isEmpty()) {
            faults << it.key() + fault;
        }
        result.answers.insert(request, answer);
    }
    return result;
}

std::optional<answer_t> answers_t::find(QString request) const
{
    for (; !request.isEmpty(); request.truncate(std::max<int>(request.lastIndexOf(u'/'), 0))) {
        if (answers.contains(request)) {
            return answers.value(request);
        }
    }
    return std::nullopt;
}

} // namespace tools
} // namespace comunication
