#include "Uploader.h"

#include <gtest/gtest.h>

#include "support/WaitFor.h"

Uploader::Uploader(QByteArray i_name, QByteArray i_downloader, quint16 i_downloaderPort)
    : m_name(std::move(i_name)), m_downloader(std::move(i_downloader)), m_downloaderPort(i_downloaderPort)
{
}

std::optional<Fields> Uploader::TakeMessage(quint32 i_code, int i_timeoutMs)
{
    QByteArray l_body;
    WaitFor([&] {
        AcceptAll();
        while (std::optional<ScriptedPeer::ConnectRequest> l_request = m_peer.TakeConnectRequest(0))
            if (l_request->m_type == "P")
                if (std::unique_ptr<PeerLink> lp_link = m_peer.DialBack(*l_request))
                    m_messaging.push_back(std::move(lp_link));
        for (std::unique_ptr<PeerLink> const& lp_link : m_messaging)
            if (!(l_body = lp_link->TakeFrame(i_code, 0)).isEmpty())
            {
                mp_heard = lp_link.get();
                return true;
            }
        return false;
    }, i_timeoutMs);
    return l_body.isEmpty() ? std::nullopt : std::optional<Fields>(Fields(l_body.mid(4)));
}

std::optional<Uploader::Answer> Uploader::Offer(quint32 i_req, QByteArray const& i_file, quint64 i_size, quint32 i_direction,
                                                int i_timeoutMs)
{
    Body l_request(40);
    l_request.U32(i_direction).U32(i_req).Str(i_file);
    if (i_direction == 1)
        l_request.U64(i_size);
    Send(l_request);
    std::optional<Fields> l_fields = TakeMessage(41, i_timeoutMs);
    if (!l_fields)
        return std::nullopt;
    Answer l_answer;
    EXPECT_EQ(l_fields->U32(), i_req);
    l_answer.m_accepted = l_fields->U8() != 0;
    if (!l_answer.m_accepted)
        l_answer.m_reason = l_fields->Str();
    return l_answer;
}

Uploader::FileLink Uploader::OpenFile(Way i_way, quint32 i_req, bool i_readOffset)
{
    FileLink l_file;
    if (i_way == Way::Direct)
    {
        l_file.mp_link = m_peer.Dial(m_downloaderPort);
        if (l_file.mp_link)
            l_file.mp_link->SendGreeting(m_name, "F");
    }
    else
    {
        // A messaging link of the downloader may still be coming in; the file link is the
        // one that answers with the token.
        AcceptAll();
        m_peer.AskDialBack(++m_token, m_downloader, "F");
        QByteArray const l_answer = PeerLink::IndirectAnswerFrame(m_token).mid(4);
        WaitFor([&] {
            std::unique_ptr<PeerLink> lp_link = m_peer.Accept(0);
            if (lp_link && lp_link->TakeFirstFrame() == l_answer)
                l_file.mp_link = std::move(lp_link);
            else if (lp_link)
                m_messaging.push_back(std::move(lp_link));
            return l_file.mp_link != nullptr;
        }, s_longMs);
    }
    if (l_file.mp_link && i_readOffset)
        l_file.m_offset = ReadOffset(*l_file.mp_link, i_req);
    return l_file;
}

std::optional<quint64> Uploader::ReadOffset(PeerLink& io_link, quint32 i_req)
{
    io_link.SendBareU32(i_req);
    QByteArray const l_offset = io_link.TakeRaw(8, s_longMs);
    return l_offset.size() == 8 ? std::optional<quint64>(Fields(l_offset).U64()) : std::nullopt;
}

std::optional<quint64> Uploader::Upload(Way i_way, quint32 i_req, QByteArray const& i_file, QByteArray const& i_content)
{
    std::optional<Answer> const l_answer = Offer(i_req, i_file, static_cast<quint64>(i_content.size()));
    if (!l_answer || !l_answer->m_accepted)
        return std::nullopt;
    FileLink l_link = OpenFile(i_way, i_req);
    if (!l_link.m_offset)
        return std::nullopt;
    l_link.mp_link->SendRaw(i_content.mid(static_cast<qsizetype>(*l_link.m_offset)));
    EXPECT_TRUE(l_link.mp_link->WaitClosed(s_longMs)) << "the downloader keeps the finished connection";
    return l_link.m_offset;
}

std::optional<QByteArray> Uploader::TakeFile(quint32 i_code, int i_timeoutMs)
{
    std::optional<Fields> l_fields = TakeMessage(i_code, i_timeoutMs);
    return l_fields ? std::optional<QByteArray>(l_fields->Str()) : std::nullopt;
}

void Uploader::AcceptAll()
{
    while (std::unique_ptr<PeerLink> lp_link = m_peer.Accept(0))
        m_messaging.push_back(std::move(lp_link));
}

void Uploader::Send(Body const& i_body)
{
    if (mp_heard && mp_heard->IsOpen())
        return mp_heard->Send(i_body);
    ADD_FAILURE() << "no messaging link to the downloader";
}
