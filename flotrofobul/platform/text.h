// SPDX-License-Identifier: MIT
// Literals for texts. Internal.
#pragma once

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
} // namespace comunication
