// SPDX-License-Identifier: MIT
#include <flotrofobul/platform/mosquittopp/values.h>

#include <mosquitto.h>

#include <algorithm>

namespace comunication {
namespace mosquittopp {

namespace {

// Brokers close the connection over deeper topics.
constexpr int deepestTopic = 200;

verdict_t checkLevels(const QByteArray& topic)
{
    if (topic.isEmpty()) {
        return {MOSQ_ERR_INVAL, "the topic is empty"};
    }
    if (topic.count('/') >= deepestTopic) {
        return {MOSQ_ERR_INVAL, "the topic has more than 200 levels"};
    }
    return checkText(topic);
}

} // namespace

verdict_t checkText(const QByteArray& text)
{
    if (text.size() > longestText) {
        return {MOSQ_ERR_MALFORMED_UTF8, "it is longer than 65535 bytes"};
    }
    const auto isControl = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; };
    const auto isWide = [](char c) { return static_cast<unsigned char>(c) >= 0x80; };
    if (std::any_of(text.begin(), text.end(), isControl)) {
        return {MOSQ_ERR_MALFORMED_UTF8, "it holds control characters"};
    }
    if (std::any_of(text.begin(), text.end(), isWide) &&
        mosquitto_validate_utf8(text.constData(), text.size()) != MOSQ_ERR_SUCCESS) {
        return {MOSQ_ERR_MALFORMED_UTF8, "it holds characters that the protocol forbids"};
    }
    return {};
}

verdict_t checkTopic(const QByteArray& topic)
{
    const auto isWildcard = [](char c) { return c == '+' || c == '#'; };
    if (std::any_of(topic.begin(), topic.end(), isWildcard)) {
        return {MOSQ_ERR_INVAL, "the topic of a message holds a wildcard"};
    }
    return checkLevels(topic);
}

verdict_t checkFilter(const QByteArray& filter)
{
    const verdict_t verdict = checkLevels(filter);
    if (verdict.code == MOSQ_ERR_SUCCESS && mosquitto_sub_topic_check(filter.constData()) != MOSQ_ERR_SUCCESS) {
        return {MOSQ_ERR_INVAL, "a wildcard stands where none may be"};
    }
    return verdict;
}

verdict_t checkQos(int qos)
{
    return qos >= 0 && qos <= 2 ? verdict_t{} : verdict_t{MOSQ_ERR_INVAL, "the qos is not 0, 1 or 2"};
}

verdict_t checkPassword(const QByteArray& password)
{
    if (password.size() > longestText) {
        return {MOSQ_ERR_INVAL, "it is longer than 65535 bytes"};
    }
    return password.contains('\0') ? verdict_t{MOSQ_ERR_INVAL, "it holds a zero byte"} : verdict_t{};
}

} // namespace mosquittopp
} // namespace comunication
