#include "GeneratedShare.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <iterator>

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
        io_seed.AddScannedFile(l_file);
        m_previous.emplace(KeyOf(l_file), l_file);
        m_onDisk.emplace(KeyOf(l_file), std::move(l_file));
    }
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

std::vector<std::string> GeneratedShare::Check(std::vector<SavedGraph::ScannedFile> const& i_loaded) const
{
    constexpr std::size_t s_maxLines = 5;
    std::vector<std::string> l_problems;
    auto const l_report = [&](std::string const& i_what, SavedGraph::ScannedFile const& i_file)
    {
        if (l_problems.size() < s_maxLines)
            l_problems.push_back(i_what + ": " + KeyOf(i_file) + " [" + i_file.m_size + " " +
                                 i_file.m_mpegVersion + " " + i_file.m_channelMode + " " + i_file.m_frequency + " " +
                                 i_file.m_bitrateMode + " " + i_file.m_bitrate + "]");
    };
    std::unordered_map<std::string, SavedGraph::ScannedFile const*> l_loaded;
    l_loaded.reserve(i_loaded.size());
    for (SavedGraph::ScannedFile const& l_file : i_loaded)
        if (!l_loaded.emplace(KeyOf(l_file), &l_file).second)
            l_report("held twice", l_file);
    for (auto const& [l_key, l_file] : l_loaded)
    {
        auto const l_previous = m_previous.find(l_key);
        auto const l_now = m_onDisk.find(l_key);
        bool const l_asBefore = l_previous != m_previous.end() && l_previous->second == *l_file;
        bool const l_asNow = l_now != m_onDisk.end() && l_now->second == *l_file;
        if (!l_asBefore && !l_asNow)
            l_report("neither as before nor as on the disk", *l_file);
    }
    // A file saved before that is still on the disk was found again by the rescan: every save
    // since holds it.
    for (auto const& [l_key, l_file] : m_previous)
        if (m_onDisk.count(l_key) && !l_loaded.count(l_key))
            l_report("lost", l_file);
    return l_problems;
}

std::pair<int, int> GeneratedShare::Accept(std::vector<SavedGraph::ScannedFile> const& i_loaded)
{
    Files l_next;
    l_next.reserve(i_loaded.size());
    int l_new = 0;
    for (SavedGraph::ScannedFile const& l_file : i_loaded)
    {
        std::string l_key = KeyOf(l_file);
        l_new += m_previous.count(l_key) == 0;
        l_next.emplace(std::move(l_key), l_file);
    }
    int const l_gone = static_cast<int>(m_previous.size()) - (static_cast<int>(l_next.size()) - l_new);
    m_previous.swap(l_next);
    return {l_new, l_gone};
}
