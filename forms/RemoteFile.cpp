#include "forms/RemoteFile.h"

#include "transfers/TransferQueueManager.h"

void AddDownloads(std::vector<RemoteFile> const& i_files)
{
    if (!transferQueueManager)
        return;
    for (RemoteFile const& l_file : i_files)
        transferQueueManager->AddDownload(l_file.m_user, l_file.m_name, l_file.m_folder, l_file.m_size);
}
