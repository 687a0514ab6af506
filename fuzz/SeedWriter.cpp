// Writes the seed inputs of every fuzz target, made by the client's own writers and record
// types, into <folder>/<target>/: one file a seed. Run at build time; nothing is checked in.

#include <QByteArray>
#include <QDir>
#include <QFile>

#include <cstdio>
#include <initializer_list>
#include <map>
#include <string>
#include <vector>

#include "DNetSource.h"
#include "FuzzRig.h"
#include "PeerBody.h"
#include "peer/Compression.h"
#include "peer/FileInfo.h"
#include "peer/PeerMessageCode.h"
#include "peer/ShareList.h"
#include "peer/SharedFolderInfo.h"
#include "server/ServerMessageCode.h"
#include "server/TCPAddress.h"
#include "server/UserStats.h"
#include "store/Data.h"
#include "store/DataSaver.h"
#include "store/Settings.h"
#include "stream/MemStream.h"

namespace
{
// A message body written field by field.
class Body
{
public:
    Body& U8(std::uint8_t i_value) { return Put(i_value); }
    Body& U32(std::uint32_t i_value) { return Put(i_value); }
    Body& I32(std::int32_t i_value) { return Put(i_value); }
    Body& U64(std::uint64_t i_value) { return Put(i_value); }
    Body& Str(std::string const& i_text) { return Put(i_text); }
    Body& Strs(std::initializer_list<std::string> i_texts)
    {
        U32(static_cast<std::uint32_t>(i_texts.size()));
        for (std::string const& l_text : i_texts)
            Str(l_text);
        return *this;
    }
    Body& I32s(std::initializer_list<std::int32_t> i_values)
    {
        U32(static_cast<std::uint32_t>(i_values.size()));
        for (std::int32_t l_value : i_values)
            I32(l_value);
        return *this;
    }
    Body& Record(StreamWritable const& i_record) { return Put(i_record); }
    Body& Raw(QByteArray const& i_bytes)
    {
        m_stream.WriteBuffer(i_bytes.constData(), static_cast<unsigned long>(i_bytes.size()));
        return *this;
    }
    // The rest of the body as one compressed stream, as bulk peer messages carry it.
    Body& Compressed(QByteArray const& i_body)
    {
        AppendCompressed(m_stream, i_body.constData(), static_cast<std::size_t>(i_body.size()));
        return *this;
    }
    QByteArray Bytes() const { return QByteArray(m_stream.GetReadBuffer(), m_stream.GetPendingReadLength()); }
    QByteArray Frame() const { return FuzzRig::Frame(Bytes()); }

private:
    template <class T>
    Body& Put(T const& i_value)
    {
        m_stream.Write(i_value);
        return *this;
    }
    MemStream m_stream;
};

Body Code(std::uint32_t i_code)
{
    return std::move(Body().U32(i_code));
}

class SeedFolder
{
public:
    SeedFolder(QString const& i_root, char const* i_target) : m_dir(i_root + QLatin1Char('/') + QLatin1String(i_target))
    {
        m_dir.removeRecursively();
        QDir().mkpath(m_dir.path());
    }
    void Add(QByteArray const& i_bytes)
    {
        QFile l_file(m_dir.filePath(QStringLiteral("seed-%1").arg(++m_count, 3, 10, QLatin1Char('0'))));
        if (!l_file.open(QIODevice::WriteOnly) || l_file.write(i_bytes) != i_bytes.size())
        {
            std::fprintf(stderr, "Cannot write %s\n", qPrintable(l_file.fileName()));
            std::exit(1);
        }
    }

private:
    QDir m_dir;
    int m_count = 0;
};

UserStats Stats()
{
    UserStats l_stats;
    l_stats.m_averageSpeed = 2048;
    l_stats.m_count = 3;
    l_stats.m_sharedFiles = 120;
    l_stats.m_furtherCount = 1;
    return l_stats;
}

TCPAddress const g_address(0x0100007f, 2235);

std::vector<QByteArray> ServerSeeds()
{
    using namespace ServerCode;
    return {
        Code(Login).U8(1).Str("welcome").U32(0x0100007f).Str("").Frame(),
        Code(Login).U8(0).Str("INVALIDPASS").Frame(),
        Code(UserAddress).Str("peer").Record(g_address).Frame(),
        Code(AddUser).Str("peer").U8(1).I32(2).Record(Stats()).Str("NL").Frame(),
        Code(AddUser).Str("ghost").U8(0).Frame(),
        Code(UserStatus).Str("peer").I32(1).U8(1).Frame(),
        Code(RoomChat).Str("lobby").Str("peer").Str("hello there").Frame(),
        Code(EnterRoom).Str("lobby").Strs({"peer", "other"}).I32s({1, 1}).U32(2).Record(Stats()).Record(Stats())
            .I32s({0, 0}).Strs({"NL", "DE"}).Str("peer").Strs({"other"}).Frame(),
        Code(LeaveRoom).Str("lobby").Frame(),
        Code(UserJoinedRoom).Str("lobby").Str("peer").U32(1).Record(Stats()).U32(0).Str("FR").Frame(),
        Code(UserLeftRoom).Str("lobby").Str("peer").Frame(),
        Code(ConnectToPeer).Str("peer").Str("P").Record(g_address).U32(77).U8(1).Frame(),
        Code(ConnectToPeer).Str("peer").Str("F").Record(g_address).U32(78).Frame(),
        Code(PrivateChat).U32(5).U32(1700000000).Str("peer").Str("psst").U8(1).Frame(),
        Code(ServerCode::UserStats).Str("peer").Record(Stats()).Frame(),
        Code(RoomList).Strs({"lobby", "music"}).I32s({3, 9}).Strs({"mine"}).I32s({1}).Strs({}).I32s({}).Frame(),
        Code(PrivilegedUsers).Strs({"peer", "vip"}).Frame(),
        Code(DNetPossibleParents).U32(2).Str("peer").Record(g_address).Str("other").Record(g_address).Frame(),
        Code(DNetMessage).U8(3).U32(49).Str("peer").U32(9).Str("music b").Frame(),
        Code(DNetReset).Frame(),
        Code(DNetParentMinSpeed).U32(1).Frame(),
        Code(DNetParentSpeedConnectionRatio).U32(50).Frame(),
        Code(WishListWait).U32(720).Frame(),
        Code(DNetDeliveryReport).U32(3).Frame(),
        Code(CantConnectToPeer).U32(1).Str("peer").Frame(),
        Code(UserStatus).Str("peer").I32(0).Frame() + Code(UserStatus).Str("peer").I32(2).Frame(),
    };
}

QByteArray Greeting(char const* i_user, char const* i_type)
{
    return Body().U8(1).Str(i_user).Str(i_type).U32(0).Frame();
}

std::vector<QByteArray> FirstFrameSeeds()
{
    return {
        Greeting("peer", "P"),
        Greeting("peer", "P") + Code(PeerCode::GetSharedFileList).Frame(),
        Greeting("peer", "F") + Body().U32(12).Bytes(),
        Greeting("peer", "D") + Body().U8(4).I32(1).Frame(),
        Greeting("peer", "X"),
        Body().U8(0).U32(1).Frame(),
        Body().U8(1).Frame(),
    };
}

FileInfoMap Share()
{
    AttributeMap l_mp3(QByteArray("mp3").toStdString());
    l_mp3.AddAttribute(0, 320);
    l_mp3.AddAttribute(1, 215);
    return {{"music\\b", {FileInfo("music\\b\\a.mp3", 5, l_mp3), FileInfo("music\\b\\Bye.txt", 7)}},
            {"music\\live", {FileInfo("music\\live\\Hall.flac", 8000000)}}};
}

QByteArray ShareListBodyBytes()
{
    return QByteArray::fromStdString(ShareListBody(Share()));
}

QByteArray SearchResultBody(std::uint32_t i_ticket)
{
    AttributeMap l_mp3(QByteArray("mp3").toStdString());
    l_mp3.AddAttribute(0, 192);
    return Body().Str(FuzzRig::s_peer).U32(i_ticket).U32(2).Record(FileInfo("music\\b\\a.mp3", 5, l_mp3))
        .Record(FileInfo("music\\b\\Bye.txt", 7)).U8(1).U32(4000).U32(0).Bytes();
}

QByteArray FolderBody()
{
    return Body().Record(SharedFolderInfo({FileInfo("a.mp3", 5), FileInfo("b.mp3", 6)})).Bytes();
}

std::vector<QByteArray> MessageSeeds()
{
    using namespace PeerCode;
    MemStream const l_list = ShareListMessage(Share());
    QByteArray const l_listFrame = FuzzRig::Frame(QByteArray(l_list.GetReadBuffer(), l_list.GetPendingReadLength()));
    return {
        Code(GetSharedFileList).Frame(),
        l_listFrame,
        Code(FileSearchResult).Compressed(SearchResultBody(FuzzRig::s_searchTicket)).Frame(),
        Code(FileSearchResult).Compressed(SearchResultBody(99)).Frame(),
        Code(GetSharedFilesInFolder).U32(3).Str("music\\b").Frame(),
        Code(SharedFilesInFolder).Compressed(FolderBody()).Frame(),
        Code(TransferRequest).U32(1).U32(4).Str("music\\b\\a.mp3").U64(5).Frame(),
        Code(TransferRequest).U32(0).U32(5).Str("music\\b\\a.mp3").Frame(),
        Code(TransferResponse).U32(4).U8(1).U64(5).Frame(),
        Code(TransferResponse).U32(4).U8(0).Str("Queued").Frame(),
        Code(QueueUpload).Str("music\\b\\a.mp3").Frame(),
        Code(UploadPlaceInLine).Str("music\\b\\a.mp3").U32(3).Frame(),
        Code(UploadFailed).Str("music\\b\\a.mp3").Frame(),
        Code(UploadDenied).Str("music\\b\\a.mp3").Str("Banned").Frame(),
        Code(Say).Str("hi").Frame() + Code(Nothing).Frame() + Code(GetSharedFileList).Frame(),
    };
}

std::vector<QByteArray> BodySeeds()
{
    return {
        QByteArray(1, char(PeerBody::ShareList)) + ShareListBodyBytes(),
        QByteArray(1, char(PeerBody::FolderContents)) + FolderBody(),
        QByteArray(1, char(PeerBody::SearchResult)) + SearchResultBody(FuzzRig::s_searchTicket),
    };
}

std::vector<QByteArray> DNetSeeds()
{
    QByteArray const l_level = Body().U8(4).I32(2).Bytes();
    QByteArray const l_leader = Body().U8(5).Str("leader").Bytes();
    QByteArray const l_search = Body().U8(3).U32(49).Str("seeker").U32(11).Str("music b").Bytes();
    auto const l_from = [](unsigned char i_source, QByteArray const& i_bytes) { return QByteArray(1, char(i_source)) + i_bytes; };
    return {
        l_from(DNetSource::Server, l_level),
        l_from(DNetSource::Server, l_leader),
        l_from(DNetSource::Server, l_search),
        l_from(DNetSource::Candidate, FuzzRig::Frame(l_level) + FuzzRig::Frame(l_leader) + FuzzRig::Frame(l_search)),
        l_from(DNetSource::Candidate, FuzzRig::Frame(l_search) + FuzzRig::Frame(l_search)),
        l_from(DNetSource::Child, FuzzRig::Frame(l_level) + FuzzRig::Frame(Body().U8(7).U32(1).Bytes())),
    };
}

std::vector<QByteArray> SearchSeeds()
{
    return {"music b", "music -b", "b *by", "b -\"y.\"", "\"live at\" hall", "readme", "mp3 -*x", "MUSIC\tB"};
}

// The data file of a graph with the settings, a room to join, a user in the list and a share.
std::vector<QByteArray> DataFileSeeds()
{
    std::vector<QByteArray> l_seeds;
    l_seeds.push_back(QByteArray::fromStdString(dataSaver->BuildFile(&d)));
    SetGlobal("download_folder", "/tmp/downloads");
    ItemPtr const l_room = d.GetType("room")->GetItem(Value("lobby"));
    l_room += d.GetType("room_autojoin")->GetGlobalNullItem();
    ItemPtr const l_user = d.GetType("user")->GetItem(Value("friend"));
    l_user += d.GetType("in_user_list")->GetGlobalNullItem();
    {
        FuzzRig const l_rig; // with the download every rig queues
        l_seeds.push_back(QByteArray::fromStdString(dataSaver->BuildFile(&d)));
    }
    l_seeds.push_back(QByteArray(4, '\0'));
    return l_seeds;
}
// MPEG audio frames as an encoder lays them out: a four-byte header, then zero bytes to the
// frame's length. Each entry is (third header byte, frame length) for MPEG-1 or MPEG-2 layer III.
QByteArray Frames(char i_versionByte, std::initializer_list<std::pair<unsigned char, int>> i_pattern, int i_count,
                  unsigned char i_modeByte)
{
    QByteArray l_bytes;
    for (int l_index = 0; l_index < i_count; ++l_index)
        for (auto const& [l_rateByte, l_length] : i_pattern)
        {
            QByteArray l_frame(l_length, '\0');
            l_frame[0] = char(0xff);
            l_frame[1] = i_versionByte;
            l_frame[2] = char(l_rateByte);
            l_frame[3] = char(i_modeByte);
            l_bytes += l_frame;
        }
    return l_bytes;
}

std::vector<QByteArray> MP3Seeds()
{
    constexpr char s_mpeg1 = char(0xfb), s_mpeg2 = char(0xf3);
    // 128 kbit/s at 44.1 kHz is 417 bytes a frame, 192 is 626, 64 is 208; MPEG-2 64 at 22.05 kHz is 208.
    QByteArray const l_tag = QByteArray("ID3\x03\x00\x00\x00\x00\x00\x0a", 10) + QByteArray(10, '\0');
    return {
        Frames(s_mpeg1, {{0x90, 417}}, 200, 0x44), // past the first 64 KiB chunk
        Frames(s_mpeg1, {{0x90, 417}, {0xb0, 626}, {0x50, 208}}, 3, 0x00),
        l_tag + Frames(s_mpeg2, {{0x80, 208}}, 6, 0xc0),
        QByteArray("not an mp3 at all"),
    };
}
} // namespace

int main(int i_argc, char** ip_argv)
{
    if (i_argc != 2)
    {
        std::fprintf(stderr, "usage: %s FOLDER\n", ip_argv[0]);
        return 2;
    }
    FuzzRig::Init();
    QString const l_root = QString::fromLocal8Bit(ip_argv[1]);
    std::map<char const*, std::vector<QByteArray>> const l_targets = {
        {"server_link", ServerSeeds()},     {"peer_first_frame", FirstFrameSeeds()},
        {"peer_message", MessageSeeds()},   {"peer_body", BodySeeds()},
        {"dnet", DNetSeeds()},              {"search", SearchSeeds()},
        {"data_file", DataFileSeeds()},     {"mp3_scan", MP3Seeds()},
    };
    for (auto const& [lp_target, l_seeds] : l_targets)
    {
        SeedFolder l_folder(l_root, lp_target);
        for (QByteArray const& l_seed : l_seeds)
            l_folder.Add(l_seed);
    }
    return 0;
}
