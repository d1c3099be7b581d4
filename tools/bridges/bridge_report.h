// SPDX-License-Identifier: MIT
// What a try of the bridges has shown, judged and in words.
#pragma once

#include "bridges/bridge_check.h"

#include <QtCore/QJsonObject>
#include <QtCore/QStringList>

namespace comunication {
namespace tools {

/// Something that is not as it has to be.
struct finding_t {
    QString kind; ///< "broker", "deaf", "missing", "doubled", "loop", "stray"
    QString from; ///< name of the node; for a broker, of that broker
    QString to;   ///< empty for a broker
    QString text;
    QStringList help; ///< where to look
};

[[nodiscard]] QVector<finding_t> findingsOf(const house_plan_t& plan, const check_result_t& result);

/// A table of what went from where to where, and below it what is wrong, for a person.
[[nodiscard]] QStringList wordsOf(const check_result_t& result, const QVector<finding_t>& findings);

/// The same for a program; no passwords.
[[nodiscard]] QJsonObject jsonOf(const check_result_t& result, const QVector<finding_t>& findings);

} // namespace tools
} // namespace comunication
