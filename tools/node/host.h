// SPDX-License-Identifier: MIT
// What the nodes on the command line share: how they say what happens, and how they end.
#pragma once

#include "command.h"

#include <flotrofobul/protobase_t.h>

#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

#include <vector>

namespace comunication {
namespace tools {

/// A payload as it may be shown: without passwords, nor anything that a terminal would obey.
QString shownPayload(const QJsonValue& payload);

/// Says an event in words, or as one JSON object a line.
class teller_t {
public:
    explicit teller_t(bool givenJson) : json(givenJson) {}

    void tell(const char* event, const QString& words, QJsonObject details = {}) const;

    /// Tells what happens to the link of a node.
    void follow(protobase_t& node) const;

private:
    bool json;
};

/// Runs the event loop until SIGINT, SIGTERM or SIGHUP. Then every node takes leave, which takes a second; a second
/// signal ends the program at once.
int runUntilSignal(const std::vector<protobase_t*>& nodes, const teller_t& teller);

} // namespace tools
} // namespace comunication
