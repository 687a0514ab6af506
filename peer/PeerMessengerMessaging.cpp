// The message layer of PeerMessenger: frames in and out, sending to a user by name, the queue of
// messages that wait for a connection, and the senders of the messages this client asks with.

#include <QDateTime>
#include <QtEndian>

#include <charconv>
#include <cstring>

#include "peer/PeerLog.h"
#include "peer/PeerMessageCode.h"
#include "peer/PeerMessageHandler.h"
#include "peer/PeerMessenger.h"
#include "store/Data.h"
#include "store/Log.h"
#include "store/Settings.h"

using namespace PeerText;

namespace
{
// The code a message starts with, read without moving its read index: copies of a stream share
// both indices, and a frame is written from the read index.
std::uint32_t PeekCode(MemStream const& i_message)
{
    std::uint32_t l_code = 0;
    if (i_message.GetPendingReadLength() >= 4)
        std::memcpy(&l_code, i_message.GetReadBuffer(), 4);
    return qFromLittleEndian(l_code);
}

MemStream NewMessage(int i_code)
{
    MemStream l_message;
    l_message.Write(static_cast<std::uint32_t>(i_code));
    return l_message;
}

} // namespace

// ---- Frames in ----

void PeerMessenger::OnSocketReadyToRead()
{
    auto* lp_socket = qobject_cast<QTcpSocket*>(sender());
    if (!lp_socket)
        return;
    SocketBufferInfo& l_info = Buffer(lp_socket);
    for (int l_frames = 0;; ++l_frames)
    {
        if (lp_socket->bytesAvailable() <= 0 || l_info.m_bodyPending)
            return;
        if (l_frames == PeerLimits::s_maxFramesPerTurn)
        {
            QMetaObject::invokeMethod(lp_socket, "readyRead", Qt::QueuedConnection);
            return;
        }
        l_info.m_lastActivityMs = QDateTime::currentMSecsSinceEpoch();
        if (l_info.m_fileRequestExpected)
        {
            if (lp_socket->bytesAvailable() < 4)
                return;
            quint32 l_number = 0;
            lp_socket->read(reinterpret_cast<char*>(&l_number), 4);
            std::string const l_user = l_info.m_user;
            HandOver(lp_socket, l_user, 'F', false, qFromLittleEndian(l_number));
            m_buffers.erase(lp_socket);
            return;
        }
        FrameReader::Result const l_result = l_info.m_reader.ReadFrom(*lp_socket);
        if (l_result == FrameReader::NeedMore)
            return;
        if (l_result == FrameReader::FrameTooLong || l_result == FrameReader::CodeTooLong ||
            l_result == FrameReader::OverBudget)
        {
            if (l_result == FrameReader::CodeTooLong)
                Line(1, QStringLiteral("%1 announced a %2 message of %3 bytes, above its bound of %4; closing")
                               .arg(PeerName(lp_socket), PeerCode::Name(l_info.m_reader.Code()))
                               .arg(l_info.m_reader.FrameLength())
                               .arg(l_info.m_reader.CodeMaxLength()));
            else if (l_result == FrameReader::FrameTooLong)
                Line(1, QStringLiteral("%1 announced a frame of %2 bytes, above the bound of %3; closing")
                               .arg(PeerName(lp_socket))
                               .arg(l_info.m_reader.FrameLength())
                               .arg(l_info.m_reader.MaxFrameLength()));
            else
                Line(1, QStringLiteral("Frames under assembly would pass %1 bytes with the one from %2; closing it")
                               .arg(PeerLimits::s_maxAssemblingBytes)
                               .arg(PeerName(lp_socket)));
            disconnect(lp_socket, nullptr, this, nullptr);
            DisposeOfSocket(lp_socket);
            return;
        }
        l_info.m_handling = true;
        bool const l_keep = HandleMessage(lp_socket, l_info.m_reader.Frame());
        l_info.m_handling = false;
        if (!l_keep || l_info.m_disposeWanted)
        {
            disconnect(lp_socket, nullptr, this, nullptr);
            DisposeOfSocket(lp_socket);
            return;
        }
        if (l_info.m_handedOver)
        {
            m_buffers.erase(lp_socket);
            return;
        }
        l_info.m_reader.NextFrame();
    }
}

bool PeerMessenger::HandleMessage(QTcpSocket* ip_socket, MemStream& i_message)
{
    if (SocketItem(m_types.mp_uninitialized, ip_socket))
        return InitializeSocket(ip_socket, i_message);
    ItemPtr const l_socket = SocketItem(m_types.mp_peerSocket, ip_socket);
    if (!l_socket)
        return false;
    if (auto const l_buffer = m_buffers.find(ip_socket); l_buffer != m_buffers.end())
        l_buffer->second.m_messageReceived = true;
    return mp_handler->Handle(ip_socket, l_socket.GetItem("user").AsString(), i_message);
}

void PeerMessenger::BodyRead(QTcpSocket* ip_socket, bool i_keep)
{
    if (!i_keep)
    {
        disconnect(ip_socket, nullptr, this, nullptr);
        DisposeOfSocket(ip_socket);
        return;
    }
    Buffer(ip_socket).m_bodyPending = false;
    if (ip_socket->bytesAvailable() > 0)
        QMetaObject::invokeMethod(ip_socket, "readyRead", Qt::QueuedConnection);
}

// ---- Frames out ----

bool PeerMessenger::SendMessage(QTcpSocket* ip_socket, MemStream& i_message)
{
    int const l_length = i_message.GetPendingReadLength();
    QByteArray l_frame(4 + l_length, Qt::Uninitialized);
    qToLittleEndian(static_cast<quint32>(l_length), l_frame.data());
    if (l_length > 0)
        std::memcpy(l_frame.data() + 4, i_message.GetReadBuffer(), static_cast<std::size_t>(l_length));
    if (ip_socket->write(l_frame) == -1)
    {
        Line(1, QStringLiteral("Error writing message to socket: %1").arg(ip_socket->errorString()));
        return false;
    }
    Touch(ip_socket, l_frame.size());
    if (ip_socket->bytesToWrite() > PeerLimits::s_maxUnsentBytes)
    {
        Line(1, QStringLiteral("More than %1 bytes wait unsent to %2, which does not read; closing")
                       .arg(PeerLimits::s_maxUnsentBytes)
                       .arg(PeerName(ip_socket)));
        DisposeOfSocket(ip_socket);
        return false;
    }
    return true;
}

void PeerMessenger::SendMessage(std::string const& i_user, MemStream& i_message)
{
    ItemPtr const l_user = User(i_user);
    ItemRange const l_sockets = l_user->ConnectedOfType(m_types.mp_peerSocket);
    Line(1, QStringLiteral("Send %1 message to user %2").arg(PeerCode::Name(PeekCode(i_message)), Q(i_user)));
    Item* lp_chosen = nullptr;
    if (l_sockets.size() == 1)
    {
        Line(2, QStringLiteral("Found one existing messaging connection to user"));
        lp_chosen = *l_sockets.begin();
    }
    else if (l_sockets.size() > 1)
    {
        Line(2, QStringLiteral("Found %1 existing messaging connections to user, picking latest").arg(l_sockets.size()));
        // When both ways of connecting succeed, the peer keeps one and drops the other, and
        // the two may open within one second. A connection the peer has sent a message on is
        // one it kept, so those are chosen from first; a message written into the dropped
        // one would be lost.
        bool l_anyUsed = false;
        for (Item* lp_socket : l_sockets)
            l_anyUsed = l_anyUsed || UsedByPeer(lp_socket);
        QDateTime l_chosenTime;
        for (Item* lp_socket : l_sockets)
        {
            if (l_anyUsed && !UsedByPeer(lp_socket))
                continue;
            ItemPtr const l_time = ItemPtr(lp_socket).GetItem("connection_open_time");
            QDateTime const l_opened = QDateTime::fromString(QString::fromUtf8(l_time.AsCStr()), Qt::TextDate);
            if (!lp_chosen)
            {
                lp_chosen = lp_socket;
                l_chosenTime = l_opened;
                Line(3, QStringLiteral("First connection opened %1").arg(QString::fromUtf8(l_time.AsCStr())));
            }
            else if (l_chosenTime < l_opened)
            {
                lp_chosen = lp_socket;
                l_chosenTime = l_opened;
                Line(3, QStringLiteral("Found connection opened %1, exchanging").arg(QString::fromUtf8(l_time.AsCStr())));
            }
        }
    }
    if (lp_chosen)
    {
        SendMessage(lp_chosen->AsPointer<QTcpSocket>(), i_message);
        return;
    }
    Line(2, QStringLiteral("Did not find messaging connection to user, queueing unsent message"));
    QueueMessage(l_user, i_message);
    ConnectToUser(i_user, "P");
}

bool PeerMessenger::UsedByPeer(Item* ip_socket) const
{
    auto const l_buffer = m_buffers.find(ip_socket->AsPointer<QTcpSocket>());
    return l_buffer != m_buffers.end() && l_buffer->second.m_messageReceived;
}

// ---- The waiting queue ----

void PeerMessenger::QueueMessage(ItemPtr i_user, MemStream& i_message)
{
    std::uint64_t const l_size = static_cast<std::uint64_t>(i_message.GetPendingReadLength());
    if (l_size > PeerLimits::s_maxQueuedBytes)
    {
        Line(1, QStringLiteral("A message of %1 bytes to user %2 is larger than the unsent queue may hold; dropped")
                       .arg(l_size)
                       .arg(Q(i_user.AsString())));
        return;
    }
    MakeRoomInQueue(l_size);
    auto* lp_stream = new MemStream(i_message);
    ItemPtr const l_message = m_types.mp_unsent->NewItem(Value(lp_stream));
    l_message += i_user;
    l_message += m_types.mp_sendOrder->GetItem(Value(static_cast<unsigned int>(m_sendOrder++)));
    l_message += m_types.mp_sendTime->GetItem(Value(Now()));
    m_queuedBytes += l_size;
}

void PeerMessenger::RemoveUnsent(Item* ip_message)
{
    auto* lp_stream = ip_message->AsPointer<MemStream>();
    m_queuedBytes -= static_cast<std::uint64_t>(lp_stream->GetPendingReadLength());
    delete lp_stream;
    ip_message->Remove();
}

void PeerMessenger::MakeRoomInQueue(std::uint64_t i_incoming)
{
    if (m_queuedBytes + i_incoming <= PeerLimits::s_maxQueuedBytes)
        return;
    for (Item* lp_message : m_types.mp_unsent->GetItems().SortNumericBy("send_order", true))
    {
        if (m_queuedBytes + i_incoming <= PeerLimits::s_maxQueuedBytes)
            break;
        Line(1, QStringLiteral("The unsent message queue holds %1 bytes; the oldest message, to user %2, is dropped")
                       .arg(m_queuedBytes)
                       .arg(Q(ItemPtr(lp_message).GetItem("user").AsString())));
        RemoveUnsent(lp_message);
    }
}

void PeerMessenger::SendUnsentMessages(std::string const& i_user)
{
    ItemPtr const l_user = m_types.mp_user->HasItem(Value(i_user));
    if (!l_user)
        return;
    ItemRange const l_sockets = l_user->ConnectedOfType(m_types.mp_peerSocket);
    if (l_sockets.size() == 0)
        return;
    auto* lp_socket = (*l_sockets.begin())->AsPointer<QTcpSocket>();
    ItemSet const l_messages = l_user.GetItems("unsent_message");
    if (l_messages.empty())
        return;
    std::list<Item*> const l_ordered = l_messages.SortNumericBy("send_order", true);
    Line(1, QStringLiteral("Sending %1 pending peer messages to user %2").arg(l_ordered.size()).arg(Q(i_user)), l_user);
    for (Item* lp_message : l_ordered)
    {
        if (!SendMessage(lp_socket, *lp_message->AsPointer<MemStream>()))
            break;
        RemoveUnsent(lp_message);
    }
}

// ---- Senders ----

void PeerMessenger::GetUserSharedFiles(std::string const& i_user)
{
    MemStream l_message = NewMessage(PeerCode::GetSharedFileList);
    SendMessage(i_user, l_message);
}

void PeerMessenger::QueueDownload(std::string const& i_user, std::string const& i_file)
{
    MemStream l_message = NewMessage(PeerCode::QueueUpload);
    l_message.Write(i_file);
    SendMessage(i_user, l_message);
}

unsigned int PeerMessenger::RequestUpload(std::string const& i_user, std::string const& i_file, qint64 i_size)
{
    std::string const l_text = GetGlobal("transfer_req_counter");
    unsigned int l_req = 0;
    std::from_chars(l_text.data(), l_text.data() + l_text.size(), l_req);
    SetGlobal("transfer_req_counter", Value(l_req + 1));
    MemStream l_message = NewMessage(PeerCode::TransferRequest);
    l_message.Write(static_cast<std::uint32_t>(1));
    l_message.Write(static_cast<std::uint32_t>(l_req));
    l_message.Write(i_file);
    l_message.Write(static_cast<std::uint64_t>(i_size));
    SendMessage(i_user, l_message);
    return l_req;
}

void PeerMessenger::AcceptTransferRequest(std::string const& i_user, unsigned int i_req, bool i_withSize, qint64 i_size)
{
    MemStream l_message = NewMessage(PeerCode::TransferResponse);
    l_message.Write(static_cast<std::uint32_t>(i_req));
    l_message.Write(static_cast<std::uint8_t>(1));
    if (i_withSize)
        l_message.Write(static_cast<std::uint64_t>(i_size));
    SendMessage(i_user, l_message);
}

void PeerMessenger::DenyTransferRequest(std::string const& i_user, unsigned int i_req, std::string const& i_reason)
{
    MemStream l_message = NewMessage(PeerCode::TransferResponse);
    l_message.Write(static_cast<std::uint32_t>(i_req));
    l_message.Write(static_cast<std::uint8_t>(0));
    l_message.Write(i_reason);
    SendMessage(i_user, l_message);
}

void PeerMessenger::DenyUpload(std::string const& i_user, std::string const& i_file, std::string const& i_reason)
{
    MemStream l_message = NewMessage(PeerCode::UploadDenied);
    l_message.Write(i_file);
    l_message.Write(i_reason);
    SendMessage(i_user, l_message);
}
