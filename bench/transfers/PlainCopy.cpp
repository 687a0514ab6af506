#include "PlainCopy.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <thread>

namespace
{
constexpr long long c_blockSize = 8192;

double ThreadCpuSeconds()
{
    timespec l_time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &l_time);
    return static_cast<double>(l_time.tv_sec) + static_cast<double>(l_time.tv_nsec) / 1e9;
}

bool SendAll(int i_socket, char const* ip_bytes, long long i_length)
{
    while (i_length > 0)
    {
        ssize_t const l_sent = send(i_socket, ip_bytes, static_cast<size_t>(i_length), MSG_NOSIGNAL);
        if (l_sent <= 0)
            return false;
        ip_bytes += l_sent;
        i_length -= l_sent;
    }
    return true;
}

bool Send(sockaddr_in const& i_to, std::string const& i_source, double& o_cpuSeconds)
{
    double const l_cpuStart = ThreadCpuSeconds();
    int const l_socket = socket(AF_INET, SOCK_STREAM, 0);
    int const l_file = open(i_source.c_str(), O_RDONLY);
    bool l_ok = l_socket >= 0 && l_file >= 0
             && connect(l_socket, reinterpret_cast<sockaddr const*>(&i_to), sizeof i_to) == 0;
    char l_block[c_blockSize];
    for (ssize_t l_read; l_ok && (l_read = read(l_file, l_block, sizeof l_block)) != 0;)
        l_ok = l_read > 0 && SendAll(l_socket, l_block, l_read);
    if (l_ok)
    {
        shutdown(l_socket, SHUT_WR);
        char l_byte;
        l_ok = recv(l_socket, &l_byte, 1, 0) == 0;
    }
    if (l_file >= 0)
        close(l_file);
    if (l_socket >= 0)
        close(l_socket);
    o_cpuSeconds = ThreadCpuSeconds() - l_cpuStart;
    return l_ok;
}

bool Receive(int i_listener, std::string const& i_target, long long i_size, double& o_cpuSeconds)
{
    double const l_cpuStart = ThreadCpuSeconds();
    int const l_socket = accept(i_listener, nullptr, nullptr);
    int const l_file = open(i_target.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    bool l_ok = l_socket >= 0 && l_file >= 0;
    char l_block[c_blockSize];
    for (long long l_left = i_size; l_ok && l_left > 0;)
    {
        long long const l_length = std::min(c_blockSize, l_left);
        for (long long l_filled = 0; l_ok && l_filled < l_length;)
        {
            ssize_t const l_received = recv(l_socket, l_block + l_filled, static_cast<size_t>(l_length - l_filled), 0);
            l_ok = l_received > 0;
            l_filled += l_received;
        }
        l_ok = l_ok && write(l_file, l_block, static_cast<size_t>(l_length)) == l_length;
        l_left -= l_length;
    }
    if (l_file >= 0)
        l_ok = close(l_file) == 0 && l_ok;
    if (l_socket >= 0)
        close(l_socket);
    o_cpuSeconds = ThreadCpuSeconds() - l_cpuStart;
    return l_ok;
}
} // namespace

std::optional<PlainCopyFigures> PlainCopy(std::string const& i_source, std::string const& i_target, long long i_size)
{
    int const l_listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in l_address{};
    l_address.sin_family = AF_INET;
    l_address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t l_length = sizeof l_address;
    if (l_listener < 0 || bind(l_listener, reinterpret_cast<sockaddr*>(&l_address), sizeof l_address) != 0
        || listen(l_listener, 1) != 0 || getsockname(l_listener, reinterpret_cast<sockaddr*>(&l_address), &l_length) != 0)
    {
        if (l_listener >= 0)
            close(l_listener);
        return std::nullopt;
    }
    PlainCopyFigures l_figures;
    bool l_received = false;
    bool l_sent = false;
    auto const l_start = std::chrono::steady_clock::now();
    std::thread l_receiver([&] { l_received = Receive(l_listener, i_target, i_size, l_figures.m_receiverCpuSeconds); });
    std::thread l_sender([&] { l_sent = Send(l_address, i_source, l_figures.m_senderCpuSeconds); });
    l_sender.join();
    // A sender that never connected leaves the receiver in accept.
    if (!l_sent)
        shutdown(l_listener, SHUT_RDWR);
    l_receiver.join();
    l_figures.m_seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - l_start).count();
    close(l_listener);
    if (!l_received || !l_sent)
        return std::nullopt;
    return l_figures;
}
