#include "shares/ShareWalker.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{
// The walk waits while this many files and folders are handed over but not yet read, which
// bounds its memory when the graph is slower than the disk.
constexpr std::size_t s_maxQueued = 64 * 1024;

// A folder on the way from the shared folder down to the one being listed.
struct Ancestor
{
    dev_t m_device;
    ino_t m_inode;
    std::string m_path;
};

// A folder still to be listed, with what its parent's listing said about it.
struct Pending
{
    std::string m_path;
    dev_t m_device;
    ino_t m_inode;
    std::size_t m_depth;
};
} // namespace

ShareWalker::ShareWalker(std::function<void()> i_ready) : m_ready(std::move(i_ready)), m_thread([this] { Run(); }) {}

ShareWalker::~ShareWalker()
{
    {
        std::lock_guard<std::mutex> l_lock(m_mutex);
        m_stop = true;
    }
    m_changed.notify_all();
    m_thread.join();
}

void ShareWalker::Add(std::uint64_t i_job, std::string i_root)
{
    {
        std::lock_guard<std::mutex> l_lock(m_mutex);
        m_jobs.push_back(Job{i_job, std::move(i_root)});
    }
    m_changed.notify_all();
}

void ShareWalker::Cancel(std::uint64_t i_job)
{
    std::lock_guard<std::mutex> l_lock(m_mutex);
    m_cancelled.insert(i_job);
}

bool ShareWalker::IsCancelled(std::uint64_t i_job)
{
    std::lock_guard<std::mutex> l_lock(m_mutex);
    return m_cancelled.count(i_job) > 0;
}

bool ShareWalker::Take(Part& o_part)
{
    {
        std::lock_guard<std::mutex> l_lock(m_mutex);
        if (m_parts.empty())
        {
            m_readerWaiting = true;
            return false;
        }
        o_part = std::move(m_parts.front());
        m_parts.pop_front();
        m_queuedFiles -= o_part.m_files.size() + 1;
    }
    m_changed.notify_all();
    return true;
}

void ShareWalker::Push(Part&& io_part)
{
    bool l_wake = false;
    {
        std::unique_lock<std::mutex> l_lock(m_mutex);
        m_changed.wait(l_lock, [this] { return m_stop || m_queuedFiles < s_maxQueued; });
        if (m_stop)
            return;
        m_queuedFiles += io_part.m_files.size() + 1;
        m_parts.push_back(std::move(io_part));
        l_wake = m_readerWaiting;
        m_readerWaiting = false;
    }
    if (l_wake)
        m_ready();
}

void ShareWalker::Run()
{
    for (;;)
    {
        Job l_job;
        {
            std::unique_lock<std::mutex> l_lock(m_mutex);
            m_changed.wait(l_lock, [this] { return m_stop || !m_jobs.empty(); });
            if (m_stop)
                return;
            l_job = std::move(m_jobs.front());
            m_jobs.pop_front();
        }
        Walk(l_job);
        if (m_stop)
            return;
        Part l_end;
        l_end.m_job = l_job.m_id;
        l_end.m_jobEnd = true;
        Push(std::move(l_end));
        std::lock_guard<std::mutex> l_lock(m_mutex);
        m_cancelled.erase(l_job.m_id);
    }
}

// Depth first, with a stack of its own rather than recursion, so that no depth of folders can
// exhaust the thread's stack. A folder that cannot be opened or listed reads as empty.
void ShareWalker::Walk(Job const& i_job)
{
    std::vector<Pending> l_stack;
    std::vector<Ancestor> l_ancestors;
    {
        struct stat l_stat{};
        bool const l_isFolder = ::stat(i_job.m_root.c_str(), &l_stat) == 0 && S_ISDIR(l_stat.st_mode);
        l_stack.push_back(Pending{i_job.m_root, l_isFolder ? l_stat.st_dev : 0, l_isFolder ? l_stat.st_ino : 0, 0});
    }

    while (!l_stack.empty() && !m_stop)
    {
        Pending const l_folder = std::move(l_stack.back());
        l_stack.pop_back();
        if (IsCancelled(i_job.m_id))
            return;
        l_ancestors.resize(l_folder.m_depth);
        l_ancestors.push_back(Ancestor{l_folder.m_device, l_folder.m_inode, l_folder.m_path});

        Part l_part;
        l_part.m_job = i_job.m_id;
        l_part.m_folder = l_folder.m_path;
        l_part.m_first = true;

        int const l_fd = ::open(l_folder.m_path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        DIR* lp_dir = l_fd >= 0 ? ::fdopendir(l_fd) : nullptr;
        if (!lp_dir && l_fd >= 0)
            ::close(l_fd);
        while (lp_dir && !m_stop)
        {
            dirent const* lp_entry = ::readdir(lp_dir);
            if (!lp_entry)
                break;
            // Hidden entries, and "." and "..", are not part of a share.
            if (lp_entry->d_name[0] == '.')
                continue;
            struct stat l_stat{};
            // Links are followed; a broken one fails here and is skipped.
            if (::fstatat(l_fd, lp_entry->d_name, &l_stat, 0) != 0)
                continue;
            std::string_view const l_name(lp_entry->d_name);
            if (S_ISREG(l_stat.st_mode))
            {
                l_part.m_files.push_back(File{static_cast<std::uint32_t>(l_part.m_names.size()),
                                              static_cast<std::uint32_t>(l_name.size()),
                                              static_cast<std::uint64_t>(l_stat.st_size)});
                l_part.m_names.append(l_name);
                if (l_part.m_files.size() == s_filesPerPart)
                {
                    Push(std::move(l_part));
                    l_part = Part();
                    l_part.m_job = i_job.m_id;
                    l_part.m_folder = l_folder.m_path;
                }
            }
            else if (S_ISDIR(l_stat.st_mode))
            {
                std::string l_path = l_folder.m_path + '/';
                l_path.append(l_name);
                Ancestor const* lp_loop = nullptr;
                for (Ancestor const& l_ancestor : l_ancestors)
                    if (l_ancestor.m_device == l_stat.st_dev && l_ancestor.m_inode == l_stat.st_ino)
                        lp_loop = &l_ancestor;
                if (lp_loop)
                    l_part.m_loops.emplace_back(std::move(l_path), lp_loop->m_path);
                else
                    l_stack.push_back(Pending{std::move(l_path), l_stat.st_dev, l_stat.st_ino, l_folder.m_depth + 1});
            }
        }
        if (lp_dir)
            ::closedir(lp_dir);
        if (m_stop)
            return;
        l_part.m_last = true;
        Push(std::move(l_part));
    }
}
