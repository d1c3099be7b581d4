// SPDX-License-Identifier: MIT
#include "connection/dialling.h"

#include <flotrofobul/platform/mosquittopp/mosquittoqt.h>

namespace comunication {
namespace tools {

bool prepare(mosquittopp::mosquittoqt& client, const connection_t& connection)
{
    client.setConnectTimeout(connection.timeout);
    if (!connection.username.isEmpty() || !connection.password.isEmpty()) {
        client.username_pw_set(connection.username, connection.password);
    }
    if (!connection.tlsEnable) {
        return true;
    }
    const bool isUsable = client.tls_set(connection.caFile, QString(), QString(), QString()) == 0;
    client.tls_insecure_set(connection.tlsInsecure);
    return isUsable;
}

int dial(mosquittopp::mosquittoqt& client, const connection_t& connection, int keepalive)
{
    static_cast<void>(prepare(client, connection));
    return client.connect_async(connection.host, connection.port, keepalive);
}

} // namespace tools
} // namespace comunication
