// SPDX-License-Identifier: MIT
// Topics: the parser must agree with the regular expression for every installation id, and the statistics must accept
// whatever the broker calls its topics. The first line is an installation id, the rest a topic.
#include <flotrofobul/define/topic_t.h>
#include <flotrofobul/platform/logs/classlogs.h>
#include <flotrofobul/utility/statusbroker.h>

#include <QtCore/QRegExp>

#include <cstdint>
#include <cstdlib>

using comunication::utility::topic_t;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    ::utility::logs::classlogs::getInstance()->setLevel(::utility::logs::fatal - 1);
    const QString input = QString::fromUtf8(reinterpret_cast<const char*>(data), static_cast<int>(size));
    const QString id = input.section(u'\n', 0, 0);
    const QString text = input.section(u'\n', 1);

    topic_t::setInstallationid(id);
    bool ok = false;
    const topic_t topic(text, &ok);
    QRegExp expression(topic_t::tmp_regex_allowed_topic_plain, Qt::CaseSensitive, QRegExp::RegExp);
    const bool matches = expression.exactMatch(text) && expression.captureCount() >= topic_t::getTopic_min_len();
    if (ok != matches) {
        std::abort();
    }
    if (ok) {
        const int plain = expression.cap(2) == QLatin1String("local") ? 3 : 2;
        if (topic.getOrigin() != expression.cap(1) || topic.getPlain() != expression.cap(plain) ||
            topic.getSender() != expression.cap(plain + 1) || topic.getDestination() != expression.cap(plain + 2) ||
            topic.getValue() != expression.cap(plain + 3)) {
            std::abort();
        }
    }

    comunication::brokerdiagnostic::diagnostic_broker model;
    model.setStoreBrokerBridgeConnection(true);
    model.setStoreBrokerLogs(true);
    model.setStoreBrokerMessage(true);
    model.setStoreBrokerStatistics(true);
    model.updateMessage(text, id);
    return 0;
}
