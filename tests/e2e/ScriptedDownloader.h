#pragma once

#include <QByteArray>

#include <memory>
#include <optional>
#include <vector>

#include "support/ScriptedPeer.h"

// The downloader's side of an upload, as the peer named m_name plays it against a real client
// that shares files: it asks for a file on a messaging link it opened itself, accepts the
// client's transfer request and takes the file connection the client then opens to it.
class ScriptedDownloader
{
public:
    static constexpr int s_longMs = 20000;

    ScriptedDownloader(QByteArray i_name, QByteArray i_uploader, quint16 i_uploaderPort);

    // Logs in with the port of its listener, known to the server before this returns.
    bool LogIn();
    // Message 43 for the file, on the messaging link, which the first call opens.
    bool Ask(QByteArray const& i_file);
    // The uploader's transfer request for the file, accepted; its number.
    std::optional<quint32> AcceptRequest(QByteArray const& i_file, int i_timeoutMs = s_longMs);
    // The file connection of the request as the uploader opened it, its request number read.
    std::unique_ptr<PeerLink> TakeFileLink(quint32 i_req, int i_timeoutMs = s_longMs);
    // Asks for the file and follows through to its file connection, ready for the offset.
    std::unique_ptr<PeerLink> Start(QByteArray const& i_file);
    // The next message with the code on the messaging link.
    std::optional<Fields> Take(quint32 i_code, int i_timeoutMs = s_longMs);

private:
    ScriptedPeer m_peer;
    QByteArray m_name;
    QByteArray m_uploader;
    quint16 m_uploaderPort;
    std::unique_ptr<PeerLink> mp_messaging;
    // Links of other kinds that came in, kept open so that the uploader sees no refusal.
    std::vector<std::unique_ptr<PeerLink>> m_others;
};
