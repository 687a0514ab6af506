#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>

// The real client started for one run with a home of its own and its output in a file, to be
// ended by a signal rather than asked to close.
class KilledClient
{
public:
    KilledClient() = default;
    ~KilledClient();
    KilledClient(KilledClient const&) = delete;
    KilledClient& operator=(KilledClient const&) = delete;

    bool Start(std::string const& i_program, std::string const& i_home, std::string const& i_outputFile);
    void Signal(int i_signal);
    // Waits for the end; false when the process still runs at the deadline.
    bool Wait(std::chrono::steady_clock::time_point i_deadline);
    bool IsRunning() const { return m_pid > 0; }
    // How the last run ended: by a signal (its number), or by exiting (the status).
    int EndSignal() const { return m_endSignal; }
    int ExitStatus() const { return m_exitStatus; }

private:
    pid_t m_pid = -1;
    int m_endSignal = 0;
    int m_exitStatus = 0;
};
