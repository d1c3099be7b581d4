// SPDX-License-Identifier: MIT
// Topics: the parser must agree with the expression for every id, and the statistics must take whatever the broker
// may call its topics. First line: installation id; the rest: a topic.
#include <flotrofobul/platform/logs/classlogs.h>
#include <flotrofobul/utility/statusbroker.h>

#include "topic_reference.h"

#include <cstdint>
#include <cstdlib>

using comunication::utility::topic_t;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    ::utility::logs::classlogs::getInstance()->setLevel(-1);
    const QString input = QString::fromUtf8(reinterpret_cast<const char*>(data), static_cast<int>(size));
    const QString id = input.section(u'\n', 0, 0);
    const QString text = input.section(u'\n', 1);

    topic_t::setInstallationid(id);
    if (partsOf(text) != referenceOf(text)) {
        std::abort();
    }

    comunication::brokerdiagnostic::diagnostic_broker model;
    model.setStoreBrokerBridgeConnection(true);
    model.setStoreBrokerLogs(true);
    model.setStoreBrokerMessage(true);
    model.setStoreBrokerStatistics(true);
    model.updateMessage(text, id);
    return 0;
}
