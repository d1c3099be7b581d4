// SPDX-License-Identifier: MIT
#include "configuration.h"

#include <QtCore/QFile>
#include <QtCore/QJsonDocument>
#include <QtQml/QJSValue>
#include <QtQml/QQmlContext>
#include <QtQml/QQmlFile>
#include <QtQml/qqml.h>

namespace comunication {
namespace qml {

namespace {

QString pathOf(const QVariant& value, const QObject* item)
{
    const QString text = value.toString();
    QQmlContext* const context = qmlContext(item);
    const QUrl url = context != nullptr ? context->resolvedUrl(QUrl(text)) : QUrl(text);
    const QString beside = QQmlFile::urlToLocalFileOrQrc(url);
    return QFile::exists(beside) ? beside : text;
}

} // namespace

QVariant plain(const QVariant& value)
{
    return value.userType() == qMetaTypeId<QJSValue>() ? value.value<QJSValue>().toVariant() : value;
}

configuration_t readConfiguration(const QVariant& given, const QObject* item)
{
    configuration_t result;
    if (given.canConvert<QVariantMap>()) {
        result.json = QJsonObject::fromVariantMap(given.toMap());
        if (!result.json.contains(QStringLiteral("mqtt"))) {
            result.problem = QStringLiteral("The configuration has no object \"mqtt\".");
        }
        return result;
    }
    if (given.toString().isEmpty()) {
        result.problem = QStringLiteral("There is no configuration.");
        return result;
    }
    QFile file(pathOf(given, item));
    if (!file.open(QIODevice::ReadOnly)) {
        result.problem =
            QStringLiteral("The configuration %1 cannot be read: %2.").arg(file.fileName(), file.errorString());
        return result;
    }
    QJsonParseError outcome{};
    result.json = QJsonDocument::fromJson(file.readAll(), &outcome).object();
    if (outcome.error != QJsonParseError::NoError) {
        result.problem =
            QStringLiteral("The configuration %1 is no JSON: %2.").arg(file.fileName(), outcome.errorString());
    } else if (!result.json.contains(QStringLiteral("mqtt"))) {
        result.problem = QStringLiteral("The configuration %1 has no object \"mqtt\".").arg(file.fileName());
    }
    return result;
}

} // namespace qml
} // namespace comunication
