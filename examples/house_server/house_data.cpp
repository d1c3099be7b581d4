// SPDX-License-Identifier: MIT
#include "house_data.h"

#include <QtSql/QSqlDatabase>
#include <QtSql/QSqlError>
#include <QtSql/QSqlQuery>

QString house_data_t::open(const QString& path)
{
    QSqlDatabase file = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"));
    file.setDatabaseName(path);
    if (!file.open()) {
        return file.lastError().text();
    }
    const char* const statements[] = {
        "BEGIN IMMEDIATE",
        "CREATE TABLE IF NOT EXISTS house (starts INTEGER NOT NULL)",
        "CREATE TABLE IF NOT EXISTS temperature (room TEXT PRIMARY KEY, degrees REAL NOT NULL)",
        "INSERT INTO temperature SELECT 'kitchen', 19 WHERE NOT EXISTS (SELECT * FROM house)",
        "INSERT INTO temperature SELECT 'living_room', 20 WHERE NOT EXISTS (SELECT * FROM house)",
        "INSERT INTO house SELECT 0 WHERE NOT EXISTS (SELECT * FROM house)",
        "UPDATE house SET starts = starts + 1",
        "COMMIT",
    };
    for (const char* statement : statements) {
        QSqlQuery query;
        if (!query.exec(QString::fromLatin1(statement))) {
            return query.lastError().text();
        }
    }
    return {};
}

bool house_data_t::set(const QJsonObject& temperatures)
{
    QSqlDatabase file = QSqlDatabase::database();
    bool stored = file.transaction();
    for (auto it = temperatures.begin(); stored && it != temperatures.end(); ++it) {
        if (!it->isDouble()) {
            continue;
        }
        QSqlQuery query;
        query.prepare(QStringLiteral("INSERT OR REPLACE INTO temperature VALUES (?, ?)"));
        query.addBindValue(it.key());
        query.addBindValue(it->toDouble());
        stored = query.exec();
    }
    stored = stored && file.commit();
    if (!stored) {
        file.rollback();
    }
    return stored;
}

QJsonObject house_data_t::all() const
{
    QJsonObject temperatures;
    QSqlQuery query(QStringLiteral("SELECT room, degrees FROM temperature"));
    while (query.next()) {
        temperatures.insert(query.value(0).toString(), query.value(1).toDouble());
    }
    query.exec(QStringLiteral("SELECT starts FROM house"));
    const int starts = query.next() ? query.value(0).toInt() : 0;
    return {{QStringLiteral("starts"), starts}, {QStringLiteral("temperatures"), temperatures}};
}
