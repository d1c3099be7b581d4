// SPDX-License-Identifier: MIT
// How the library writes its texts. Internal.
#pragma once

#include <QtCore/QString>

#include <cstddef>

namespace comunication {
inline namespace literals {

/// "..."_l1: an ASCII text to compare with or to join, without a copy of its own.
constexpr QLatin1String operator""_l1(const char* text, std::size_t length) noexcept
{
    return QLatin1String(text, static_cast<int>(length));
}

} // namespace literals
} // namespace comunication
