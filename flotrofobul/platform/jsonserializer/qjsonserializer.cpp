// SPDX-License-Identifier: MIT
// The in-tree QJsonSerializer: one walk over the properties in each direction, and the rules by which a JSON value fits
// a property. Empty when an installed one is used.
#include <flotrofobul/platform/jsonserializer/qjsonserializer.h>

#if !FLOTROFOBUL_SYSTEM_JSONSERIALIZER

#include <flotrofobul/platform/qt.h>

#include <QtCore/QMetaProperty>

#include <memory>

namespace comunication {
namespace jsonserializer {

namespace {

constexpr int mostUnknownKeys = 1000;

QByteArray nameOf(const QMetaObject& meta, const QMetaProperty& property)
{
    return QByteArray(meta.className()) + "::" + property.name();
}

QJsonValue toJson(const QMetaObject& meta, const QMetaProperty& property, const QVariant& value)
{
    switch (static_cast<QMetaType::Type>(value.userType())) {
    case QMetaType::QString: return value.toString();
    case QMetaType::Bool: return value.toBool();
    case QMetaType::QJsonObject: return value.toJsonObject();
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::Double: return QJsonValue::fromVariant(value);
    default:
        throw QJsonSerializationException("No JSON form for the type of " + nameOf(meta, property) + ": " +
                                          property.typeName());
    }
}

bool isPlain(const QJsonValue& value)
{
    return value.isString() || value.isDouble() || value.isBool();
}

// The value as the type of the property takes it; an invalid QVariant if it does not fit.
QVariant fromJson(int type, const QJsonValue& value)
{
    switch (static_cast<QMetaType::Type>(type)) {
    case QMetaType::QString: return isPlain(value) ? value.toVariant().toString() : QVariant();
    case QMetaType::Bool: return isPlain(value) ? value.toVariant().toBool() : QVariant();
    case QMetaType::QJsonObject: return value.isObject() ? value.toObject() : QVariant();
    default: return isPlain(value) ? value.toVariant() : QVariant(); // converted while it is written
    }
}

void writeProperty(QObject& object, const QMetaProperty& property, const QJsonValue& value)
{
    const QVariant variant = fromJson(property.userType(), value);
    const bool fits = variant.isValid() && (property.write(&object, variant) || !property.isWritable());
    if (!fits) {
        throw QJsonDeserializationException("The value does not fit the type of " +
                                            nameOf(*object.metaObject(), property) + ": " + property.typeName());
    }
}

} // namespace

QJsonSerializerException::QJsonSerializerException(const QByteArray& message) : text(message)
{}

QJsonSerializerException::~QJsonSerializerException() = default;

const char* QJsonSerializerException::what() const noexcept
{
    return text.constData();
}

void QJsonSerializerException::raise() const
{
    throw *this;
}

QJsonSerializerException* QJsonSerializerException::clone() const
{
    return new QJsonSerializerException(*this);
}

QJsonSerializationException::~QJsonSerializationException() = default;

void QJsonSerializationException::raise() const
{
    throw *this;
}

QJsonSerializationException* QJsonSerializationException::clone() const
{
    return new QJsonSerializationException(*this);
}

QJsonDeserializationException::~QJsonDeserializationException() = default;

void QJsonDeserializationException::raise() const
{
    throw *this;
}

QJsonDeserializationException* QJsonDeserializationException::clone() const
{
    return new QJsonDeserializationException(*this);
}

QJsonSerializer::QJsonSerializer(QObject* parent) : QObject(parent)
{}

QJsonSerializer::~QJsonSerializer() = default;

QJsonObject QJsonSerializer::serializeObject(const QMetaObject& meta, const QObject* object)
{
    QJsonObject json;
    if (object == nullptr) {
        return json;
    }
    for (int index = QObject::staticMetaObject.propertyCount(); index < meta.propertyCount(); ++index) {
        const QMetaProperty property = meta.property(index);
        if (qt::isStored(property, object)) {
            json.insert(QLatin1String(property.name()), toJson(meta, property, property.read(object)));
        }
    }
    return json;
}

QObject* QJsonSerializer::deserializeObject(const QMetaObject& meta, const QJsonObject& json, QObject* parent)
{
    const QLatin1String classKey("@class");
    const auto named = json.constFind(classKey);
    if (named != json.constEnd() && named.value().toString() != QLatin1String(meta.className())) {
        throw QJsonDeserializationException(QByteArray("The key @class does not name the class ") + meta.className());
    }
    std::unique_ptr<QObject> object(meta.newInstance(Q_ARG(QObject*, parent)));
    if (!object) {
        throw QJsonDeserializationException(QByteArray("No invokable constructor with a parent in ") +
                                            meta.className());
    }
    int unknownKeys = 0;
    for (auto it = json.constBegin(); it != json.constEnd(); ++it) {
        if (it.key() == classKey) {
            continue;
        }
        const QByteArray name = it.key().toUtf8();
        const bool hasName = !name.contains('\0'); // what Qt takes for a name ends at a zero character
        const int index = hasName ? meta.indexOfProperty(name.constData()) : -1;
        if (index >= 0) {
            writeProperty(*object, meta.property(index), it.value());
        } else if (++unknownKeys > mostUnknownKeys) {
            throw QJsonDeserializationException(QByteArray("Too many unknown keys for ") + meta.className());
        } else if (hasName) {
            object->setProperty(name.constData(), it.value().toVariant());
        }
    }
    return object.release();
}

} // namespace jsonserializer
} // namespace comunication

#endif
