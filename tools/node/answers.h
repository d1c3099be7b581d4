// SPDX-License-Identifier: MIT
// What a server on the command line answers: read from a JSON file, and found for a request.
#pragma once

#include <QtCore/QJsonObject>
#include <QtCore/QMap>
#include <QtCore/QString>
#include <QtCore/QStringList>

#include <optional>

namespace comunication {
namespace tools {

/// The topic of a request by a kind's word ("persistent", "presence/attic"), or any other text as it is.
[[nodiscard]] QString requestTopic(const QString& kind);
/// The words of the kinds, for texts.
[[nodiscard]] QString kindWords();
/// The topic on which a request of one of the kinds with a status is answered; empty for all others.
[[nodiscard]] QString statusTopic(const QString& request);

struct answer_t {
    bool silent = false; ///< the request is only said
    QString topic;       ///< empty: the status topic of the request
    QJsonObject payload;
    bool toAll = false;
    bool retain = false;
};

class answers_t {
public:
    /// Nothing is left out in silence: what is wrong is named in faults, with its place.
    static answers_t read(const QJsonObject& json, QStringList& faults);

    /// The answer whose topic is the request's or the nearest above it.
    [[nodiscard]] std::optional<answer_t> find(QString request) const;
    [[nodiscard]] int size() const { return answers.size(); }

private:
    QMap<QString, answer_t> answers; ///< by topic of the request
};

} // namespace tools
} // namespace comunication
