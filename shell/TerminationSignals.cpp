#include "shell/TerminationSignals.h"

#include <QSocketNotifier>

#include <csignal>
#include <sys/socket.h>
#include <unistd.h>

TerminationSignals::TerminationSignals(QObject* ip_parent) : QObject(ip_parent)
{
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, s_fds) != 0)
        return;
    mp_notifier = new QSocketNotifier(s_fds[1], QSocketNotifier::Read, this);
    connect(mp_notifier, &QSocketNotifier::activated, this, &TerminationSignals::OnSignalByte);

    struct sigaction l_action = {};
    l_action.sa_handler = &TerminationSignals::HandleSignal;
    sigemptyset(&l_action.sa_mask);
    l_action.sa_flags = SA_RESTART;
    sigaction(SIGTERM, &l_action, nullptr);
    sigaction(SIGINT, &l_action, nullptr);
}

TerminationSignals::~TerminationSignals()
{
    std::signal(SIGTERM, SIG_DFL);
    std::signal(SIGINT, SIG_DFL);
    for (int& l_fd : s_fds)
    {
        if (l_fd >= 0)
            ::close(l_fd);
        l_fd = -1;
    }
}

void TerminationSignals::HandleSignal(int i_signal)
{
    // Only async-signal-safe work here: one byte into the pair, read on the main thread.
    char const l_byte = static_cast<char>(i_signal);
    [[maybe_unused]] ssize_t l_written = ::write(s_fds[0], &l_byte, 1);
}

void TerminationSignals::OnSignalByte()
{
    char l_byte = 0;
    [[maybe_unused]] ssize_t l_read = ::read(s_fds[1], &l_byte, 1);
    emit TerminationRequested();
}
