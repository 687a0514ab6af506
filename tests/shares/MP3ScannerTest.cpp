#include <gtest/gtest.h>

#include <QTemporaryDir>

#include <sys/stat.h>

#include <optional>
#include <random>
#include <string>
#include <tuple>

#include "shares/MP3Scanner.h"
#include "support/MP3Frames.h"

using MP3Frames::Frame;

namespace
{
// Version, channel mode, frequency index, variable, bit rate.
using Reading = std::tuple<int, std::string, int, bool, int>;

class MP3ScannerTest : public ::testing::Test
{
protected:
    std::optional<Reading> ScanPath(std::string const& i_path)
    {
        int l_version = 0, l_frequency = 0, l_bitrate = 0;
        std::string l_mode;
        bool l_isVBR = false;
        if (!m_scanner.ScanMP3(i_path, l_version, l_mode, l_frequency, l_isVBR, l_bitrate))
            return std::nullopt;
        return Reading(l_version, l_mode, l_frequency, l_isVBR, l_bitrate);
    }
    std::optional<Reading> Scan(std::string const& i_bytes)
    {
        std::string const l_path = m_root + "/file.mp3";
        EXPECT_TRUE(MP3Frames::Save(l_path, i_bytes));
        return ScanPath(l_path);
    }
    static std::string Frames(Frame const& i_frame, int i_count)
    {
        std::string l_bytes;
        MP3Frames::Append(l_bytes, i_frame, i_count);
        return l_bytes;
    }

    QTemporaryDir m_dir;
    std::string const m_root = m_dir.path().toStdString();
    MP3Scanner m_scanner;
};
} // namespace

TEST_F(MP3ScannerTest, ConstantVariableAndEveryChannelMode)
{
    EXPECT_EQ(Scan(Frames(Frame{}, 1000)), Reading(1, "joint stereo", 0, false, 128));

    // 300 at 128, 300 at 160 and 400 at 192: an average of 163.2, rounded down.
    std::string l_variable = Frames(Frame{.m_bitrate = 128}, 300);
    l_variable += Frames(Frame{.m_bitrate = 160}, 300);
    l_variable += Frames(Frame{.m_bitrate = 192}, 400);
    EXPECT_EQ(Scan(l_variable), Reading(1, "joint stereo", 0, true, 163));

    char const* const l_modes[] = {"stereo", "joint stereo", "dual mono", "mono"};
    for (int l_mode = 0; l_mode < 4; ++l_mode)
        EXPECT_EQ(Scan(Frames(Frame{.m_bitrate = 320, .m_frequency = 2, .m_channelMode = l_mode}, 50)),
                  Reading(1, l_modes[l_mode], 2, false, 320));
}

TEST_F(MP3ScannerTest, VersionTwoUsesTheLowFrequencyTableAndOtherVersionsAndLayersGiveNothing)
{
    // Index 8 is 64 kbit/s at the low frequencies and 112 in MPEG-1; the frequency is the
    // index, not 24,000 Hz.
    EXPECT_EQ(Scan(Frames(Frame{.m_version = 2, .m_bitrate = 64, .m_frequency = 1, .m_channelMode = 3}, 300)),
              Reading(2, "mono", 1, false, 64));
    EXPECT_EQ(Scan(Frames(Frame{.m_version = 25, .m_bitrate = 64}, 300)), std::nullopt);
    EXPECT_EQ(Scan(Frames(Frame{.m_layer = 2}, 300)), std::nullopt);

    // Layer II frames of version 1 win the version vote before their layer rejects them, so
    // the Layer III frames of version 2 match no winner.
    std::string l_mixed = Frames(Frame{.m_layer = 2}, 600);
    l_mixed += Frames(Frame{.m_version = 2, .m_bitrate = 64}, 400);
    EXPECT_EQ(Scan(l_mixed), std::nullopt);

    // Equal counts of versions 1 and 2 go to 2.
    std::string l_tie = Frames(Frame{.m_bitrate = 128}, 200);
    l_tie += Frames(Frame{.m_version = 2, .m_bitrate = 64}, 200);
    EXPECT_EQ(Scan(l_tie), Reading(2, "joint stereo", 0, false, 64));
}

TEST_F(MP3ScannerTest, NinetyNinePercentIsConstant)
{
    auto const l_file = [](int i_at128)
    {
        std::string l_bytes = Frames(Frame{.m_bitrate = 128}, i_at128);
        l_bytes += Frames(Frame{.m_bitrate = 320}, 1000 - i_at128);
        return l_bytes;
    };
    EXPECT_EQ(Scan(l_file(990)), Reading(1, "joint stereo", 0, false, 128));
    // (989 * 128 + 11 * 320) / 1000 = 130.112
    EXPECT_EQ(Scan(l_file(989)), Reading(1, "joint stereo", 0, true, 130));
}

TEST_F(MP3ScannerTest, TiesGoToTheHigherIndexAndOnlyCandidatesMatchingEveryWinnerCount)
{
    std::string l_modes = Frames(Frame{.m_bitrate = 128, .m_channelMode = 0}, 500);
    l_modes += Frames(Frame{.m_bitrate = 192, .m_channelMode = 1}, 500);
    EXPECT_EQ(Scan(l_modes), Reading(1, "joint stereo", 0, false, 192));

    std::string l_frequencies = Frames(Frame{.m_bitrate = 128, .m_frequency = 0}, 500);
    l_frequencies += Frames(Frame{.m_bitrate = 160, .m_frequency = 1}, 500);
    EXPECT_EQ(Scan(l_frequencies), Reading(1, "joint stereo", 1, false, 160));

    // The protection bit takes part in the match, though it is no output.
    std::string l_protection = Frames(Frame{.m_bitrate = 128, .m_protectionBit = false}, 600);
    l_protection += Frames(Frame{.m_bitrate = 192, .m_protectionBit = true}, 400);
    EXPECT_EQ(Scan(l_protection), Reading(1, "joint stereo", 0, false, 128));

    // Free-format and bad bit rate indexes still vote for their channel mode before they are
    // turned away, so mono wins with no candidate left to give a rate.
    std::string l_rejected = Frames(Frame{.m_bitrateIndex = 0, .m_channelMode = 3}, 300);
    l_rejected += Frames(Frame{.m_bitrateIndex = 15, .m_channelMode = 3}, 300);
    l_rejected += Frames(Frame{.m_channelMode = 1}, 500);
    EXPECT_EQ(Scan(l_rejected), std::nullopt);
}

TEST_F(MP3ScannerTest, StrayBytesGarbageAndTruncationDoNotChangeTheReading)
{
    std::mt19937 l_random(11);
    std::string l_bytes;
    for (int l_byte = 0; l_byte < 20000; ++l_byte)
        l_bytes += static_cast<char>(l_random() & 0xFF);
    // Stray sync patterns of every kind before the first frame.
    for (char const* lp_stray : {"\xFF\xFF\xFF\xFF", "\xFF\xE2\x00\x00", "\xFF\xF3\x90\x00", "\xFF\xFB\xF0\xC0", "\xFF\xFB\x9C\x00"})
        l_bytes.append(lp_stray, 4);
    MP3Frames::Append(l_bytes, Frame{.m_bitrate = 128}, 1000, &l_random);
    l_bytes += MP3Frames::Header(Frame{.m_bitrate = 128}).substr(0, 3); // a last frame cut short
    EXPECT_EQ(Scan(l_bytes), Reading(1, "joint stereo", 0, false, 128));

    // One header over and over, a candidate every four bytes.
    std::string l_repeated;
    for (int l_copy = 0; l_copy < 100000; ++l_copy)
        l_repeated += MP3Frames::Header(Frame{.m_bitrate = 192, .m_channelMode = 0});
    EXPECT_EQ(Scan(l_repeated), Reading(1, "stereo", 0, false, 192));
}

TEST_F(MP3ScannerTest, FilesWithoutFramesOrThatCannotBeReadGiveNothing)
{
    EXPECT_EQ(Scan(""), std::nullopt);
    EXPECT_EQ(Scan("Just some text, nothing like a frame header.\n"), std::nullopt);
    EXPECT_EQ(Scan(std::string(300000, '\0')), std::nullopt);
    EXPECT_EQ(Scan(std::string(300000, '\xFF')), std::nullopt);
    EXPECT_EQ(ScanPath(m_root + "/missing.mp3"), std::nullopt);

    std::string const l_folder = m_root + "/folder.mp3";
    ASSERT_EQ(::mkdir(l_folder.c_str(), 0700), 0);
    EXPECT_EQ(ScanPath(l_folder), std::nullopt);
    // Opening a FIFO for reading would wait for a writer: it is turned away at once.
    std::string const l_fifo = m_root + "/fifo.mp3";
    ASSERT_EQ(::mkfifo(l_fifo.c_str(), 0600), 0);
    EXPECT_EQ(ScanPath(l_fifo), std::nullopt);
}

TEST_F(MP3ScannerTest, HeadersAreSeenOnlyWithinOneChunk)
{
    std::string const l_header = MP3Frames::Header(Frame{.m_bitrate = 256});
    auto const l_headerAt = [&](std::size_t i_at)
    {
        std::string l_bytes(2 * MP3Scanner::s_chunkSize, '\0');
        l_bytes.replace(i_at, 4, l_header);
        return l_bytes;
    };
    Reading const l_found(1, "joint stereo", 0, false, 256);
    EXPECT_EQ(Scan(l_headerAt(65528)), l_found);
    // The last four bytes of the first chunk: too near its end to be looked at.
    EXPECT_EQ(Scan(l_headerAt(65532)), std::nullopt);
    EXPECT_EQ(Scan(l_headerAt(65534)), std::nullopt) << "across the border";
    EXPECT_EQ(Scan(l_headerAt(65536)), l_found);

    // A candidate near the end ends its chunk, and the scan goes on with the next one.
    std::string l_bytes = l_headerAt(65536);
    l_bytes.replace(65532, 4, MP3Frames::Header(Frame{.m_bitrate = 32}));
    EXPECT_EQ(Scan(l_bytes), l_found);
}
