// SPDX-License-Identifier: MIT
// Found before the real one: a host must compile without it.
#error "a public header includes mosquitto.h"
