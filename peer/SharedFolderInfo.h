#pragma once

#include "peer/FileInfo.h"
#include "stream/Persistent.h"

#include <set>

// The files of one shared folder, as the answer to a request for that folder carries them.
class SharedFolderInfo : public Persistent
{
public:
    SharedFolderInfo() = default;
    explicit SharedFolderInfo(std::set<FileInfo> i_files) : m_files(std::move(i_files)) {}

    std::set<FileInfo> const& GetFiles() const { return m_files; }
    std::set<FileInfo>& Files() { return m_files; }

    // The files are followed by a second count that this client writes as 0; a reader takes
    // it and does not use it.
    bool Read(InputStream& i_stream) override;
    bool Write(OutputStream& o_stream) const override;

private:
    std::set<FileInfo> m_files;
};
