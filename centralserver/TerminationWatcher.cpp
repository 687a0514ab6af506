#include "TerminationWatcher.h"

#include <QSocketNotifier>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{
int g_signalPipe[2] = {-1, -1};
}

TerminationWatcher::TerminationWatcher(QObject* ip_parent)
    : QObject(ip_parent)
{
}

TerminationWatcher::~TerminationWatcher()
{
    if (!mp_notifier)
        return;
    std::signal(SIGTERM, SIG_DFL);
    std::signal(SIGINT, SIG_DFL);
    ::close(g_signalPipe[0]);
    ::close(g_signalPipe[1]);
    g_signalPipe[0] = g_signalPipe[1] = -1;
}

bool TerminationWatcher::Install(QString& o_error)
{
    if (g_signalPipe[0] != -1 || ::socketpair(AF_UNIX, SOCK_STREAM, 0, g_signalPipe) != 0)
    {
        o_error = QStringLiteral("cannot watch for termination signals");
        return false;
    }
    ::fcntl(g_signalPipe[1], F_SETFL, O_NONBLOCK);
    mp_notifier = new QSocketNotifier(g_signalPipe[0], QSocketNotifier::Read, this);
    connect(mp_notifier, &QSocketNotifier::activated, this,
        &TerminationWatcher::OnSignalPipeReadable);

    struct sigaction l_action;
    std::memset(&l_action, 0, sizeof(l_action));
    l_action.sa_handler = &TerminationWatcher::HandleSignal;
    sigemptyset(&l_action.sa_mask);
    l_action.sa_flags = SA_RESTART;
    ::sigaction(SIGTERM, &l_action, nullptr);
    ::sigaction(SIGINT, &l_action, nullptr);
    // A client that vanishes while being written to must not end the server.
    std::signal(SIGPIPE, SIG_IGN);
    return true;
}

void TerminationWatcher::HandleSignal(int i_signal)
{
    // Only what is safe in a signal handler: one write of one byte.
    int l_savedErrno = errno;
    char l_byte = static_cast<char>(i_signal);
    [[maybe_unused]] ssize_t l_written = ::write(g_signalPipe[1], &l_byte, 1);
    errno = l_savedErrno;
}

void TerminationWatcher::OnSignalPipeReadable()
{
    char l_byte = 0;
    if (::read(g_signalPipe[0], &l_byte, 1) == 1)
        emit TerminationRequested(static_cast<unsigned char>(l_byte));
}
