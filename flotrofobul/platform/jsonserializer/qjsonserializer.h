// SPDX-License-Identifier: MIT
// QJsonSerializer: the installed one if the library was built with it, otherwise this small one with the same names and
// behaviour for what the engine needs, objects to JSON by their properties and back. Ours lives in a namespace; the
// global names are aliases of this header, so a host that has the installed one does not include it.
#pragma once

#include <flotrofobul/platform/jsonserializer/qjsonserializer_fwd.h>

#if FLOTROFOBUL_SYSTEM_JSONSERIALIZER

#include <QJsonSerializer>

#else

#include <flotrofobul/export.h>

#include <QtCore/QByteArray>
#include <QtCore/QException>
#include <QtCore/QJsonObject>
#include <QtCore/QObject>

#include <type_traits>

namespace comunication {
namespace jsonserializer {

/// What a QJsonSerializer throws; what() says which property and why.
class FLOTROFOBUL_EXPORT QJsonSerializerException : public QException {
public:
    explicit QJsonSerializerException(const QByteArray& message);
    ~QJsonSerializerException() override;

    [[nodiscard]] const char* what() const noexcept override;
    void raise() const override;
    [[nodiscard]] QJsonSerializerException* clone() const override;

private:
    QByteArray text;
};

/// An object that has no JSON form.
class FLOTROFOBUL_EXPORT QJsonSerializationException : public QJsonSerializerException {
public:
    using QJsonSerializerException::QJsonSerializerException;
    ~QJsonSerializationException() override;

    void raise() const override;
    [[nodiscard]] QJsonSerializationException* clone() const override;
};

/// JSON that does not fit the class it is read into.
class FLOTROFOBUL_EXPORT QJsonDeserializationException : public QJsonSerializerException {
public:
    using QJsonSerializerException::QJsonSerializerException;
    ~QJsonDeserializationException() override;

    void raise() const override;
    [[nodiscard]] QJsonDeserializationException* clone() const override;
};

/// Turns a QObject into a QJsonObject by its properties, and back. It has no state: one instance serves any number of
/// calls, on any thread that may use the objects.
class FLOTROFOBUL_EXPORT QJsonSerializer : public QObject {
public:
    explicit QJsonSerializer(QObject* parent = nullptr);
    ~QJsonSerializer() override;

    /// The stored properties that T's class adds to those of QObject; dynamic properties and objectName are left out.
    /// T is a pointer type: `serialize<system_t*>(record)`. A null pointer gives {}. Throws
    /// QJsonSerializationException on a property whose type has no JSON form.
    template <typename T>
    [[nodiscard]] QJsonObject serialize(const std::remove_pointer_t<T>* object) const
    {
        return serializeObject(classOf<T>(), object);
    }

    /// A new T, made by its invokable constructor that takes a parent, with its properties set from the keys of the
    /// object; the caller owns it unless a parent is given.
    ///
    /// A property without a key keeps the value that the constructor gave it. A key without a property becomes a
    /// dynamic property; at most a thousand do, because Qt searches them linearly and a foreign packet must not stall
    /// the event loop. A text property takes numbers and booleans as text; a boolean property takes texts (all but "",
    /// "0" and "false" are true) and numbers (true unless they round to 0). A key "@class" must name the class itself.
    /// Anything else throws QJsonDeserializationException, and nothing of the object remains.
    template <typename T>
    [[nodiscard]] T deserialize(const QJsonObject& json, QObject* parent = nullptr) const
    {
        return static_cast<T>(deserializeObject(classOf<T>(), json, parent));
    }

private:
    Q_DISABLE_COPY(QJsonSerializer)

    template <typename T>
    static const QMetaObject& classOf() noexcept
    {
        static_assert(std::is_pointer_v<T> && std::is_base_of_v<QObject, std::remove_pointer_t<T>>,
                      "only pointers to QObject classes are serialized");
        return std::remove_pointer_t<T>::staticMetaObject;
    }

    static QJsonObject serializeObject(const QMetaObject& meta, const QObject* object);
    static QObject* deserializeObject(const QMetaObject& meta, const QJsonObject& json, QObject* parent);
};

} // namespace jsonserializer
} // namespace comunication

using comunication::jsonserializer::QJsonDeserializationException;
using comunication::jsonserializer::QJsonSerializationException;
using comunication::jsonserializer::QJsonSerializer;
using comunication::jsonserializer::QJsonSerializerException;

#endif
