#include "shares/MessagesFixture.h"

namespace
{
constexpr long long s_threeGiB = 3LL << 30;
using Keys = std::vector<std::string>;

// The folder keys of a share list.
Keys ListedFolders(MemStream const& i_message)
{
    std::string const l_message = SharesTest::Unpacked(i_message);
    MemStream l_body = WireBytes{l_message.substr(4)}.Stream();
    FileInfoMap l_map;
    EXPECT_EQ(l_message.substr(0, 4), WireBytes().U32(5).m_bytes);
    EXPECT_EQ(ReadFileInfoMap(l_body, l_map), ShareListRead::Ok);
    Keys l_keys;
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

    EXPECT_EQ(Unpacked(mp_shares->GetSharedFilesMessage("bob")),
              WireBytes().U32(5).U32(2).Str("\\big").U32(4)
                  .File("huge.bin", s_threeGiB).File("other.ogg", 6)
                  .File("scanned.MP3", 5, "mp3", {{0, 128}, {2, 0}}).File("song.mp3", 4, "mp3")
                  .Str("\\empty").U32(0).U32(0).m_bytes);
    EXPECT_TRUE(Logged("Shared|1|Shared file list requested by user bob"));
}

TEST_F(SharesTest, AccessDecidesTheListedFolders)
{
    Share("/pub", "public", {"/pub"});
    Share("/list", "userlist", {"/list", "/x/y"});
    Share("/grp", "friends", {"/grp", "/x/y"});
    User("carol").NewItem("unshared");
    User("erin").NewItem("in_user_list");
    User("frank").NewItem("in_user_list") += d.GetType("user_list_group")->GetItem(Value("friends"));

    EXPECT_EQ(ListedFolders(mp_shares->GetSharedFilesMessage("carol")), (Keys{}));
    EXPECT_EQ(ListedFolders(mp_shares->GetSharedFilesMessage("dave")), (Keys{"\\pub"}));
    EXPECT_EQ(ListedFolders(mp_shares->GetSharedFilesMessage("erin")), (Keys{"\\list", "\\pub", "\\x\\y"}));
    EXPECT_EQ(ListedFolders(mp_shares->GetSharedFilesMessage("frank")), (Keys{"\\grp", "\\list", "\\pub", "\\x\\y"}));
    EXPECT_FALSE(d.GetType("user")->HasItem(Value("dave")));
}

// The list is built once and kept, but never outlives a change of the share or of its access.
TEST_F(SharesTest, KeptShareListFollowsChanges)
{
    Share("/pub", "public", {"/pub"});
    ItemPtr const l_file = File("/pub", "a.mp3", 1);
    std::string const l_first = Unpacked(mp_shares->GetSharedFilesMessage("bob"));
    EXPECT_EQ(Unpacked(mp_shares->GetSharedFilesMessage("bob")), l_first);
    Scanned(l_file, 320, "vbr");
    EXPECT_NE(Unpacked(mp_shares->GetSharedFilesMessage("bob")).find(WireBytes().File("a.mp3", 1, "mp3", {{0, 320}, {2, 1}}).m_bytes),
              std::string::npos);
    File("/pub", "b.mp3", 2);
    EXPECT_NE(Unpacked(mp_shares->GetSharedFilesMessage("bob")).find("b.mp3"), std::string::npos);

    User("bob").NewItem("unshared");
    EXPECT_EQ(ListedFolders(mp_shares->GetSharedFilesMessage("bob")), (Keys{}));
    Share("/new", "public", {"/new"});
    EXPECT_EQ(ListedFolders(mp_shares->GetSharedFilesMessage("dave")), (Keys{"\\new", "\\pub"}));
}

// A peer's request is compressed away from the window and answered from a later turn, with
// the same list as one composed at once; a list of a share that changed meanwhile answers
// those who asked but is not kept.
TEST_F(SharesTest, RequestedListsAreComposedAwayAndAnsweredLater)
{
    Share("/pub", "public", {"/pub"});
    File("/pub", "a.mp3", 1);
    std::vector<std::string> l_answers;
    auto const l_reply = [&](MemStream const& i_list) { l_answers.push_back(Unpacked(i_list)); };
    mp_shares->AnswerShareListRequest("bob", l_reply);
    mp_shares->AnswerShareListRequest("dave", l_reply);
    EXPECT_TRUE(l_answers.empty());
    ASSERT_TRUE(WaitFor([&] { return l_answers.size() == 2; }));
    EXPECT_EQ(l_answers[1], l_answers[0]);
    EXPECT_EQ(l_answers[0], Unpacked(mp_shares->GetSharedFilesMessage("bob")));
    mp_shares->AnswerShareListRequest("bob", l_reply);
    EXPECT_EQ(l_answers.size(), 3u) << "kept, so answered at once";

    File("/pub", "b.mp3", 2);
    mp_shares->AnswerShareListRequest("bob", l_reply);
    File("/pub", "c.mp3", 3);
    ASSERT_TRUE(WaitFor([&] { return l_answers.size() == 4; }));
    EXPECT_NE(l_answers[3].find("b.mp3"), std::string::npos);
    EXPECT_EQ(l_answers[3].find("c.mp3"), std::string::npos);
    mp_shares->AnswerShareListRequest("bob", l_reply);
    EXPECT_EQ(l_answers.size(), 4u);
    ASSERT_TRUE(WaitFor([&] { return l_answers.size() == 5; }));
    EXPECT_NE(l_answers[4].find("c.mp3"), std::string::npos);
    // Left under way: the manager goes with a list being compressed.
    File("/pub", "d.mp3", 4);
    mp_shares->AnswerShareListRequest("bob", l_reply);
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
    { return WireBytes().U32(37).U32(i_req).Str(i_folder).U32(1).Str(i_folder).U32(1).File("x.mp3", s_threeGiB).U32(0).m_bytes; };
    EXPECT_EQ(Sent("bob"), (Keys{l_answer(7, "\\m\\a"), l_answer(8, "/m/a")}));
    EXPECT_TRUE(Sent("carol").empty());
    EXPECT_EQ(d.GetType("shared_file_folder")->ItemCount(), l_folders);
}

TEST_F(SharesTest, ReceivedShareReplacesTheOldOne)
{
    auto const l_counts = []
    {
        std::vector<std::size_t> l_counts;
        for (char const* lp_type : {"user_share", "user_share_folder", "user_share_folder_name", "user_share_file", "user_share_file_name"})
            l_counts.push_back(d.GetType(lp_type)->ItemCount());
        return l_counts;
    };
    AttributeTranslationTable l_table;
    AttributeMap l_attributes("mp3");
    for (auto [l_code, l_value] : {std::pair{0u, 320u}, {1u, 200u}, {2u, 1u}, {9u, 9u}})
        l_attributes.AddAttribute(l_code, l_value);
    FileInfoMap l_first{{"\\a", {FileInfo("one.mp3", s_threeGiB, l_attributes), FileInfo("two", 2)}}, {"\\empty", {}}};
    mp_shares->OnUserShare("bob", l_first, l_table);
    EXPECT_TRUE(Logged("Shared|1|Received shared file list from user bob"));
    EXPECT_TRUE(User("bob")["user_share"]["user_share_loaded"]);
    EXPECT_EQ(l_counts(), (std::vector<std::size_t>{1, 2, 2, 2, 2}));
    ItemPtr const l_one = ItemPtr(d.GetType("user_share_file_name")->HasItem(Value("one.mp3"))).GetItems("user_share_file");
    EXPECT_EQ(l_one["user_share_folder"]["user_share_folder_name"].AsString(), "\\a");
    EXPECT_EQ(l_one["user_share_file_size"].AsInt64(), s_threeGiB);
    EXPECT_EQ(l_one["bitrate"].AsInt(), 320);
    EXPECT_EQ(l_one["length_seconds"].AsInt(), 200);
    EXPECT_EQ(l_one["bitrate_mode"].AsString(), "vbr");

    // Nothing of the old list stays, not even its names, sizes and values.
    FileInfoMap l_second{{"\\b", {FileInfo("three", 3), FileInfo("three", 3)}}};
    mp_shares->OnUserShare("bob", l_second, l_table);
    EXPECT_TRUE(User("bob")["user_share"]["user_share_loaded"]);
    EXPECT_EQ(l_counts(), (std::vector<std::size_t>{1, 1, 1, 1, 1}));
    EXPECT_TRUE(d.GetType("user_share_file_name")->HasItem(Value("three")) && d.GetType("user_share_folder_name")->HasItem(Value("\\b")));
    EXPECT_FALSE(d.GetType("user_share_file_size")->HasItem(Value(s_threeGiB)));
    EXPECT_FALSE(d.GetType("bitrate")->HasItem(Value(320)));
}
