// SPDX-License-Identifier: MIT
// The model of a house in words: as a picture for a terminal, and as objects for programs.
#pragma once

#include <flotrofobul/house/house_model.h>

#include <QtCore/QJsonObject>
#include <QtCore/QString>
#include <QtCore/QStringList>

namespace comunication {
namespace tools {

/// What a picture says beside the model.
struct frame_t {
    QString title;   ///< which brokers
    QString problem; ///< of the link; empty without one
    int columns = 80;
    int rows = 0; ///< 0: as many as it takes
};

/// Masters, bridges, a table of nodes and what happened last. A line that begins with "!" is an alarm.
[[nodiscard]] QStringList pictureOf(const house::house_model_t& house, house::moment_t now, const frame_t& frame);

/// Something that happened, with its time, in one line.
[[nodiscard]] QString lineOf(const house::house_event_t& event);
[[nodiscard]] QJsonObject jsonOf(const house::house_event_t& event);
/// All that is known at the moment.
[[nodiscard]] QJsonObject jsonOf(const house::house_model_t& house, house::moment_t now);

} // namespace tools
} // namespace comunication
