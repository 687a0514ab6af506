#include "support/TestPorts.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

namespace
{
constexpr int c_maxFillers = 8;
constexpr int c_settleMs = 100;

sockaddr_in Loopback(quint16 i_port)
{
    sockaddr_in l_address{};
    l_address.sin_family = AF_INET;
    l_address.sin_port = htons(i_port);
    l_address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return l_address;
}

// A stream socket bound to 127.0.0.1 at a port the system picks; -1 on failure. Without
// SO_REUSEADDR nobody else can bind that port, not even on the wildcard address.
int BoundSocket(quint16& o_port)
{
    int const l_fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (l_fd < 0)
        return -1;
    int const l_off = 0;
    ::setsockopt(l_fd, SOL_SOCKET, SO_REUSEADDR, &l_off, sizeof(l_off));
    sockaddr_in l_address = Loopback(0);
    socklen_t l_size = sizeof(l_address);
    if (::bind(l_fd, reinterpret_cast<sockaddr*>(&l_address), sizeof(l_address)) != 0
        || ::getsockname(l_fd, reinterpret_cast<sockaddr*>(&l_address), &l_size) != 0)
    {
        ::close(l_fd);
        return -1;
    }
    o_port = ntohs(l_address.sin_port);
    return l_fd;
}
}

RefusingPort::RefusingPort()
{
    m_fd = BoundSocket(m_port);
}

RefusingPort::~RefusingPort()
{
    if (m_fd >= 0)
        ::close(m_fd);
}

BlackHolePort::BlackHolePort()
{
    quint16 l_port = 0;
    m_listener = BoundSocket(l_port);
    if (m_listener >= 0 && ::listen(m_listener, 0) == 0 && Fill())
        m_port = l_port;
}

BlackHolePort::~BlackHolePort()
{
    for (int const l_fd : m_fillers)
        ::close(l_fd);
    if (m_listener >= 0)
        ::close(m_listener);
}

// Dials the listener until one dial stays pending: from then on the backlog is full and the
// system drops every further connection request to the port.
bool BlackHolePort::Fill()
{
    sockaddr_in l_target{};
    socklen_t l_size = sizeof(l_target);
    if (::getsockname(m_listener, reinterpret_cast<sockaddr*>(&l_target), &l_size) != 0)
        return false;
    while (m_fillers.size() < c_maxFillers)
    {
        int const l_fd = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        if (l_fd < 0)
            return false;
        m_fillers.push_back(l_fd);
        if (::connect(l_fd, reinterpret_cast<sockaddr const*>(&l_target), sizeof(l_target)) == 0)
            continue;
        if (errno != EINPROGRESS)
            return false;
        pollfd l_poll{l_fd, POLLOUT, 0};
        if (::poll(&l_poll, 1, c_settleMs) == 0)
            return true;
    }
    return false;
}
