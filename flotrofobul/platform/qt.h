// SPDX-License-Identifier: MIT
// What Qt 5 and Qt 6 do differently where it matters here, in one place. Internal.
#pragma once

#include <QtCore/QDateTime>
#include <QtCore/QLocale>
#include <QtCore/QMetaProperty>
#include <QtCore/QString>
#include <QtCore/QVariant>

#include <utility>

namespace comunication {
namespace qt {

#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)

/// Whether placeOf() may be called while another thread calls replaceText().
constexpr bool textIsOneWord = true;

/// Whether the numbers of JSON are written by other rules than those of jsonOf().
constexpr bool writesOtherNumbers = false;

/// Tells a text from every other that lives at the same time.
inline const void* placeOf(QString& text)
{
    return __atomic_load_n(&text.data_ptr(), __ATOMIC_ACQUIRE);
}

inline void replaceText(QString& text, QString other)
{
    other.data_ptr() = __atomic_exchange_n(&text.data_ptr(), other.data_ptr(), __ATOMIC_ACQ_REL);
}

inline bool isStored(const QMetaProperty& property, const QObject* object)
{
    return property.isStored(object);
}

/// A copy of what is there, which is of the type with this number.
inline QVariant variantOf(int type, const void* value)
{
    return QVariant(type, value);
}

/// The number of the type that is registered under this name, or QMetaType::UnknownType.
inline int typeNamed(const char* name)
{
    return QMetaType::type(name);
}

/// A date as Qt::TextDate, with the names of the system's language.
inline QString textOf(const QDateTime& date)
{
    return date.toString(Qt::TextDate);
}

#else

constexpr bool textIsOneWord = false;
constexpr bool writesOtherNumbers = true;

inline const void* placeOf(QString& text)
{
    return text.constData();
}

inline void replaceText(QString& text, QString other)
{
    text.swap(other);
}

inline bool isStored(const QMetaProperty& property, const QObject*)
{
    return property.isStored();
}

inline QVariant variantOf(int type, const void* value)
{
    return QVariant(QMetaType(type), value);
}

inline int typeNamed(const char* name)
{
    return QMetaType::fromName(name).id();
}

// Qt 6 writes no names but the English ones, all of three letters.
inline QString textOf(const QDateTime& date)
{
    const QString english = date.toString(Qt::TextDate);
    if (english.isEmpty()) {
        return english;
    }
    const QLocale system = QLocale::system();
    return system.dayName(date.date().dayOfWeek(), QLocale::ShortFormat) + QLatin1Char(' ') +
           system.monthName(date.date().month(), QLocale::ShortFormat) + english.mid(7);
}

#endif

/// Reads what textOf() writes here, and where English is spoken. (Qt 5 cannot read all that it writes, Qt 6 reads
/// English only.)
inline QDateTime dateOf(const QString& text)
{
    QStringList words = text.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    const QLocale system = QLocale::system();
    for (int month = 1; month <= 12 && words.size() > 1; ++month) {
        if (words[1] == system.monthName(month, QLocale::ShortFormat)) {
            words[1] = QLocale::c().monthName(month, QLocale::ShortFormat);
        }
    }
    return QDateTime::fromString(words.join(QLatin1Char(' ')), Qt::TextDate);
}

} // namespace qt
} // namespace comunication
