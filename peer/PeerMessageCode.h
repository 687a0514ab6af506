#pragma once

#include <QString>

// The codes of messages on a messaging connection that this client can name.
namespace PeerCode
{
enum : int
{
    Say = 1,
    GetSharedFileList = 4,
    SharedFileList = 5,
    FileSearchRequest = 8,
    FileSearchResult = 9,
    InviteUserToRoom = 10,
    CancelledQueuedTransfer = 14,
    UserInfoRequest = 15,
    UserInfoReply = 16,
    SendConnectToken = 33,
    MoveDownloadToTop = 34,
    GetSharedFilesInFolder = 36,
    SharedFilesInFolder = 37,
    TransferRequest = 40,
    TransferResponse = 41,
    PlaceholdUpload = 42,
    QueueUpload = 43,
    UploadPlaceInLine = 44,
    UploadFailed = 46,
    ExactFileSearchRequest = 47,
    QueuedDownloads = 48,
    IndirectFileSearchRequest = 49,
    UploadDenied = 50,
    UploadPlaceInLineRequest = 51,
    Nothing = 52
};

// The name of a code for the log; an unknown one is its number and " (unknown)".
QString Name(long long i_code);
} // namespace PeerCode
