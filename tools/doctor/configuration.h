// SPDX-License-Identifier: MIT
// The first step of the doctor: what is wrong with a configuration, before anything is dialled.
#pragma once

#include "doctor/diagnosis.h"

#include <QtCore/QJsonObject>

#include <optional>

namespace comunication {
namespace tools {

/// The object in a configuration file; nothing, and the reason in the diagnosis, if there is none.
std::optional<QJsonObject> readConfiguration(const QString& path, diagnosis_t& diagnosis);

/// Tells what an engine would refuse or not understand. False where there is no use in going on.
bool examineConfiguration(const QJsonObject& json, diagnosis_t& diagnosis);

} // namespace tools
} // namespace comunication
