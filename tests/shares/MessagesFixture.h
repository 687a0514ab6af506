#pragma once

#include <cctype>
#include <utility>
#include <vector>

#include "peer/Compression.h"
#include "peer/PeerFixture.h"
#include "peer/WireBytes.h"
#include "shares/SharedFoldersManager.h"

// A share built by hand on the global graph, beside alice's peer messenger. Nobody is connected,
// so whatever the share sends waits in the messenger's queue, where the tests read it.
class SharesTest : public PeerTest
{
public:
    // The code as it came, then the body inflated.
    static std::string Unpacked(MemStream const& i_message)
    {
        std::string const l_bytes = Contents(i_message);
        MemStream l_body;
        EXPECT_EQ(Inflate(l_bytes.data() + 4, l_bytes.size() - 4, l_body), InflateResult::Ok);
        return l_bytes.substr(0, 4) + Contents(l_body);
    }

protected:
    void SetUp() override
    {
        PeerTest::SetUp();
        mp_shares = std::make_unique<SharedFoldersManager>();
        SetLogSink([this](QString const& i_area, int i_level, QString const& i_text, ItemPtr)
                   { m_log << QStringLiteral("%1|%2|%3").arg(i_area).arg(i_level).arg(i_text); });
    }
    void TearDown() override
    {
        mp_shares.reset();
        PeerTest::TearDown();
    }
    bool Logged(char const* i_line) const { return m_log.contains(QString::fromUtf8(i_line)); }

    // A shared folder open to "public", "userlist" or the user list group of that name.
    static void Share(char const* i_path, std::string const& i_access, std::vector<char const*> i_folders)
    {
        ItemPtr const l_share = d.GetType("shared_folder")->GetItem(Value(i_path));
        bool const l_marked = i_access == "public" || i_access == "userlist";
        l_share += l_marked ? d.GetType("shared_" + i_access)->GetGlobalNullItem() : d.GetType("user_list_group")->GetItem(Value(i_access));
        for (char const* lp_folder : i_folders)
            l_share += d.GetType("shared_file_folder")->GetItem(Value(lp_folder));
    }
    // A file whose path's words, lower-cased, are its search tokens.
    static ItemPtr File(char const* i_folder, std::string const& i_name, long long i_size)
    {
        ItemPtr const l_file = ItemPtr(d.GetType("shared_file_folder")->GetItem(Value(i_folder))).NewItem("shared_file");
        l_file += d.GetType("shared_file_name")->GetItem(Value(i_name));
        l_file += d.GetType("shared_file_size")->GetItem(Value(i_size));
        std::string l_word;
        for (char const l_char : std::string(i_folder) + "\\" + i_name + " ")
            if (std::isalnum(static_cast<unsigned char>(l_char)))
                l_word += static_cast<char>(std::tolower(static_cast<unsigned char>(l_char)));
            else if (!l_word.empty())
                l_file += d.GetType("search_token")->GetItem(Value(std::exchange(l_word, std::string())));
        return l_file;
    }
    static void Scanned(ItemPtr i_file, int i_bitrate, char const* i_mode)
    {
        i_file += d.GetType("bitrate")->GetItem(Value(i_bitrate));
        i_file += d.GetType("bitrate_mode")->GetItem(Value(i_mode));
    }

    // The messages queued for a user, oldest first.
    static std::vector<std::string> Sent(char const* i_user)
    {
        std::vector<std::string> l_sent;
        ItemPtr const l_user = d.GetType("user")->HasItem(Value(i_user));
        for (Item* lp_item : l_user ? l_user.GetItems("unsent_message").SortNumericBy("send_order", true) : std::list<Item*>())
            l_sent.push_back(Unpacked(*lp_item->AsPointer<MemStream>()));
        return l_sent;
    }

    std::unique_ptr<SharedFoldersManager> mp_shares;
};
