#include "shares/MessagesFixture.h"

namespace
{
constexpr long long s_threeGiB = 3LL << 30;
using Keys = std::vector<std::string>;

// The folder keys of the share list the user gets.
std::vector<std::string> ListedFolders(SharedFoldersManager& i_shares, char const* i_user)
{
    auto const [l_code, l_body] = SharesTest::Unpacked(Contents(i_shares.GetSharedFilesMessage(i_user)));
    MemStream l_stream = WireBytes{l_body}.Stream();
    FileInfoMap l_map;
    EXPECT_EQ(l_code, 5u);
    EXPECT_EQ(ReadFileInfoMap(l_stream, l_map), ShareListRead::Ok);
    std::vector<std::string> l_keys;
    for (auto const& l_entry : l_map)
        l_keys.push_back(l_entry.first);
    return l_keys;
}
} // namespace

TEST_F(SharesTest, ShareListHoldsSizesFormatsAndEmptyFolders)
{
    Share("/big", "public", {"/big", "/empty"});
    File("/big", "huge.bin", s_threeGiB);
    File("/big", "song.mp3", 4);
    Scanned(File("/big", "scanned.MP3", 5), 128, "cbr");
    Scanned(File("/big", "other.ogg", 6), 96, "vbr");

    auto const [l_code, l_body] = Unpacked(Contents(mp_shares->GetSharedFilesMessage("bob")));
    EXPECT_EQ(l_code, 5u);
    EXPECT_EQ(l_body, WireBytes()
                          .U32(2)
                          .Str("\\big").U32(4)
                          .File("huge.bin", s_threeGiB)
                          .File("other.ogg", 6)
                          .File("scanned.MP3", 5, "mp3", {{0, 128}, {2, 0}})
                          .File("song.mp3", 4, "mp3")
                          .Str("\\empty").U32(0)
                          .U32(0)
                          .m_bytes);
    EXPECT_TRUE(Logged("Shared|1|Shared file list requested by user bob"));
}

TEST_F(SharesTest, AccessDecidesTheListedFolders)
{
    Share("/pub", "public", {"/pub"});
    Share("/list", "userlist", {"/list", "/x/y"});
    Share("/grp", "friends", {"/grp", "/x/y"});
    User("carol").NewItem("unshared");
    InList("erin");
    InList("frank", "friends");

    EXPECT_EQ(ListedFolders(*mp_shares, "carol"), (Keys{}));
    EXPECT_EQ(ListedFolders(*mp_shares, "dave"), (Keys{"\\pub"}));
    EXPECT_EQ(ListedFolders(*mp_shares, "erin"), (Keys{"\\list", "\\pub", "\\x\\y"}));
    EXPECT_EQ(ListedFolders(*mp_shares, "frank"), (Keys{"\\grp", "\\list", "\\pub", "\\x\\y"}));
    EXPECT_FALSE(d.GetType("user")->HasItem(Value("dave")));
}

// The list is built once and kept, but never outlives a change of the share or of its access.
TEST_F(SharesTest, KeptShareListFollowsChanges)
{
    Share("/pub", "public", {"/pub"});
    ItemPtr const l_file = File("/pub", "a.mp3", 1);
    std::string const l_first = Contents(mp_shares->GetSharedFilesMessage("bob"));
    EXPECT_EQ(Contents(mp_shares->GetSharedFilesMessage("bob")), l_first);

    Scanned(l_file, 320, "vbr");
    auto const l_scanned = Unpacked(Contents(mp_shares->GetSharedFilesMessage("bob"))).second;
    EXPECT_NE(l_scanned.find(WireBytes().File("a.mp3", 1, "mp3", {{0, 320}, {2, 1}}).m_bytes), std::string::npos);

    File("/pub", "b.mp3", 2);
    EXPECT_EQ(ListedFolders(*mp_shares, "bob").size(), 1u);
    EXPECT_NE(Unpacked(Contents(mp_shares->GetSharedFilesMessage("bob"))).second.find("b.mp3"), std::string::npos);

    User("bob").NewItem("unshared");
    EXPECT_EQ(ListedFolders(*mp_shares, "bob"), (Keys{}));
    Share("/new", "public", {"/new"});
    EXPECT_EQ(ListedFolders(*mp_shares, "dave"), (Keys{"\\new", "\\pub"}));
}

TEST_F(SharesTest, FolderContentsAnswerOnlyWhoMaySee)
{
    Share("/m", "public", {"/m/a"});
    Scanned(File("/m/a", "x.mp3", s_threeGiB), 320, "vbr");
    User("carol").NewItem("unshared");
    std::size_t const l_folders = d.GetType("shared_file_folder")->ItemCount();

    mp_shares->OnFilesInFoldersRequested("bob", 7, "\\m\\a");
    mp_shares->OnFilesInFoldersRequested("bob", 8, "/m/a");
    mp_shares->OnFilesInFoldersRequested("bob", 9, "\\M\\A");
    mp_shares->OnFilesInFoldersRequested("bob", 10, "\\m\\nothing");
    mp_shares->OnFilesInFoldersRequested("carol", 11, "\\m\\a");

    auto const l_answer = [](std::uint32_t i_req, char const* i_folder)
    {
        return std::pair{37u, WireBytes().U32(i_req).Str(i_folder).U32(1).Str(i_folder).U32(1).File("x.mp3", s_threeGiB).U32(0).m_bytes};
    };
    EXPECT_EQ(Sent("bob"), (std::vector{l_answer(7, "\\m\\a"), l_answer(8, "/m/a")}));
    EXPECT_TRUE(Sent("carol").empty());
    EXPECT_EQ(d.GetType("shared_file_folder")->ItemCount(), l_folders);
}

TEST_F(SharesTest, ReceivedShareReplacesTheOldOne)
{
    auto const l_files = [](ItemPtr i_share)
    {
        Keys l_names;
        for (Item* lp_folder : i_share.GetItems("user_share_folder"))
            for (Item* lp_file : ItemPtr(lp_folder).GetItems("user_share_file"))
                l_names.push_back(ItemPtr(lp_folder).GetItem("user_share_folder_name").AsString() + ":" +
                                  ItemPtr(lp_file).GetItem("user_share_file_name").AsString());
        std::sort(l_names.begin(), l_names.end());
        return l_names;
    };
    AttributeTranslationTable l_table;
    FileInfoMap l_first;
    AttributeMap l_attributes("mp3");
    for (auto [l_code, l_value] : {std::pair{0u, 320u}, {1u, 200u}, {2u, 1u}, {9u, 9u}})
        l_attributes.AddAttribute(l_code, l_value);
    l_first["\\a"].emplace("one.mp3", s_threeGiB, l_attributes);
    l_first["\\a"].emplace("two", 2);
    l_first["\\empty"];
    mp_shares->OnUserShare("bob", l_first, l_table);
    EXPECT_TRUE(Logged("Shared|1|Received shared file list from user bob"));

    ItemPtr const l_share = User("bob").HasItem("user_share");
    ASSERT_TRUE(l_share.HasItem("user_share_loaded"));
    EXPECT_EQ(l_files(l_share), (Keys{"\\a:one.mp3", "\\a:two"}));
    EXPECT_EQ(l_share.GetItems("user_share_folder").size(), 2u);
    ItemPtr const l_one = ItemPtr(d.GetType("user_share_file_name")->HasItem(Value("one.mp3"))).GetItems("user_share_file");
    EXPECT_EQ(l_one.GetItem("user_share_file_size").AsInt64(), s_threeGiB);
    EXPECT_EQ(l_one.GetItem("bitrate").AsInt(), 320);
    EXPECT_EQ(l_one.GetItem("length_seconds").AsInt(), 200);
    EXPECT_EQ(l_one.GetItem("bitrate_mode").AsString(), "vbr");

    FileInfoMap l_second;
    l_second["\\b"].emplace("three", 3);
    l_second["\\b"].emplace("three", 3);
    mp_shares->OnUserShare("bob", l_second, l_table);
    ItemPtr const l_new = User("bob").HasItem("user_share");
    EXPECT_TRUE(l_new.HasItem("user_share_loaded"));
    EXPECT_EQ(l_files(l_new), (Keys{"\\b:three"}));
    for (char const* lp_type : {"user_share", "user_share_folder", "user_share_file", "user_share_folder_name", "user_share_file_name"})
        EXPECT_EQ(d.GetType(lp_type)->ItemCount(), 1u) << lp_type;
    EXPECT_FALSE(d.GetType("user_share_file_size")->HasItem(Value(s_threeGiB)));
    EXPECT_FALSE(d.GetType("bitrate")->HasItem(Value(320)));
}
