#pragma once

#include <QByteArray>

#include <memory>
#include <optional>
#include <vector>

#include "support/ScriptedPeer.h"

// The uploader's side of a download, as the peer named m_name plays it against a real client.
class Uploader
{
public:
    enum class Way { Direct, DialBack };
    struct Answer
    {
        bool m_accepted = false;
        QByteArray m_reason;
    };
    struct FileLink
    {
        std::unique_ptr<PeerLink> mp_link;
        std::optional<quint64> m_offset;
    };
    static constexpr int s_longMs = 20000;

    Uploader(QByteArray i_name, QByteArray i_downloader, quint16 i_downloaderPort);

    bool LogIn() { return m_peer.LogIn(2242, m_name, m_name + "-pw", m_peer.ListenPort()); }
    // Waits until the server has handled all this peer sent it.
    void Sync() { m_peer.Central().Sync(); }

    // The body of the next message with the code from the downloader, on whichever of its
    // messaging links it comes; the downloader may reach this peer directly or by dialling back.
    std::optional<Fields> TakeMessage(quint32 i_code, int i_timeoutMs = s_longMs);
    // The file named by the next 43 or 51.
    std::optional<QByteArray> TakeQueueRequest(int i_timeoutMs = s_longMs) { return TakeFile(43, i_timeoutMs); }
    std::optional<QByteArray> TakePlaceRequest(int i_timeoutMs = s_longMs) { return TakeFile(51, i_timeoutMs); }
    bool NoQueueRequest(int i_waitMs = 1500) { return !TakeFile(43, i_waitMs); }

    void SendPlace(QByteArray const& i_file, quint32 i_place) { Send(Body(44).Str(i_file).U32(i_place)); }
    void SendUploadFailed(QByteArray const& i_file) { Send(Body(46).Str(i_file)); }
    void SendUploadDenied(QByteArray const& i_file, QByteArray const& i_reason) { Send(Body(50).Str(i_file).Str(i_reason)); }
    // Message 40 and the downloader's answer; nothing when none came.
    std::optional<Answer> Offer(quint32 i_req, QByteArray const& i_file, quint64 i_size, quint32 i_direction = 1,
                                int i_timeoutMs = 5000);
    // Opens the file connection for the request; with i_readOffset, also sends the request
    // number and reads the offset the downloader wants.
    FileLink OpenFile(Way i_way, quint32 i_req, bool i_readOffset = true);
    // Sends the request number and reads the offset on an open file connection.
    static std::optional<quint64> ReadOffset(PeerLink& io_link, quint32 i_req);
    // Offers the file, opens its connection, and sends it from the offset read to the end;
    // the offset read.
    std::optional<quint64> Upload(Way i_way, quint32 i_req, QByteArray const& i_file, QByteArray const& i_content);

private:
    std::optional<QByteArray> TakeFile(quint32 i_code, int i_timeoutMs);
    void AcceptAll();
    // On the link the downloader spoke on last: when both ways of reaching this peer got
    // through, the downloader closes the other.
    void Send(Body const& i_body);

    ScriptedPeer m_peer;
    QByteArray m_name;
    QByteArray m_downloader;
    quint16 m_downloaderPort;
    quint32 m_token = 0;
    std::vector<std::unique_ptr<PeerLink>> m_messaging;
    PeerLink* mp_heard = nullptr;
};
