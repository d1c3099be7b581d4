// SPDX-License-Identifier: MIT
#include <flotrofobul/platform/mosquittopp/resolver.h>

#include <QtCore/QUrl>

#include <netdb.h>
#include <sys/socket.h>

#include <chrono>
#include <future>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

namespace comunication {
namespace mosquittopp {

namespace {

using texts_t = std::vector<std::string>;

texts_t lookUp(const std::string& name)
{
    texts_t texts;
    addrinfo hints = {};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* first = nullptr;
    if (::getaddrinfo(name.c_str(), nullptr, &hints, &first) != 0) {
        return texts;
    }
    for (const addrinfo* one = first; one != nullptr; one = one->ai_next) {
        char text[NI_MAXHOST];
        if (::getnameinfo(one->ai_addr, one->ai_addrlen, text, sizeof text, nullptr, 0, NI_NUMERICHOST) == 0) {
            texts.emplace_back(text);
        }
    }
    ::freeaddrinfo(first);
    return texts;
}

} // namespace

QStringList resolveBefore(const QString& host, const QDeadlineTimer& deadline)
{
    // A look-up cannot be stopped, and a name server that never answers holds it for half a minute. So it runs in a
    // thread that may be left behind and touches nothing of this library.
    QStringList addresses;
    const QByteArray name = QUrl::toAce(host); // as QHostInfo does; empty if it is no name
    if (name.isEmpty()) {
        return addresses;
    }
    std::promise<texts_t> promise;
    std::future<texts_t> result = promise.get_future();
    try {
        std::thread([name = name.toStdString(), promise = std::move(promise)]() mutable {
            promise.set_value(lookUp(name));
        }).detach();
    } catch (const std::system_error&) {
        return addresses; // no thread available: the attempt fails like any other
    }
    if (result.wait_for(std::chrono::milliseconds(deadline.remainingTime())) == std::future_status::ready) {
        for (const std::string& text : result.get()) {
            addresses += QString::fromStdString(text);
        }
    }
    return addresses;
}

} // namespace mosquittopp
} // namespace comunication
