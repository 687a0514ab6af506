#pragma once

#include <QString>

#include <memory>
#include <optional>
#include <string>

class QFile;

// The one place where a download's local paths are made. Every name in them came from a peer
// or from the data file, so each component is tamed first and the finished path is checked to
// lie inside `<download_folder>/downloading` or `<download_folder>/complete`; a path that
// cannot be made so is invalid, and nothing is done with it.
class DownloadPath
{
public:
    static constexpr std::size_t s_maxComponentBytes = 255;
    static constexpr std::size_t s_maxPathBytes = 4095;

    // i_localName is the entry's local file name; empty gives the folder alone.
    DownloadPath(std::string const& i_downloadFolder, std::string const& i_remoteFolder, std::string const& i_localName,
                 bool i_complete);

    bool IsValid() const { return m_valid; }
    QString const& Folder() const { return m_folder; }
    QString const& File() const { return m_file; }

    bool FileExists() const;
    bool MakeFolder() const;
    // Removes the folder only if it is empty and is not the base folder itself.
    bool RemoveFolderIfEmpty() const;
    // Open for appending; null when that fails.
    std::unique_ptr<QFile> OpenForAppend() const;
    // Never replaces a file that stands at the target.
    bool MoveFileTo(DownloadPath const& i_target) const;

    // A name that can stand for a file at all: not empty, not only dots, no separator, no NUL.
    static bool IsUsableFileName(std::string const& i_name);
    // The sub-folder for a remote folder: its last component tamed; empty when there is none.
    static std::string SubFolder(std::string const& i_remoteFolder);
    // Control bytes become "_"; a name too long is cut at a character boundary, keeping its
    // extension.
    static std::string TameComponent(std::string i_name);
    // The name with " (n)" before its extension.
    static std::string NumberedName(std::string const& i_name, int i_number);

private:
    bool m_valid = false;
    QString m_base;
    QString m_folder;
    QString m_file;
};
