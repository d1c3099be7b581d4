// SPDX-License-Identifier: MIT
// Recorded sequences as they stand in data/: what is written there once stands for every line that is meant.
#pragma once

#include "log_recorder.h"

#include <QtCore/QFile>
#include <QtCore/QMap>
#include <QtCore/QRegularExpression>

/// A file of sections, each headed by "# name". "$name" stands for the text below that heading, of which a later one
/// may hold an earlier one, and a line that begins with "name" for the lines below the heading "= name", in which %1
/// is the next word. What one function says may stand in a row: after " | " a line
/// begins that has the function and, if it names none, the level of the one before.
class story_t {
public:
    explicit story_t(const QString& path)
    {
        QFile file(path);
        file.open(QIODevice::ReadOnly);
        const QStringList lines = QString::fromUtf8(file.readAll()).split(u'\n', Qt::SkipEmptyParts);
        for (const QString& line : lines) {
            if (line.startsWith("# "_l1)) {
                names << line.mid(2);
            } else {
                sections[names.last()] << line;
            }
        }
    }

    /// "a{b,c}d" becomes "abd" and "acd", the first list turning slowest, before names are looked up. A number that
    /// follows a name counts up with the lines that the lists have made.
    QStringList unfold(QStringList lines) const
    {
        for (auto name = names.rbegin(); name != names.rend(); ++name) {
            if (name->startsWith(u'$')) {
                lines.replaceInStrings(*name, sections[*name].join(QString()));
            }
        }
        QStringList result;
        for (const QString& line : qAsConst(lines)) {
            const QStringList made = unfoldLists({line});
            for (int i = 0; i < made.size(); ++i) {
                QStringList words = made[i].split(u' ');
                QString text = sections.value("= "_l1 + words[0], {made[i]}).join(u'\n');
                for (int number = 1; sections.contains("= "_l1 + words[0]) && number < words.size(); ++number) {
                    const int first = words[1].toInt();
                    text.replace(u'%' + QString::number(number),
                                 number == 1 && first > 0 ? QString::number(first + i) : words[number]);
                }
                const QStringList finished = text.split(u'\n');
                for (const QString& one : finished) {
                    const QStringList parts = one.split(" | "_l1);
                    result << parts[0];
                    QString speaker = one.section(u' ', 0, 1) + u' ';
                    for (const QString& part : parts.mid(1)) {
                        const int changed = part[1] == u' ' && part[0].isDigit() ? 2 : 0;
                        speaker.replace(0, changed, part.left(changed));
                        result << speaker + part.mid(changed);
                    }
                }
            }
        }
        return result;
    }

    QStringList names; ///< in the order of the file
    QMap<QString, QStringList> sections;

private:
    static QStringList unfoldLists(const QStringList& lines)
    {
        static const QRegularExpression list("\\{([^{}\":]*,[^{}\":]*)\\}"_s);
        const QRegularExpressionMatch first = list.match(lines[0]);
        if (!first.hasMatch()) {
            return lines;
        }
        QStringList result;
        for (const QString& line : lines) {
            const QStringList choices = first.captured(1).split(u',');
            for (const QString& choice : choices) {
                result << QString(line).replace(line.indexOf(first.captured()), first.capturedLength(), choice);
            }
        }
        return unfoldLists(result);
    }
};
