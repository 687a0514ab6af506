#include "GeneratedShare.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <tuple>

#include "support/MP3Frames.h"

namespace
{
constexpr int s_filesPerAlbum = 100;
constexpr int s_albumsPerArtist = 10;
constexpr int s_framesPerNewFile = 4;

template <typename T, std::size_t N>
T const& Pick(T const (&i_choices)[N], std::mt19937& io_random)
{
    return i_choices[std::uniform_int_distribution<std::size_t>(0, N - 1)(io_random)];
}

bool ByPath(SavedGraph::ScannedFile const& i_a, SavedGraph::ScannedFile const& i_b)
{
    return std::tie(i_a.m_folder, i_a.m_name) < std::tie(i_b.m_folder, i_b.m_name);
}

bool WriteEmpty(std::string const& i_path)
{
    int const l_fd = ::open(i_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    return l_fd >= 0 && ::close(l_fd) == 0;
}
} // namespace

GeneratedShare::GeneratedShare(std::string i_folder, std::mt19937& io_random)
    : m_folder(std::move(i_folder)), m_random(io_random)
{
}

bool GeneratedShare::Create(int i_files, SavedGraph& io_seed)
{
    static char const* const s_modes[] = {"stereo", "joint stereo", "mono"};
    static char const* const s_rates[] = {"128", "160", "192", "256", "320"};
    static char const* const s_rateModes[] = {"cbr", "vbr"};
    std::error_code l_error;
    for (int l_index = 0; l_index < i_files; ++l_index)
    {
        if (l_index % s_filesPerAlbum == 0)
        {
            int const l_album = l_index / s_filesPerAlbum;
            m_albums.push_back(m_folder + "/Artist " + std::to_string(l_album / s_albumsPerArtist) + "/Album " +
                               std::to_string(l_album));
            if (!std::filesystem::create_directories(m_albums.back(), l_error))
                return false;
        }
        SavedGraph::ScannedFile l_file{m_albums.back(),
                                       "Track " + std::to_string(l_index % s_filesPerAlbum) + " - Title " + std::to_string(l_index) + ".mp3",
                                       "0", "1", Pick(s_modes, m_random), "0", Pick(s_rateModes, m_random), Pick(s_rates, m_random)};
        if (!WriteEmpty(KeyOf(l_file)))
            return false;
        io_seed.AddScannedFile(m_folder, l_file);
        m_previous.push_back(l_file);
        m_onDisk.emplace(KeyOf(l_file), std::move(l_file));
    }
    std::sort(m_previous.begin(), m_previous.end(), ByPath);
    io_seed.ShareFolder(m_folder, SavedGraph::Access::Everyone);
    return true;
}

bool GeneratedShare::Change(int i_remove, int i_add)
{
    for (int l_count = 0; l_count < i_remove && !m_onDisk.empty(); ++l_count)
    {
        auto l_gone = std::next(m_onDisk.begin(), std::uniform_int_distribution<std::ptrdiff_t>(
                                                      0, static_cast<std::ptrdiff_t>(m_onDisk.size()) - 1)(m_random));
        if (::unlink(l_gone->first.c_str()) != 0)
            return false;
        m_onDisk.erase(l_gone);
    }
    static int const s_rates[] = {128, 160, 192, 256, 320};
    for (int l_count = 0; l_count < i_add; ++l_count)
    {
        int const l_rate = Pick(s_rates, m_random);
        std::string l_bytes;
        MP3Frames::Append(l_bytes, MP3Frames::Frame{.m_bitrate = l_rate}, s_framesPerNewFile);
        std::string const& l_album = m_albums[std::uniform_int_distribution<std::size_t>(0, m_albums.size() - 1)(m_random)];
        // The frames are MPEG-1 layer III, joint stereo, at frequency index 0 and one rate.
        SavedGraph::ScannedFile l_file{l_album, "New " + std::to_string(++m_added) + ".mp3", std::to_string(l_bytes.size()),
                                       "1", "joint stereo", "0", "cbr", std::to_string(l_rate)};
        if (!MP3Frames::Save(KeyOf(l_file), l_bytes))
            return false;
        m_onDisk.emplace(KeyOf(l_file), std::move(l_file));
    }
    return true;
}

std::vector<std::string> GeneratedShare::Check(std::vector<SavedGraph::ScannedFile>& io_loaded) const
{
    constexpr std::size_t s_maxLines = 5;
    std::vector<std::string> l_problems;
    auto const l_report = [&](std::string const& i_what, SavedGraph::ScannedFile const& i_file)
    {
        if (l_problems.size() < s_maxLines)
            l_problems.push_back(i_what + ": " + KeyOf(i_file) + " [" + i_file.m_size + " " + i_file.m_mpegVersion + " " +
                                 i_file.m_channelMode + " " + i_file.m_frequency + " " + i_file.m_bitrateMode + " " +
                                 i_file.m_bitrate + "]");
    };
    auto const l_onDisk = [&](SavedGraph::ScannedFile const& i_file) -> SavedGraph::ScannedFile const*
    {
        auto const l_found = m_onDisk.find(KeyOf(i_file));
        return l_found == m_onDisk.end() ? nullptr : &l_found->second;
    };
    std::sort(io_loaded.begin(), io_loaded.end(), ByPath);
    // Both lists in path order, walked side by side.
    auto l_previous = m_previous.begin();
    for (auto l_file = io_loaded.begin(); l_file != io_loaded.end(); ++l_file)
    {
        if (l_file != io_loaded.begin() && !ByPath(*std::prev(l_file), *l_file))
            l_report("held twice", *l_file);
        for (; l_previous != m_previous.end() && ByPath(*l_previous, *l_file); ++l_previous)
            // A file saved before that is still on the disk was found again by the rescan:
            // every save since holds it.
            if (l_onDisk(*l_previous))
                l_report("lost", *l_previous);
        bool l_asBefore = false;
        if (l_previous != m_previous.end() && !ByPath(*l_file, *l_previous))
            l_asBefore = *l_previous++ == *l_file;
        if (l_asBefore)
            continue;
        SavedGraph::ScannedFile const* lp_now = l_onDisk(*l_file);
        if (!lp_now || !(*lp_now == *l_file))
            l_report("neither as before nor as on the disk", *l_file);
    }
    for (; l_previous != m_previous.end(); ++l_previous)
        if (l_onDisk(*l_previous))
            l_report("lost", *l_previous);
    return l_problems;
}

std::pair<int, int> GeneratedShare::Accept(std::vector<SavedGraph::ScannedFile>&& i_loaded)
{
    int l_kept = 0;
    for (auto l_file = i_loaded.begin(), l_previous = m_previous.begin(); l_file != i_loaded.end() && l_previous != m_previous.end();)
    {
        if (ByPath(*l_file, *l_previous))
            ++l_file;
        else if (ByPath(*l_previous, *l_file))
            ++l_previous;
        else
        {
            ++l_kept;
            ++l_file;
            ++l_previous;
        }
    }
    std::pair<int, int> const l_changes(static_cast<int>(i_loaded.size()) - l_kept, static_cast<int>(m_previous.size()) - l_kept);
    m_previous = std::move(i_loaded);
    return l_changes;
}

std::vector<SavedGraph::ScannedFile> GeneratedShare::OnDisk() const
{
    std::vector<SavedGraph::ScannedFile> l_files;
    for (auto const& l_entry : m_onDisk)
        l_files.push_back(l_entry.second);
    return l_files;
}
