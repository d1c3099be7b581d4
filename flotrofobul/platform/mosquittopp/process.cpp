// SPDX-License-Identifier: MIT
#include <flotrofobul/platform/mosquittopp/process.h>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>

namespace comunication {
namespace mosquittopp {

namespace {

std::mutex& creation()
{
    static std::mutex mutex;
    return mutex;
}

int optionOf(int descriptor, int name)
{
    int value = -1;
    socklen_t length = sizeof value;
    ::getsockopt(descriptor, SOL_SOCKET, name, &value, &length);
    return value;
}

// Whether a descriptor looks in every respect like an end of libmosquitto's pair.
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
    const int null = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    if (null >= 0) {
        ::dup3(null, descriptor, O_CLOEXEC);
        ::close(null);
    }
}

handle_creation_t::handle_creation_t() : alone(creation())
{
    ::sigaction(SIGPIPE, nullptr, &pipeAction);
}

handle_creation_t::~handle_creation_t()
{
    // Without a handler of the host the signal stays ignored: it would end the process.
    if (pipeAction.sa_handler != SIG_DFL) {
        ::sigaction(SIGPIPE, &pipeAction, nullptr);
    }
}

// A handle begins with the numbers of its socket and of the pair. Where they are what they must be, it is told that it
// has no pair, as if none could be made.
void handle_creation_t::removePair(::mosquitto* handle) const
{
    std::array<int, 3> numbers;
    std::memcpy(numbers.data(), handle, sizeof numbers);
    if (numbers[0] == -1 && std::all_of(numbers.begin() + 1, numbers.end(), isPairEnd)) {
        std::for_each(numbers.begin() + 1, numbers.end(), ::close);
        numbers.fill(-1);
        std::memcpy(handle, numbers.data(), sizeof numbers);
    }
}

} // namespace mosquittopp
} // namespace comunication
