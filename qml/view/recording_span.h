// SPDX-License-Identifier: MIT
// From when to when a recording goes, without reading all of it.
#pragma once

#include "scene.h"

namespace comunication {
namespace view {

/// A recording's clock may go wild where a file is broken; nothing beyond this is believed.
constexpr moment_t longestRecording{std::chrono::hours(24 * 366 * 10)};

struct recording_span_t {
    moment_t begin = house::never; ///< of its first packet
    moment_t end = house::never;   ///< of its last packet, as far as can be seen from its end

    /// Empty, or why the file is no recording with a packet in it.
    [[nodiscard]] static QString read(const QString& path, recording_span_t* span);
};

} // namespace view
} // namespace comunication
