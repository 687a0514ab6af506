#include "SaveWatch.h"

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

SaveWatch::SaveWatch(std::string i_fileName) : m_fileName(std::move(i_fileName)), m_tempName(m_fileName + ".tmp") {}

bool SaveWatch::Watch(std::string const& i_folder)
{
    if (m_fd < 0)
        m_fd = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    return m_fd >= 0 &&
           ::inotify_add_watch(m_fd, i_folder.c_str(), IN_CREATE | IN_MOVED_FROM | IN_DELETE | IN_CLOSE_NOWRITE) >= 0;
}

SaveWatch::~SaveWatch()
{
    if (m_fd >= 0)
        ::close(m_fd);
}

void SaveWatch::Reset()
{
    Drain();
    std::fill(std::begin(m_counts), std::end(m_counts), 0);
    m_writeOpen = false;
}

bool SaveWatch::WaitFor(Event i_event, Clock::time_point i_deadline)
{
    int const l_wanted = Count(i_event) + 1;
    while (Count(i_event) < l_wanted)
    {
        auto const l_left = std::chrono::duration_cast<std::chrono::milliseconds>(i_deadline - Clock::now()).count();
        if (l_left <= 0 || !ReadEvents(static_cast<int>(l_left)))
            return false;
    }
    return true;
}

void SaveWatch::Drain()
{
    while (ReadEvents(0))
    {
    }
}

void SaveWatch::WatchUntil(Clock::time_point i_until)
{
    for (;;)
    {
        auto const l_left = std::chrono::duration_cast<std::chrono::milliseconds>(i_until - Clock::now()).count();
        if (l_left <= 0)
            return;
        ReadEvents(static_cast<int>(l_left));
    }
}

// Waits up to the time for events and takes in what is there; false when nothing came.
bool SaveWatch::ReadEvents(int i_timeoutMs)
{
    pollfd l_poll{m_fd, POLLIN, 0};
    if (::poll(&l_poll, 1, i_timeoutMs) <= 0)
        return false;
    alignas(inotify_event) char l_buffer[16384];
    ssize_t const l_length = ::read(m_fd, l_buffer, sizeof(l_buffer));
    if (l_length <= 0)
        return false;
    Clock::time_point const l_now = Clock::now();
    for (ssize_t l_at = 0; l_at < l_length;)
    {
        inotify_event l_event;
        std::memcpy(&l_event, l_buffer + l_at, sizeof(l_event));
        std::string const l_name = l_event.len ? std::string(l_buffer + l_at + sizeof(l_event)) : std::string();
        l_at += static_cast<ssize_t>(sizeof(l_event) + l_event.len);
        if (l_name == m_tempName && (l_event.mask & IN_CREATE))
        {
            ++m_counts[static_cast<int>(Event::WriteStarted)];
            m_writeOpen = true;
            m_writeStart = l_now;
        }
        else if (l_name == m_tempName && (l_event.mask & (IN_MOVED_FROM | IN_DELETE)) && m_writeOpen)
        {
            ++m_counts[static_cast<int>(Event::WriteEnded)];
            m_writeOpen = false;
            if (l_event.mask & IN_MOVED_FROM)
                m_writeTimes.push_back(l_now - m_writeStart);
        }
        else if (l_name == m_fileName && (l_event.mask & IN_CLOSE_NOWRITE))
            ++m_counts[static_cast<int>(Event::LoadEnded)];
    }
    return true;
}
