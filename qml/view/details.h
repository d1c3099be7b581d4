// SPDX-License-Identifier: MIT
// What is selected, in words.
#pragma once

#include "packet_rings.h"
#include "scene.h"

#include <QtCore/QVariant>

namespace comunication {
namespace view {

/// Objects with "name" and "value".
[[nodiscard]] QVariantList detailsOf(const scene_t& scene, const scene_node_t& node);
[[nodiscard]] QVariantList detailsOf(const scene_t& scene, const scene_broker_t& broker);
[[nodiscard]] QVariantList detailsOf(const scene_t& scene, const scene_line_t& line);
/// A record as laid-out JSON, without what a screen would obey.
[[nodiscard]] QString recordTextOf(const QJsonObject& record);
/// A payload as text, decoded where it is Base64 of the protocol.
[[nodiscard]] QString payloadTextOf(const ring_packet_t& packet);
/// "up", "down", "missing", "unknown".
[[nodiscard]] QString wordOf(direction_t direction);
[[nodiscard]] QString wordOf(hearing_t hearing);
[[nodiscard]] QString wordOf(house::presence_t presence);
/// "3.5/s"; empty for nothing.
[[nodiscard]] QString rateTextOf(double rate);

} // namespace view
} // namespace comunication
