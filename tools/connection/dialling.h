// SPDX-License-Identifier: MIT
// How a connection is taken to a broker client: the time for an attempt, credentials and TLS, then the dialling.
#pragma once

#include "connection/connection.h"

namespace comunication {
namespace mosquittopp {
class mosquittoqt;
}
namespace tools {

/// An engine's smallest, in seconds.
constexpr int leastKeepalive = 10;

/// All that comes before dialling. False if the certificates to trust cannot be used.
bool prepare(mosquittopp::mosquittoqt& client, const connection_t& connection);

/// Prepares and dials; 0, or the code of what refuses it. What is wrong with certificates the attempt tells.
int dial(mosquittopp::mosquittoqt& client, const connection_t& connection, int keepalive);

} // namespace tools
} // namespace comunication
