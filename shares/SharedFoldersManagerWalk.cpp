// The walk over the disk: placeholder until the walk lands on this branch.
#include "shares/SharedFoldersManager.h"

SharedFoldersManager::~SharedFoldersManager()
{
    sharedFoldersManager = nullptr;
}

void SharedFoldersManager::RescanShares() {}
void SharedFoldersManager::AddSharedFiles(std::string const&, std::string const&) {}
void SharedFoldersManager::TokenizeSharedFile(ItemPtr) {}
bool SharedFoldersManager::IsSearchTokenSeparator(unsigned char) { return false; }
