// The data file as the client loads it at start: the input is written as the file and read by
// the loader into the graph of the client's types, whose listeners hear every item restored.

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <cstdint>
#include <memory>

#include "FuzzRig.h"
#include "store/Data.h"
#include "store/DataSaver.h"

namespace
{
// Memory-backed when the system has it: a damaged file is copied aside, synced, at each load.
std::unique_ptr<QTemporaryDir> gp_folder;
std::string g_fileName;
} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    FuzzRig::Init();
    QString const l_shm = QStringLiteral("/dev/shm");
    QString const l_base = QDir(l_shm).exists() ? l_shm : QDir::tempPath();
    gp_folder = std::make_unique<QTemporaryDir>(l_base + QStringLiteral("/tidewick-fuzz-XXXXXX"));
    g_fileName = QFile::encodeName(gp_folder->filePath(QStringLiteral("data"))).toStdString();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* ip_data, std::size_t i_size)
{
    FuzzRig l_rig;
    QFile l_file(QString::fromStdString(g_fileName));
    if (!l_file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return 0;
    l_file.write(reinterpret_cast<char const*>(ip_data), static_cast<qint64>(i_size));
    l_file.close();
    dataSaver->Load(&d, g_fileName.c_str());
    return 0;
}
