#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

// Lists and stats the folders of a share on a thread of its own, so that the event loop stays
// live on a large share. It never touches items: it hands back, folder by folder, the names and
// sizes of the regular files found, for the main thread to put into the graph.
//
// Names are the file system's bytes. The key of an entry is its folder's key, "/" and its
// name, built the same way on every walk and never made canonical (links and ".." are not
// resolved), so that files known from an earlier walk are found again.
class ShareWalker
{
public:
    // One regular file of a folder: its name, as a piece of the part's name buffer, and its size.
    struct File
    {
        std::uint32_t m_nameAt;
        std::uint32_t m_nameSize;
        std::uint64_t m_size;
    };

    // A folder comes in one or more parts, in order, and folders come depth first: a folder's
    // first part before any part of the folders below it. After the last folder of a job, one
    // more part with m_jobEnd set and nothing else.
    struct Part
    {
        std::uint64_t m_job = 0;
        std::string m_folder;
        std::string m_names;
        std::vector<File> m_files;
        // Folders below that lead back to one of their own ancestors: the folder, the ancestor.
        std::vector<std::pair<std::string, std::string>> m_loops;
        bool m_first = false;
        bool m_last = false;
        bool m_jobEnd = false;

        std::string_view Name(File const& i_file) const { return std::string_view(m_names).substr(i_file.m_nameAt, i_file.m_nameSize); }
    };

    // i_ready is called from the walking thread whenever parts become available after the
    // reader found none; it must only post a wake-up to the reader's thread.
    explicit ShareWalker(std::function<void()> i_ready);
    // Stops the walk at the next entry and waits for the thread.
    ~ShareWalker();
    ShareWalker(ShareWalker const&) = delete;
    ShareWalker& operator=(ShareWalker const&) = delete;

    // Walks the folder i_root, whose key is i_root itself, after the jobs queued before it.
    void Add(std::uint64_t i_job, std::string i_root);
    // The job's remaining folders are not walked; its end still comes.
    void Cancel(std::uint64_t i_job);
    // Takes the next part, false when there is none yet.
    bool Take(Part& o_part);

    static constexpr std::size_t s_filesPerPart = 4096;

private:
    struct Job
    {
        std::uint64_t m_id;
        std::string m_root;
    };

    void Run();
    void Walk(Job const& i_job);
    void Push(Part&& io_part);
    bool IsCancelled(std::uint64_t i_job);

    std::function<void()> m_ready;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<Job> m_jobs;
    std::set<std::uint64_t> m_cancelled;
    std::deque<Part> m_parts;
    std::size_t m_queuedFiles = 0; // files in m_parts: the walk waits while too many are unread
    bool m_readerWaiting = true;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};
