#include "support/FreePort.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fstream>
#include <random>
#include <set>

namespace
{
constexpr int c_lowestPort = 10000;

int FirstDialPort()
{
    int l_first = 0;
    std::ifstream("/proc/sys/net/ipv4/ip_local_port_range") >> l_first;
    return l_first > c_lowestPort + 1000 ? l_first : 32768;
}

// Bound on any address, as the client's listener is; without SO_REUSEADDR this also fails
// while a closed connection of the port lingers.
bool Bindable(quint16 i_port)
{
    int const l_fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (l_fd < 0)
        return false;
    sockaddr_in l_address{};
    l_address.sin_family = AF_INET;
    l_address.sin_port = htons(i_port);
    l_address.sin_addr.s_addr = htonl(INADDR_ANY);
    bool const l_bound = ::bind(l_fd, reinterpret_cast<sockaddr*>(&l_address), sizeof(l_address)) == 0;
    ::close(l_fd);
    return l_bound;
}
} // namespace

quint16 FreePort()
{
    static std::set<quint16> s_given;
    static std::minstd_rand s_random(std::random_device{}());
    int const l_range = FirstDialPort() - c_lowestPort;
    for (int l_try = 0; l_try < 1000; ++l_try)
    {
        auto const l_port = static_cast<quint16>(c_lowestPort + static_cast<int>(s_random() % static_cast<unsigned>(l_range)));
        if (s_given.insert(l_port).second && Bindable(l_port))
            return l_port;
    }
    return 0;
}
