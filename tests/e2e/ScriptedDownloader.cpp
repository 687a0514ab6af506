#include "ScriptedDownloader.h"

#include <gtest/gtest.h>

#include "support/WaitFor.h"

ScriptedDownloader::ScriptedDownloader(QByteArray i_name, QByteArray i_uploader, quint16 i_uploaderPort)
    : m_name(std::move(i_name)), m_uploader(std::move(i_uploader)), m_uploaderPort(i_uploaderPort)
{
}

bool ScriptedDownloader::LogIn()
{
    if (!m_peer.LogIn(2242, m_name, m_name + "-pw", m_peer.ListenPort()))
        return false;
    m_peer.Central().Sync();
    return true;
}

bool ScriptedDownloader::Ask(QByteArray const& i_file)
{
    if (!mp_messaging)
    {
        mp_messaging = m_peer.Dial(m_uploaderPort);
        if (!mp_messaging)
            return false;
        mp_messaging->SendGreeting(m_name, "P");
    }
    mp_messaging->Send(Body(43).Str(i_file));
    return mp_messaging->IsOpen();
}

std::optional<quint32> ScriptedDownloader::AcceptRequest(QByteArray const& i_file, int i_timeoutMs)
{
    std::optional<Fields> l_request = Take(40, i_timeoutMs);
    if (!l_request)
        return std::nullopt;
    EXPECT_EQ(l_request->U32(), 1u) << "the uploader offers to send";
    quint32 const l_req = l_request->U32();
    EXPECT_EQ(l_request->Str(), i_file);
    mp_messaging->Send(Body(41).U32(l_req).U8(1));
    return l_req;
}

std::unique_ptr<PeerLink> ScriptedDownloader::TakeFileLink(quint32 i_req, int i_timeoutMs)
{
    QByteArray const l_greeting = PeerLink::GreetingFrame(m_uploader, "F").mid(4);
    std::unique_ptr<PeerLink> lp_file;
    WaitFor([&] {
        std::unique_ptr<PeerLink> lp_link = m_peer.Accept(0);
        if (lp_link && lp_link->TakeFirstFrame() == l_greeting)
            lp_file = std::move(lp_link);
        else if (lp_link)
            m_others.push_back(std::move(lp_link));
        return lp_file != nullptr;
    }, i_timeoutMs);
    if (!lp_file)
        return nullptr;
    std::optional<quint32> const l_req = lp_file->TakeBareU32(i_timeoutMs);
    EXPECT_EQ(l_req, i_req);
    return l_req == i_req ? std::move(lp_file) : nullptr;
}

std::unique_ptr<PeerLink> ScriptedDownloader::Start(QByteArray const& i_file)
{
    if (!Ask(i_file))
        return nullptr;
    std::optional<quint32> const l_req = AcceptRequest(i_file);
    return l_req ? TakeFileLink(*l_req) : nullptr;
}

std::optional<Fields> ScriptedDownloader::Take(quint32 i_code, int i_timeoutMs)
{
    return mp_messaging ? mp_messaging->Take(i_code, i_timeoutMs) : std::nullopt;
}
