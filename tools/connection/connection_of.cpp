// SPDX-License-Identifier: MIT
// A connection as a configuration has it; without the options of the command, for others who listen.
#include "connection/connection.h"

#include <flotrofobul/platform/config/mosquittocnf.h>

namespace comunication {
namespace tools {

QString connection_t::name() const
{
    return (host.contains(QLatin1Char(':')) ? QStringLiteral("[%1]:%2") : QStringLiteral("%1:%2")).arg(host).arg(port);
}

connection_t connectionOf(config::mosquittocnf& model)
{
    config::config_mqtt* const mqtt = model.getMqtt();
    connection_t result;
    result.configuration = model.serialize();
    result.installationId = mqtt->getGlobal()->getInstallation_id();
    result.host = mqtt->getGlobal()->getHost();
    result.port = mqtt->getGlobal()->getPort();
    result.username = mqtt->getConnect()->getUsername();
    result.password = mqtt->getConnect()->getPassword();
    result.tlsEnable = mqtt->getSecurity()->getTls_enable();
    result.tlsInsecure = mqtt->getSecurity()->getTls_insecure();
    result.caFile = mqtt->getSecurity()->getCa_file();
    result.keepalive = mqtt->getConnect()->getKeepalive();
    result.timeout = mqtt->getConnect()->getTimeout();
    result.maxPacketBytes = mqtt->getConnect()->getMax_packet_bytes();
    return result;
}

} // namespace tools
} // namespace comunication
