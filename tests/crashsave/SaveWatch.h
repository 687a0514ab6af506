#pragma once

#include <chrono>
#include <string>
#include <vector>

// Watches the folder of the client's data file for what its saves and its load do there: the
// temporary file made, then renamed over the data file or removed, and the data file closed
// after it was read. Events are read only when asked for, so that after the client is killed a
// final Drain tells exactly whether a write was open.
class SaveWatch
{
public:
    using Clock = std::chrono::steady_clock;
    enum class Event { LoadEnded, WriteStarted, WriteEnded };

    explicit SaveWatch(std::string i_fileName);
    ~SaveWatch();
    SaveWatch(SaveWatch const&) = delete;
    SaveWatch& operator=(SaveWatch const&) = delete;

    // Starts watching the folder that holds the file; false when it cannot.
    bool Watch(std::string const& i_folder);
    // Forgets what was seen, for the next run of the client.
    void Reset();
    // Reads events until the given one has happened once more than when the wait began, or
    // the deadline passes; true when it happened.
    bool WaitFor(Event i_event, Clock::time_point i_deadline);
    // Reads every event that is waiting.
    void Drain();
    // Reads events as they come until the time, so that each is seen when it happens.
    void WatchUntil(Clock::time_point i_until);
    // A temporary file was made and is neither renamed nor removed yet.
    bool IsWriteOpen() const { return m_writeOpen; }
    int Count(Event i_event) const { return m_counts[static_cast<int>(i_event)]; }
    // How long each whole write seen took, from the temporary file made to its rename.
    std::vector<Clock::duration> const& WriteTimes() const { return m_writeTimes; }

private:
    bool ReadEvents(int i_timeoutMs);

    int m_fd = -1;
    std::string m_fileName;
    std::string m_tempName;
    int m_counts[3] = {};
    bool m_writeOpen = false;
    Clock::time_point m_writeStart;
    std::vector<Clock::duration> m_writeTimes;
};
