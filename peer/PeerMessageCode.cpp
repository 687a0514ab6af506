#include "peer/PeerMessageCode.h"

QString PeerCode::Name(long long i_code)
{
    switch (i_code)
    {
    case Say: return QStringLiteral("PM_SAY");
    case GetSharedFileList: return QStringLiteral("PM_GET_SHARED_FILE_LIST");
    case SharedFileList: return QStringLiteral("PM_SHARED_FILE_LIST");
    case FileSearchRequest: return QStringLiteral("PM_FILE_SEARCH_REQUEST");
    case FileSearchResult: return QStringLiteral("PM_FILE_SEARCH_RESULT");
    case InviteUserToRoom: return QStringLiteral("PM_INVITE_USER_TO_ROOM");
    case CancelledQueuedTransfer: return QStringLiteral("PM_CANCELLED_QUEUED_TRANSFER");
    case UserInfoRequest: return QStringLiteral("PM_USER_INFO_REQUEST");
    case UserInfoReply: return QStringLiteral("PM_USER_INFO_REPLY");
    case SendConnectToken: return QStringLiteral("PM_SEND_CONNECT_TOKEN");
    case MoveDownloadToTop: return QStringLiteral("PM_MOVE_DOWNLOAD_TO_TOP");
    case GetSharedFilesInFolder: return QStringLiteral("PM_GET_SHARED_FILES_IN_FOLDER");
    case SharedFilesInFolder: return QStringLiteral("PM_SHARED_FILES_IN_FOLDER");
    case TransferRequest: return QStringLiteral("PM_TRANSFER_REQUEST");
    case TransferResponse: return QStringLiteral("PM_TRANSFER_RESPONSE");
    case PlaceholdUpload: return QStringLiteral("PM_PLACEHOLD_UPLOAD");
    case QueueUpload: return QStringLiteral("PM_QUEUE_UPLOAD");
    case UploadPlaceInLine: return QStringLiteral("PM_UPLOAD_PLACE_IN_LINE");
    case UploadFailed: return QStringLiteral("PM_UPLOAD_FAILED");
    case ExactFileSearchRequest: return QStringLiteral("PM_EXACT_FILE_SEARCH_REQUEST");
    case QueuedDownloads: return QStringLiteral("PM_QUEUED_DOWNLOADS");
    case IndirectFileSearchRequest: return QStringLiteral("PM_INDIRECT_FILE_SEARCH_REQUEST");
    case UploadDenied: return QStringLiteral("PM_UPLOAD_DENIED");
    case UploadPlaceInLineRequest: return QStringLiteral("PM_UPLOAD_PLACE_IN_LINE_REQUEST");
    case Nothing: return QStringLiteral("PM_NOTHING");
    default: return QStringLiteral("%1 (unknown)").arg(i_code);
    }
}
