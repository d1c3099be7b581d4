// SPDX-License-Identifier: MIT
// The small types that pass between a host and the broker client.
#pragma once

#include <QtCore/QString>

namespace comunication {
namespace mosquittopp {

/// Writes the password of a key file into buffer (at most size bytes) and returns its length.
using password_callback_t = int (*)(char* buffer, int size, int rwflag, void* userdata);

/// A last will as it was registered.
struct will_t {
    QString topic;
    QString payload;
    int qos = 0;
    bool retain = false;
};

} // namespace mosquittopp
} // namespace comunication
