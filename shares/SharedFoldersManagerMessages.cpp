// Lists and search answers built from the share: placeholder until they land on this branch.
#include "shares/SharedFoldersManager.h"

MemStream SharedFoldersManager::GetSharedFilesMessage(std::string const&) { return ShareListMessage(FileInfoMap()); }
void SharedFoldersManager::ProcessSearch(std::string const&, unsigned int, std::string const&) {}
void SharedFoldersManager::OnUserShare(std::string const&, FileInfoMap&, AttributeTranslationTable&) {}
void SharedFoldersManager::OnDNetSearchRequest(std::string const&, quint32, std::string const&) {}
void SharedFoldersManager::OnFilesInFoldersRequested(std::string const&, quint32, std::string const&) {}
