// SPDX-License-Identifier: MIT
#include "rows.h"

#include <QtCore/QSet>

#include <algorithm>

namespace comunication {
namespace view {

rows_t::rows_t(const QVector<QByteArray>& givenRoles, QObject* parent) : QAbstractListModel(parent), roles(givenRoles)
{}

int rows_t::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : rows.size();
}

QVariant rows_t::data(const QModelIndex& index, int role) const
{
    return index.isValid() && index.row() < rows.size() ? rows[index.row()].values.value(role - Qt::UserRole)
                                                        : QVariant();
}

QHash<int, QByteArray> rows_t::roleNames() const
{
    QHash<int, QByteArray> names;
    for (int i = 0; i < roles.size(); ++i) {
        names.insert(Qt::UserRole + i, roles[i]);
    }
    return names;
}

void rows_t::show(const QVector<row_t>& next)
{
    const int before = rows.size();
    QSet<QString> keys;
    for (const row_t& row : next) {
        keys.insert(row.key);
    }
    for (int i = rows.size() - 1; i >= 0; --i) {
        if (!keys.contains(rows[i].key)) {
            int first = i;
            while (first > 0 && !keys.contains(rows[first - 1].key)) {
                --first;
            }
            beginRemoveRows(QModelIndex(), first, i);
            rows.remove(first, i - first + 1);
            endRemoveRows();
            i = first;
        }
    }
    QSet<QString> known;
    for (const row_t& row : qAsConst(rows)) {
        known.insert(row.key);
    }
    for (int i = 0; i < next.size(); ++i) {
        if (i < rows.size() && rows[i].key == next[i].key) {
            update(i, next[i].values);
        } else if (!known.contains(next[i].key)) {
            int last = i;
            while (last + 1 < next.size() && !known.contains(next[last + 1].key)) {
                ++last;
            }
            beginInsertRows(QModelIndex(), i, last);
            for (int place = i; place <= last; ++place) {
                rows.insert(place, next[place]);
            }
            endInsertRows();
            i = last;
        } else {
            const auto place =
                std::find_if(rows.begin() + i, rows.end(), [&](const row_t& row) { return row.key == next[i].key; });
            const int from = static_cast<int>(place - rows.begin());
            beginMoveRows(QModelIndex(), from, from, QModelIndex(), i);
            rows.move(from, i);
            endMoveRows();
            update(i, next[i].values);
        }
    }
    if (rows.size() != before) {
        Q_EMIT countChanged();
    }
}

void rows_t::update(int row, const QVector<QVariant>& values)
{
    QVector<int> changed;
    for (int i = 0; i < values.size(); ++i) {
        if (rows[row].values[i] != values[i]) {
            changed << Qt::UserRole + i;
        }
    }
    if (!changed.isEmpty()) {
        rows[row].values = values;
        Q_EMIT dataChanged(index(row), index(row), changed);
    }
}

} // namespace view
} // namespace comunication
