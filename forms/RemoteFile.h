#pragma once

#include <string>
#include <vector>

// One file another user offers, as a download names it: the owner, the bare name, the folder
// exactly as the owner sent it (with its backslashes), and the size in bytes.
struct RemoteFile
{
    std::string m_user;
    std::string m_name;
    std::string m_folder;
    long long m_size = 0;

    bool operator==(RemoteFile const&) const = default;
};

// Puts each file on the download queue, in the order given.
void AddDownloads(std::vector<RemoteFile> const& i_files);
