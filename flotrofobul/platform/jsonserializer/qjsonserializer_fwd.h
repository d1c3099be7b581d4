// SPDX-License-Identifier: MIT
// Names the serializer that this library is built with, for headers that only point to one. The class itself and its
// global name stand in qjsonserializer.h.
#pragma once

#include <flotrofobul/config.h>

#if FLOTROFOBUL_SYSTEM_JSONSERIALIZER

class QJsonSerializer;

namespace comunication {
namespace jsonserializer {

using ::QJsonSerializer;

} // namespace jsonserializer
} // namespace comunication

#else

namespace comunication {
namespace jsonserializer {

class QJsonSerializer;

} // namespace jsonserializer
} // namespace comunication

#endif
