// SPDX-License-Identifier: MIT
// The nodes that a server knows. Internal.
#pragma once

#include <flotrofobul/platform/owning_map.h>
#include <flotrofobul/utility/system_t.h>

#include <QtCore/QPointer>

namespace comunication {

inline bool isServer(const utility::system_t& node)
{
    return node.getType() == utility::service_t::server.ToString();
}

/// By client id. The clients' records are deleted before the servers'.
struct known_nodes_t {
    using nodes_t = owning_map_t<QString, utility::system_t>;

    /// Clients known before the link was lost. A host may still hold these records, or may have deleted them.
    owning_map_t<QString, utility::system_t, QPointer<utility::system_t>> formerClients;
    nodes_t servers;
    nodes_t clients;

    /// Whether a record says exactly what is already known about its node.
    bool know(const utility::system_t& node) const
    {
        const auto* const known = (isServer(node) ? servers : clients).find(node.getClientid());
        return known != nullptr && known->getClientid() == node.getClientid() &&
               known->getConnected() == node.getConnected() && known->getMasterId() == node.getMasterId();
    }
};

} // namespace comunication
