// SPDX-License-Identifier: MIT
#include <flotrofobul/platform/mosquittopp/resolver.h>

#include <QtCore/QUrl>

#include <netdb.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <deque>
#include <mutex>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

namespace comunication {
namespace mosquittopp {

namespace {

constexpr int mostThreads = 8;

using texts_t = std::vector<std::string>;

texts_t addressesOf(const std::string& name)
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
        if (::getnameinfo(one->ai_addr, one->ai_addrlen, text, sizeof text, nullptr, 0, NI_NUMERICHOST) == 0 &&
            std::find(texts.begin(), texts.end(), text) == texts.end()) {
            texts.emplace_back(text);
        }
    }
    ::freeaddrinfo(first);
    return texts;
}

} // namespace

// What the look-up shares with the thread that works for it.
struct lookup_t::answer_t {
    explicit answer_t(std::string host) : name(std::move(host)) {}
    ~answer_t() { ::close(descriptor); }
    answer_t(const answer_t&) = delete;
    answer_t& operator=(const answer_t&) = delete;

    void give(texts_t addresses)
    {
        texts = std::move(addresses);
        done.store(true, std::memory_order_release);
        ::eventfd_write(descriptor, 1);
    }

    const std::string name;
    const int descriptor = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    texts_t texts; // not to be touched before it is done
    std::atomic<bool> done{false};
};

// Never destroyed: threads that are left behind come back to it while the process ends.
struct lookup_t::workers_t {
    static workers_t& only()
    {
        static auto* const workers = new workers_t;
        return *workers;
    }

    // False if there is nobody to do it.
    bool add(const std::shared_ptr<answer_t>& asked)
    {
        const std::lock_guard<std::mutex> lock(mutex);
        if (running < mostThreads && startThread()) {
            ++running;
        }
        if (running > 0) {
            waiting.push_back(asked);
        }
        return running > 0;
    }

private:
    bool startThread()
    {
        // The new thread inherits the mask: no signal handler of the host is to run there.
        sigset_t all;
        sigset_t usual;
        ::sigfillset(&all);
        ::pthread_sigmask(SIG_SETMASK, &all, &usual);
        bool started = true;
        try {
            std::thread([this] { work(); }).detach();
        } catch (const std::system_error&) {
            started = false;
        }
        ::pthread_sigmask(SIG_SETMASK, &usual, nullptr);
        return started;
    }

    void work()
    {
        while (const std::shared_ptr<answer_t> asked = next()) {
            texts_t texts;
            try {
                texts = addressesOf(asked->name);
            } catch (const std::bad_alloc&) {
            }
            asked->give(std::move(texts));
        }
    }

    // Null, and one thread less, when nobody waits any more.
    std::shared_ptr<answer_t> next()
    {
        const std::lock_guard<std::mutex> lock(mutex);
        while (!waiting.empty()) {
            std::shared_ptr<answer_t> asked = waiting.front().lock();
            waiting.pop_front();
            if (asked) {
                return asked;
            }
        }
        --running;
        return nullptr;
    }

    std::mutex mutex;
    std::deque<std::weak_ptr<answer_t>> waiting;
    int running = 0;
};

lookup_t::lookup_t(const QString& host)
    : answer(std::make_shared<answer_t>(QUrl::toAce(host).toStdString())) // empty if it is no name
{
    if (answer->name.empty() || answer->descriptor < 0 || !workers_t::only().add(answer)) {
        answer->give({});
    }
}

lookup_t::~lookup_t() = default;

int lookup_t::descriptor() const
{
    return answer->descriptor;
}

bool lookup_t::isDone() const
{
    return answer->done.load(std::memory_order_acquire);
}

QStringList lookup_t::addresses() const
{
    QStringList addresses;
    if (isDone()) {
        for (const std::string& text : answer->texts) {
            addresses += QString::fromStdString(text);
        }
    }
    return addresses;
}

} // namespace mosquittopp
} // namespace comunication
