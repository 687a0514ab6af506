#pragma once

#include <csignal>
#include <sys/types.h>
#include <unistd.h>

// The time limit of a benchmark that starts programs of its own: when it passes, the programs it
// watches are killed and the benchmark ends with status 2, whatever its main thread is doing.
namespace BenchDeadline
{
inline volatile sig_atomic_t g_pids[2] = {};
inline char const* gp_message = "";

inline void OnAlarm(int)
{
    for (sig_atomic_t const l_pid : g_pids)
        if (l_pid > 0)
            kill(static_cast<pid_t>(l_pid), SIGKILL);
    char const* lp_end = gp_message;
    while (*lp_end)
        ++lp_end;
    [[maybe_unused]] ssize_t const l_written = write(STDERR_FILENO, gp_message, static_cast<size_t>(lp_end - gp_message));
    _exit(2);
}

// i_message, a line for standard error, must live until the end.
inline void Arm(unsigned i_seconds, char const* i_message)
{
    gp_message = i_message;
    std::signal(SIGALRM, OnAlarm);
    alarm(i_seconds);
}

// Puts a started program's process into one of the slots, 0 or 1; 0 as the process empties it.
inline void Watch(int i_slot, long long i_pid)
{
    g_pids[i_slot] = static_cast<sig_atomic_t>(i_pid);
}
} // namespace BenchDeadline
