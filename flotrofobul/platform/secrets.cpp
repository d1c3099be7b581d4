// SPDX-License-Identifier: MIT
#include <flotrofobul/platform/secrets.h>

#include <flotrofobul/platform/jsonserializer/json_text.h>
#include <flotrofobul/platform/text.h>

#include <QtCore/QJsonArray>
#include <QtCore/QJsonObject>

namespace comunication {

QByteArray decodedJson(const QString& payload)
{
    if (!payload.startsWith(u'e')) { // as "{" does in Base64
        return QByteArray();
    }
    const auto decoded = QByteArray::fromBase64Encoding(
        payload.toLatin1(), QByteArray::Base64Encoding | QByteArray::AbortOnBase64DecodingErrors);
    const bool isJson = decoded && decoded.decoded.startsWith('{') && documentFromForeignJson(*decoded).isObject();
    return isJson ? *decoded : QByteArray();
}

bool isSecret(const QString& text)
{
    return text.contains("pass"_l1, Qt::CaseInsensitive) || text.contains("pwd"_l1, Qt::CaseInsensitive) ||
           text.contains("secret"_l1, Qt::CaseInsensitive);
}

QJsonValue withoutSecrets(const QJsonValue& value)
{
    if (value.isArray()) {
        QJsonArray array;
        for (const QJsonValue one : value.toArray()) {
            array.append(withoutSecrets(one));
        }
        return array;
    }
    if (!value.isObject()) { // a text may be JSON in its turn
        return isSecret(value.toString()) ? QJsonValue("(not shown)"_l1) : value;
    }
    QJsonObject object = value.toObject();
    for (auto member = object.begin(); member != object.end(); ++member) {
        member.value() = isSecret(member.key()) ? QJsonValue("(not shown)"_l1) : withoutSecrets(member.value());
    }
    return object;
}

} // namespace comunication
