#include "peer/PeerMessageHandler.h"

#include "peer/Compression.h"
#include "peer/PeerLog.h"
#include "peer/PeerMessageCode.h"
#include "peer/PeerMessenger.h"
#include "peer/ShareList.h"

#include <QCoreApplication>
#include <QPointer>
#include <QTcpSocket>
#include <QThreadPool>

#include <memory>
#include <utility>

using namespace PeerText;

bool PeerMessageHandler::Handle(QTcpSocket* ip_socket, std::string const& i_user, MemStream& i_message)
{
    std::uint32_t l_code = 0;
    if (!i_message.Read(l_code))
    {
        Line(1, QStringLiteral("Could not read message code on connection to user %1, disposing of socket").arg(Q(i_user)));
        return false;
    }
    Line(1, QStringLiteral("Received %1 message from user %2").arg(PeerCode::Name(l_code), Q(i_user)));
    if (HandleCode(ip_socket, i_user, l_code, i_message))
        return true;
    Line(1, QStringLiteral("%1 message from user %2 cannot be read; closing").arg(PeerCode::Name(l_code), Q(i_user)));
    return false;
}

bool PeerMessageHandler::HandleCode(QTcpSocket* ip_socket, std::string const& i_user, std::uint32_t i_code,
                                    MemStream& i_message)
{
    std::string l_file;
    std::string l_text;
    std::uint32_t l_number = 0;
    switch (i_code)
    {
    case PeerCode::GetSharedFileList:
        AnswerShareListRequest(ip_socket, i_user);
        return true;
    case PeerCode::SharedFileList:
        InflateThen(ip_socket, i_user, PeerCode::SharedFileList, i_message,
                    [this, i_user](MemStream& i_body) { return ReadShareList(i_user, i_body); });
        return true;
    case PeerCode::FileSearchResult:
        InflateThen(ip_socket, i_user, PeerCode::FileSearchResult, i_message,
                    [this, i_user](MemStream& i_body) { return ReadSearchResult(i_user, i_body); });
        return true;
    case PeerCode::GetSharedFilesInFolder:
        if (!i_message.Read(l_number) || !i_message.Read(l_text))
            return false;
        emit mr_messenger.SharedFilesInFolderRequested(i_user, l_number, l_text);
        return true;
    case PeerCode::TransferRequest:
        return OnTransferRequest(i_user, i_message);
    case PeerCode::TransferResponse:
        return OnTransferResponse(i_user, i_message);
    case PeerCode::QueueUpload:
        if (!i_message.Read(l_file))
            return false;
        emit mr_messenger.QueueUploadRequested(i_user, l_file);
        return true;
    case PeerCode::UploadPlaceInLine:
        if (!i_message.Read(l_file) || !i_message.Read(l_number))
            return false;
        emit mr_messenger.DownloadPlaceInLine(i_user, l_file, static_cast<int>(l_number));
        return true;
    case PeerCode::UploadFailed:
        if (!i_message.Read(l_file))
            return false;
        emit mr_messenger.UploadFailed(i_user, l_file);
        return true;
    case PeerCode::UploadDenied:
        if (!i_message.Read(l_file) || !i_message.Read(l_text))
            return false;
        emit mr_messenger.UploadDenied(i_user, l_file, l_text);
        return true;
    default:
        // Named or not, a code this client does not act on changes nothing.
        return true;
    }
}

void PeerMessageHandler::AnswerShareListRequest(QTcpSocket* ip_socket, std::string const& i_user)
{
    // A peer that asks again before it has taken the last copy gets no second one: a list can
    // be large, and repeated requests would pile copies up in the write buffer.
    SocketBufferInfo& l_info = mr_messenger.Buffer(ip_socket);
    if (l_info.m_listPending)
    {
        // Asked again while the list is composed: decided as any request once it has gone out.
        l_info.m_listAskedAgain = true;
        return;
    }
    if (l_info.m_bytesWritten - ip_socket->bytesToWrite() < l_info.m_listEndsAt)
    {
        Line(1, QStringLiteral("User %1 asked for the share list again before the last copy was sent; not sent twice")
                    .arg(Q(i_user)));
        return;
    }
    if (!mr_messenger.m_shareListResponder)
    {
        SendShareList(ip_socket, i_user, ShareListMessage(FileInfoMap()));
        return;
    }
    l_info.m_listPending = true;
    QPointer<QTcpSocket> const lp_socket(ip_socket);
    mr_messenger.m_shareListResponder(i_user, [this, lp_socket, i_user](MemStream const& i_list)
    {
        // The connection may have gone while the list was composed; a socket that is still
        // an object but no longer the messenger's is gone too.
        if (!lp_socket || !mr_messenger.m_buffers.contains(lp_socket.data()))
        {
            Line(2, QStringLiteral("Share list for user %1 is ready, but the connection is gone").arg(Q(i_user)));
            return;
        }
        SendShareList(lp_socket.data(), i_user, i_list);
    });
}

void PeerMessageHandler::SendShareList(QTcpSocket* ip_socket, std::string const& i_user, MemStream const& i_list)
{
    SocketBufferInfo& l_info = mr_messenger.Buffer(ip_socket);
    l_info.m_listPending = false;
    bool const l_askedAgain = std::exchange(l_info.m_listAskedAgain, false);
    // A copy of its own: one list may answer several peers, and sending reads the stream.
    MemStream l_answer;
    l_answer.WriteBuffer(i_list.GetReadBuffer(), static_cast<unsigned long>(i_list.GetPendingReadLength()));
    if (!mr_messenger.SendMessage(ip_socket, l_answer))
        return;
    mr_messenger.Buffer(ip_socket).m_listEndsAt = mr_messenger.Buffer(ip_socket).m_bytesWritten;
    // Handed to the system now rather than at the next turn of the event loop: only a list
    // that the peer does not take keeps waiting, and a second request right behind a small
    // list is served.
    ip_socket->flush();
    if (l_askedAgain && mr_messenger.m_buffers.contains(ip_socket))
        AnswerShareListRequest(ip_socket, i_user);
}

void PeerMessageHandler::InflateThen(QTcpSocket* ip_socket, std::string const& i_user, int i_code, MemStream& i_message,
                                     BodyReader i_reader)
{
    // Inflating a large body takes long enough to hold the window: it is done by a worker,
    // and the connection's later frames wait until the body has been read.
    mr_messenger.Buffer(ip_socket).m_bodyPending = true;
    auto lp_compressed = std::make_shared<QByteArray>(i_message.GetReadBuffer(), i_message.GetPendingReadLength());
    QPointer<PeerMessenger> const lp_messenger(&mr_messenger);
    QPointer<QTcpSocket> const lp_socket(ip_socket);
    QThreadPool::globalInstance()->start([=, l_reader = std::move(i_reader)]() mutable {
        auto lp_body = std::make_shared<MemStream>();
        InflateResult const l_result =
            Inflate(lp_compressed->constData(), static_cast<std::size_t>(lp_compressed->size()), *lp_body);
        lp_compressed.reset();
        // What the call holds is taken out on the window's thread, whichever thread drops the
        // call's last reference.
        QMetaObject::invokeMethod(QCoreApplication::instance(), [=, l_reader = std::move(l_reader)]() mutable {
            BodyReader const l_read = std::move(l_reader);
            std::shared_ptr<MemStream> const lp_read = std::move(lp_body);
            if (lp_messenger)
                lp_messenger->mp_handler->Inflated(lp_socket, i_user, i_code, l_result, *lp_read, l_read);
        }, Qt::QueuedConnection);
    });
}

void PeerMessageHandler::Inflated(QPointer<QTcpSocket> const& ip_socket, std::string const& i_user, int i_code,
                                  InflateResult i_result, MemStream& i_body, BodyReader const& i_reader)
{
    auto const l_found = ip_socket ? mr_messenger.m_buffers.find(ip_socket.data()) : mr_messenger.m_buffers.end();
    if (l_found == mr_messenger.m_buffers.end())
    {
        Line(2, QStringLiteral("%1 message from user %2 is inflated, but the connection is gone").arg(PeerCode::Name(i_code), Q(i_user)));
        return;
    }
    bool l_keep = true;
    if (i_result == InflateResult::TooLarge)
    {
        Line(1, QStringLiteral("%1 message from user %2 inflates to more than %3 bytes; closing")
                    .arg(PeerCode::Name(i_code), Q(i_user))
                    .arg(PeerLimits::s_maxInflatedBytes));
        l_keep = false;
    }
    else if (i_result == InflateResult::OutOfMemory)
        Line(1, QStringLiteral("Memory ran out while inflating a %1 message from user %2; the message is dropped")
                    .arg(PeerCode::Name(i_code), Q(i_user)));
    // Bad data leaves the body empty, and its first read fails.
    else if (!i_reader(i_body))
    {
        Line(1, QStringLiteral("%1 message from user %2 cannot be read; closing").arg(PeerCode::Name(i_code), Q(i_user)));
        l_keep = false;
    }
    mr_messenger.BodyRead(ip_socket.data(), l_keep);
}

bool PeerMessageHandler::ReadShareList(std::string const& i_user, MemStream& i_body)
{
    FileInfoMap l_share;
    ShareListRead const l_read = ReadFileInfoMap(i_body, l_share);
    if (l_read == ShareListRead::TooManyFiles)
        Line(1, QStringLiteral("Share list from user %1 holds more than %2 files; closing")
                    .arg(Q(i_user))
                    .arg(PeerLimits::s_maxShareListFiles));
    if (l_read != ShareListRead::Ok)
        return false;
    AttributeTranslationTable l_table;
    if (!ReadTranslationTable(i_body, l_table))
        l_table.clear();
    emit mr_messenger.UserShare(i_user, l_share, l_table);
    return true;
}

bool PeerMessageHandler::ReadSearchResult(std::string const& i_user, MemStream& i_body)
{
    ItemPtr l_results;
    SearchResultReader::Result const l_read = m_searchResults.Read(i_body, i_user, l_results);
    if (l_read == SearchResultReader::Result::Bad)
        return false;
    if (l_read == SearchResultReader::Result::Accepted)
        emit mr_messenger.SearchResults(l_results);
    return true;
}

bool PeerMessageHandler::OnTransferRequest(std::string const& i_user, MemStream& i_message)
{
    std::uint32_t l_direction = 0;
    std::uint32_t l_req = 0;
    std::string l_file;
    std::uint64_t l_size = 0;
    if (!i_message.Read(l_direction) || !i_message.Read(l_req) || !i_message.Read(l_file))
        return false;
    // Only an upload offer carries a size; another direction is passed on as it came.
    if (l_direction == 1 && !i_message.Read(l_size))
        return false;
    emit mr_messenger.FileTransferRequested(i_user, static_cast<int>(l_direction), l_req, l_file,
                                            static_cast<qint64>(l_size));
    return true;
}

bool PeerMessageHandler::OnTransferResponse(std::string const& i_user, MemStream& i_message)
{
    std::uint32_t l_req = 0;
    std::uint8_t l_accepted = 0;
    if (!i_message.Read(l_req) || !i_message.Read(l_accepted))
        return false;
    if (l_accepted == 0)
    {
        std::string l_reason;
        if (!i_message.Read(l_reason))
            return false;
        emit mr_messenger.FileTransferResponse(i_user, l_req, false, false, 0, l_reason);
        return true;
    }
    std::uint64_t l_size = 0;
    bool const l_withSize = i_message.Read(l_size);
    emit mr_messenger.FileTransferResponse(i_user, l_req, true, l_withSize, l_withSize ? static_cast<qint64>(l_size) : 0,
                                           std::string());
    return true;
}
