// SPDX-License-Identifier: MIT
// The topic grammar twice: what the parser makes of a topic, and what the expression that defines it says, step by
// step.
#pragma once

#include <flotrofobul/define/topic_t.h>

#include <QRegExp>
#include <QtCore/QStringList>

/// ok, origin, local, plain, sender, destination, value.
inline QStringList partsOf(const QString& text)
{
    bool ok = false;
    const comunication::utility::topic_t topic(text, &ok);
    return {QString::fromLatin1(ok ? "ok" : "-"),
            topic.getOrigin(),
            topic.getLocal(),
            topic.getPlain(),
            topic.getSender(),
            topic.getDestination(),
            topic.getValue()};
}

inline QStringList referenceOf(const QString& text)
{
    using comunication::utility::topic_t;
    QRegExp expression(topic_t::tmp_regex_allowed_topic_plain, Qt::CaseSensitive, QRegExp::RegExp);
    if (!expression.exactMatch(text) || expression.captureCount() < topic_t::getTopic_min_len()) {
        return QStringList{QStringLiteral("-")} + QVector<QString>(6).toList();
    }
    QStringList parts = expression.capturedTexts();
    parts[0] = QStringLiteral("ok");
    if (parts[2] != QLatin1String("local")) {
        parts.insert(2, QString());
    }
    // A group that the id has swallowed leaves the last part empty.
    parts << QString();
    return parts.mid(0, 7);
}
