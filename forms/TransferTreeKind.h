#pragma once

#include <QString>

#include "store/ItemPtr.h"

// What tells the downloads tree from its twin, the uploads tree: the names of the graph types
// each one shows and keeps its rows in, and how an entry gives its folder, name, size and
// place on disk.
struct TransferTreeKind
{
    bool m_downloads;
    char const* m_entryType;
    char const* m_statusType;
    char const* m_userNodeType;
    char const* m_folderNodeType;
    char const* m_fileNodeType;
    char const* m_folderType;
    char const* m_positionType;

    ItemPtr (*mp_folderOf)(ItemPtr i_entry);
    QString (*mp_fileNameOf)(ItemPtr i_entry);
    long long (*mp_sizeOf)(ItemPtr i_entry);
    // The file on this disk, and the folder that holds it; empty when there is none.
    QString (*mp_localPathOf)(ItemPtr i_entry);
    QString (*mp_localFolderOf)(ItemPtr i_entry);

    static TransferTreeKind const& Downloads();
    static TransferTreeKind const& Uploads();
};
