#include "transfers/DownloadPath.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cctype>

#include "stream/PathNames.h"

namespace
{
bool IsOnlyDots(std::string const& i_name)
{
    return i_name.find_first_not_of('.') == std::string::npos;
}

// A bare drive ("C:") names no folder of its own.
bool IsDrive(std::string const& i_name)
{
    return i_name.size() == 2 && i_name[1] == ':' && std::isalpha(static_cast<unsigned char>(i_name[0]));
}

// The longest prefix of at most i_bytes bytes that does not split a UTF-8 character.
std::string CutAtCharacter(std::string const& i_text, std::size_t i_bytes)
{
    if (i_text.size() <= i_bytes)
        return i_text;
    std::size_t l_end = i_bytes;
    while (l_end > 0 && (static_cast<unsigned char>(i_text[l_end]) & 0xC0) == 0x80)
        --l_end;
    return i_text.substr(0, l_end);
}

bool LiesUnder(QString const& i_path, QString const& i_base)
{
    return i_path == i_base || i_path.startsWith(i_base + QLatin1Char('/'));
}
} // namespace

DownloadPath::DownloadPath(std::string const& i_downloadFolder, std::string const& i_remoteFolder,
                           std::string const& i_localName, bool i_complete)
{
    m_base = QDir::cleanPath(QString::fromStdString(i_downloadFolder) +
                             (i_complete ? QStringLiteral("/complete") : QStringLiteral("/downloading")));
    std::string const l_sub = SubFolder(i_remoteFolder);
    std::string l_path = m_base.toStdString();
    if (!l_sub.empty())
        l_path += "/" + l_sub;
    m_folder = QString::fromStdString(l_path);
    if (!i_localName.empty())
    {
        if (!IsUsableFileName(i_localName))
            return;
        // Appended in two steps: "/" + a temporary trips a false overlap warning of the compiler.
        l_path += '/';
        l_path += TameComponent(i_localName);
    }
    if (l_path.size() > s_maxPathBytes || i_downloadFolder.empty())
        return;
    m_file = QString::fromStdString(l_path);
    // Tamed components hold no separator and are never "." or "..", so this holds by
    // construction; it stays as the last word before anything touches the disk.
    m_valid = LiesUnder(QDir::cleanPath(m_file), m_base) && QDir::cleanPath(m_file) == m_file;
}

bool DownloadPath::FileExists() const
{
    return m_valid && QFileInfo::exists(m_file);
}

bool DownloadPath::MakeFolder() const
{
    return m_valid && QDir().mkpath(m_folder);
}

bool DownloadPath::RemoveFolderIfEmpty() const
{
    return m_valid && QDir().rmdir(m_folder);
}

std::unique_ptr<QFile> DownloadPath::OpenForAppend() const
{
    if (!m_valid || m_file == m_folder)
        return nullptr;
    auto lp_file = std::make_unique<QFile>(m_file);
    if (!lp_file->open(QIODevice::WriteOnly | QIODevice::Append))
        return nullptr;
    return lp_file;
}

bool DownloadPath::MoveFileTo(DownloadPath const& i_target) const
{
    if (!m_valid || !i_target.m_valid || QFileInfo::exists(i_target.m_file))
        return false;
    return QDir().rename(m_file, i_target.m_file);
}

bool DownloadPath::IsUsableFileName(std::string const& i_name)
{
    return !IsOnlyDots(i_name) && i_name.find_first_of(std::string("/\\\0", 3)) == std::string::npos;
}

std::string DownloadPath::SubFolder(std::string const& i_remoteFolder)
{
    std::string const l_last = GetFileName(i_remoteFolder);
    if (IsOnlyDots(l_last) || IsDrive(l_last))
        return std::string();
    return TameComponent(l_last);
}

std::string DownloadPath::TameComponent(std::string i_name)
{
    for (char& l_char : i_name)
        if ((static_cast<unsigned char>(l_char) < 32) || l_char == 127)
            l_char = '_';
    if (i_name.size() <= s_maxComponentBytes)
        return i_name;
    std::string::size_type const l_dot = i_name.rfind('.');
    std::string l_extension = l_dot == std::string::npos || l_dot == 0 ? std::string() : i_name.substr(l_dot);
    if (l_extension.size() > s_maxComponentBytes / 2)
        l_extension.clear();
    std::string const l_stem = i_name.substr(0, i_name.size() - l_extension.size());
    return CutAtCharacter(l_stem, s_maxComponentBytes - l_extension.size()) + l_extension;
}

std::string DownloadPath::NumberedName(std::string const& i_name, int i_number)
{
    std::string const l_suffix = " (" + std::to_string(i_number) + ")";
    std::string::size_type const l_dot = i_name.rfind('.');
    std::string::size_type const l_at = l_dot == std::string::npos || l_dot == 0 ? i_name.size() : l_dot;
    std::string const l_extension = i_name.substr(l_at);
    std::string const l_stem = CutAtCharacter(i_name.substr(0, l_at), s_maxComponentBytes - l_extension.size() - l_suffix.size());
    return l_stem + l_suffix + l_extension;
}
