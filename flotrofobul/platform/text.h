// SPDX-License-Identifier: MIT
// Literals for texts, and texts out of bytes. Internal.
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <cstddef>

namespace comunication {
inline namespace literals {

/// "..."_l1 is an ASCII text to compare or concatenate; it is not copied into a QString first.
constexpr QLatin1String operator""_l1(const char* text, std::size_t length) noexcept
{
    return QLatin1String(text, static_cast<int>(length));
}

} // namespace literals

/// The text ends at the first zero byte, as a C string does. (QString::fromUtf8() agrees with Qt 5 only.)
inline QString textUpToZero(const QByteArray& utf8)
{
    return QString::fromUtf8(utf8.constData(),
                             static_cast<int>(qstrnlen(utf8.constData(), static_cast<uint>(utf8.size()))));
}

} // namespace comunication
