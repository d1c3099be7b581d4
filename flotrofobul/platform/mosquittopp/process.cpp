// SPDX-License-Identifier: MIT
#include <flotrofobul/platform/mosquittopp/process.h>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace comunication {
namespace mosquittopp {

namespace {

std::mutex& creation()
{
    static std::mutex mutex;
    return mutex;
}

int openNull()
{
    return ::open("/dev/null", O_RDWR | O_CLOEXEC);
}

int optionOf(int descriptor, int name)
{
    int value = -1;
    socklen_t length = sizeof value;
    ::getsockopt(descriptor, SOL_SOCKET, name, &value, &length);
    return value;
}

// Whether a descriptor looks in every respect like an end of libmosquitto's pair; another thread may have opened
// something else under the number.
bool isPairEnd(int descriptor)
{
    sockaddr_storage name;
    socklen_t length = sizeof name;
    return optionOf(descriptor, SO_DOMAIN) == AF_UNIX && optionOf(descriptor, SO_TYPE) == SOCK_STREAM &&
           ::getpeername(descriptor, reinterpret_cast<sockaddr*>(&name), &length) == 0 &&
           length == sizeof(sa_family_t) && (::fcntl(descriptor, F_GETFD) & FD_CLOEXEC) == 0 &&
           (::fcntl(descriptor, F_GETFL) & O_NONBLOCK) != 0;
}

} // namespace

void closeOnExec(int descriptor)
{
    ::fcntl(descriptor, F_SETFD, FD_CLOEXEC);
}

void replaceByNull(int descriptor)
{
    const int null = openNull();
    if (null >= 0) {
        ::dup3(null, descriptor, O_CLOEXEC);
        ::close(null);
    }
}

handle_creation_t::handle_creation_t() : alone(creation())
{
    ::sigaction(SIGPIPE, nullptr, &pipeAction);
    next = {openNull(), openNull()};
    std::for_each(next.begin(), next.end(), ::close);
}

handle_creation_t::~handle_creation_t()
{
    // Without a handler of the host the signal stays ignored: it would end the process.
    if (pipeAction.sa_handler != SIG_DFL) {
        ::sigaction(SIGPIPE, &pipeAction, nullptr);
    }
}

// A handle begins with the numbers of its socket and of the pair. Where they are what they must be, it is told that it
// has no pair, as if it could not be made; else it keeps the numbers, which then stand for /dev/null.
void handle_creation_t::removePair(::mosquitto* handle) const
{
    if (!std::all_of(next.begin(), next.end(), isPairEnd)) {
        return;
    }
    std::array<int, 3> numbers;
    std::memcpy(numbers.data(), handle, sizeof numbers);
    if (numbers == std::array<int, 3>{-1, next[0], next[1]}) {
        numbers = {-1, -1, -1};
        std::memcpy(handle, numbers.data(), sizeof numbers);
        std::for_each(next.begin(), next.end(), ::close);
    } else {
        std::for_each(next.begin(), next.end(), replaceByNull);
    }
}

} // namespace mosquittopp
} // namespace comunication
