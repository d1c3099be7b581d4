// SPDX-License-Identifier: MIT
#include <flotrofobul/platform/mosquittopp/tcp.h>

#include <linux/sockios.h>
#include <linux/tcp.h> // knows more fields than netinet/tcp.h, which must not be included beside it
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstddef>

namespace comunication {
namespace mosquittopp {
namespace tcp {

namespace {

// What an older kernel does not fill stays zero.
tcp_info infoOf(int descriptor)
{
    tcp_info info{};
    socklen_t length = sizeof info;
    ::getsockopt(descriptor, IPPROTO_TCP, TCP_INFO, &info, &length);
    return info;
}

} // namespace

traffic_t traffic(int descriptor)
{
    const tcp_info info = infoOf(descriptor);
    int queued = 0;
    ::ioctl(descriptor, SIOCOUTQ, &queued);
    return {info.tcpi_bytes_received, info.tcpi_bytes_acked, queued};
}

bool hasInput(int descriptor)
{
    int count = 0;
    return ::ioctl(descriptor, SIOCINQ, &count) == 0 && count > 0;
}

int connectError(int descriptor)
{
    int error = 0;
    socklen_t length = sizeof error;
    ::getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &error, &length);
    sockaddr_storage peer;
    socklen_t peerLength = sizeof peer;
    // OpenSSL writes before TCP is connected, which clears the error. A connection that the other side has ended since
    // looks like one that was refused, but for the measured time of its answer.
    if (error == 0 && ::getpeername(descriptor, reinterpret_cast<sockaddr*>(&peer), &peerLength) != 0) {
        error = infoOf(descriptor).tcpi_rtt != 0 ? ECONNRESET : ECONNREFUSED;
    }
    return error;
}

bool stands(int descriptor, int* systemError)
{
    char byte;
    const ssize_t count = ::recv(descriptor, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
    *systemError = count < 0 ? errno : 0;
    return count > 0 || *systemError == EAGAIN || *systemError == EINTR;
}

bool discardInput(int descriptor)
{
    char bytes[4096];
    ssize_t count = 0;
    do {
        count = ::recv(descriptor, bytes, sizeof bytes, MSG_DONTWAIT);
    } while (count > 0 || (count < 0 && errno == EINTR));
    return count < 0 && errno == EAGAIN;
}

// An even value acknowledges once and lets later acknowledgements travel with later answers; an odd one costs a segment
// for every packet.
void acknowledge(int descriptor, quickly_t quickly)
{
    const int mode = quickly == quickly_t::always ? 1 : 2;
    ::setsockopt(descriptor, IPPROTO_TCP, TCP_QUICKACK, &mode, sizeof mode);
}

} // namespace tcp
} // namespace mosquittopp
} // namespace comunication
