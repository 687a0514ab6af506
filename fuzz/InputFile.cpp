#include "InputFile.h"

#include <QDir>
#include <QFile>

namespace
{
QString FolderTemplate()
{
    QString const l_shm = QStringLiteral("/dev/shm");
    return (QDir(l_shm).exists() ? l_shm : QDir::tempPath()) + QStringLiteral("/tidewick-fuzz-XXXXXX");
}
} // namespace

InputFile::InputFile()
    : m_folder(FolderTemplate()), m_name(QFile::encodeName(m_folder.filePath(QStringLiteral("input"))).toStdString())
{
}

bool InputFile::Write(std::uint8_t const* ip_data, std::size_t i_size)
{
    QFile l_file(QFile::decodeName(m_name.c_str()));
    if (!l_file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;
    qint64 const l_size = static_cast<qint64>(i_size);
    return l_file.write(reinterpret_cast<char const*>(ip_data), l_size) == l_size;
}
