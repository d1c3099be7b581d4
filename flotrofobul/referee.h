// SPDX-License-Identifier: MIT
// Who decides above a server who is master.
#pragma once

#include <flotrofobul/define/topic_t.h>

#include <QtCore/QJsonValue>

namespace comunication {

/// Without one, a server adopts the master that was announced last (see protoserver_t::setReferee()).
///
/// Both are called from inside the server's operations and must neither delete the server nor call it.
class referee_t {
public:
    /// Whether the server may handle a packet of another node; a packet that may not is not heard.
    virtual bool admits(const utility::topic_t& topic, const QJsonValue& payload) = 0;
    /// The host has made the server master.
    virtual void claimed() = 0;

protected:
    ~referee_t() = default;
};

} // namespace comunication
