// SPDX-License-Identifier: MIT
// What an examination has found, step by step, in words for a person and as JSON for a program.
#pragma once

#include <QtCore/QJsonObject>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVector>

namespace comunication {
namespace tools {

/// Something that is wrong, or only worth to be known.
struct ailment_t {
    QString what;
    QString why;    ///< is it thought so
    QString remedy; ///< what to do
    bool grave = true;
};

struct step_t {
    QString name;
    QStringList found; ///< what is fine
    QVector<ailment_t> ailments;

    [[nodiscard]] bool isFine() const;
};

/// The steps in their order. A step that is never begun is not told.
class diagnosis_t {
public:
    /// What is said from now on belongs to this step; one that is there already is taken up again.
    void begin(const QString& step);
    void fine(const QString& what);
    void wrong(const QString& what, const QString& why, const QString& remedy);
    /// Worth to be known; the house works with it.
    void remark(const QString& what, const QString& why, const QString& remedy);

    [[nodiscard]] int faults() const;
    [[nodiscard]] bool isFine() const { return faults() == 0; }
    [[nodiscard]] QStringList words() const;
    [[nodiscard]] QJsonObject json() const;

private:
    QVector<step_t> steps;
    int current = 0;
};

/// "a", "a and b", "a, b and c".
[[nodiscard]] QString listed(QStringList words);

} // namespace tools
} // namespace comunication
