#include "store/DataFileIO.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include <QDateTime>
#include <QDir>
#include <QFileInfo>

#include "store/DataSaver.h"

namespace
{
bool WriteAll(int i_fd, std::string const& i_bytes)
{
    std::size_t l_done = 0;
    while (l_done < i_bytes.size())
    {
        ssize_t const l_written = ::write(i_fd, i_bytes.data() + l_done, i_bytes.size() - l_done);
        if (l_written < 0 && errno == EINTR)
            continue;
        if (l_written <= 0)
            return false;
        l_done += static_cast<std::size_t>(l_written);
    }
    return true;
}

// The name a new copy gets: the local date and time, with a number behind it should a copy of
// the same second exist already.
std::string FreeCopyName(std::string const& i_fileName)
{
    std::string const l_base =
        i_fileName + ".damaged-" + QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-HHmmss")).toStdString();
    std::string l_name = l_base;
    struct stat l_stat = {};
    for (int l_number = 2; ::lstat(l_name.c_str(), &l_stat) == 0; ++l_number)
        l_name = l_base + "-" + std::to_string(l_number);
    return l_name;
}

// Removes the oldest copies beyond the number kept. The names sort by their date and time.
void PruneCopies(std::string const& i_fileName)
{
    QFileInfo const l_file(QString::fromStdString(i_fileName));
    QDir const l_dir = l_file.absoluteDir();
    QStringList const l_copies = l_dir.entryList({l_file.fileName() + QStringLiteral(".damaged-*")},
                                                 QDir::Files | QDir::Hidden | QDir::System, QDir::Name);
    for (qsizetype l_index = 0; l_index + DataFileIO::s_keptDamagedCopies < l_copies.size(); ++l_index)
        QFile::remove(l_dir.filePath(l_copies[l_index]));
}
} // namespace

DataFileIO::ReadResult DataFileIO::ReadWholeFile(std::string const& i_fileName, std::string& o_bytes)
{
    int const l_fd = ::open(i_fileName.c_str(), O_RDONLY | O_CLOEXEC);
    if (l_fd < 0)
        return errno == ENOENT ? ReadResult::Missing : ReadResult::NotPlain;
    struct stat l_stat = {};
    ReadResult l_result = ReadResult::Read;
    if (::fstat(l_fd, &l_stat) != 0 || !S_ISREG(l_stat.st_mode))
        l_result = ReadResult::NotPlain;
    else if (l_stat.st_size > DataSaver::s_maxFileSize)
        l_result = ReadResult::TooLarge;
    else
    {
        o_bytes.resize(static_cast<std::size_t>(l_stat.st_size));
        std::size_t l_done = 0;
        while (l_done < o_bytes.size())
        {
            ssize_t const l_read = ::read(l_fd, o_bytes.data() + l_done, o_bytes.size() - l_done);
            if (l_read < 0 && errno == EINTR)
                continue;
            if (l_read <= 0)
                break; // what was read is parsed, and the shortfall reported as damage
            l_done += static_cast<std::size_t>(l_read);
        }
        o_bytes.resize(l_done);
    }
    ::close(l_fd);
    return l_result;
}

bool DataFileIO::WriteFileAtomically(std::string const& i_fileName, std::string const& i_bytes)
{
    std::string const l_temp = i_fileName + ".tmp";
    // A leftover of an interrupted save goes; a fresh exclusive file never follows a link.
    ::unlink(l_temp.c_str());
    int const l_fd = ::open(l_temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (l_fd < 0)
        return false;
    // The file holds the password: the umask must not widen or narrow the mode.
    bool l_ok = ::fchmod(l_fd, S_IRUSR | S_IWUSR) == 0 && WriteAll(l_fd, i_bytes) && ::fsync(l_fd) == 0;
    l_ok = ::close(l_fd) == 0 && l_ok;
    l_ok = l_ok && ::rename(l_temp.c_str(), i_fileName.c_str()) == 0;
    if (!l_ok)
        ::unlink(l_temp.c_str());
    return l_ok;
}

std::string DataFileIO::KeepDamagedCopy(std::string const& i_fileName, std::string const* ip_bytes)
{
    std::string const l_copy = FreeCopyName(i_fileName);
    bool const l_kept = ip_bytes ? WriteFileAtomically(l_copy, *ip_bytes) : ::rename(i_fileName.c_str(), l_copy.c_str()) == 0;
    if (!l_kept)
        return std::string();
    if (!ip_bytes)
        ::chmod(l_copy.c_str(), S_IRUSR | S_IWUSR);
    PruneCopies(i_fileName);
    return l_copy;
}
