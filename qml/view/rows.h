// SPDX-License-Identifier: MIT
// A list for QML that is given whole and changes row by row, so that a view moves what it shows and builds nothing
// anew.
#pragma once

#include <QtCore/QAbstractListModel>
#include <QtCore/QByteArray>
#include <QtCore/QString>
#include <QtCore/QVariant>
#include <QtCore/QVector>

namespace comunication {
namespace view {

struct row_t {
    QString key;              ///< of its own in the list
    QVector<QVariant> values; ///< as many as there are roles
};

class rows_t : public QAbstractListModel {
    Q_OBJECT
    Q_PROPERTY(int count READ count NOTIFY countChanged)
public:
    explicit rows_t(const QVector<QByteArray>& roles, QObject* parent = nullptr);

    [[nodiscard]] int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    [[nodiscard]] QVariant data(const QModelIndex& index, int role) const override;
    [[nodiscard]] QHash<int, QByteArray> roleNames() const override;
    [[nodiscard]] int count() const { return rows.size(); }

    /// Takes out what is not among the new rows, puts in what is new, and tells which values differ.
    void show(const QVector<row_t>& next);

Q_SIGNALS:
    void countChanged();

private:
    void update(int row, const QVector<QVariant>& values);

    const QVector<QByteArray> roles;
    QVector<row_t> rows;
};

} // namespace view
} // namespace comunication
