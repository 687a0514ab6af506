#include "LoadCrowd.h"

#include "RunUntil.h"
#include "WireReader.h"
#include "WireWriter.h"

LoadCrowd::LoadCrowd(quint16 i_port, int i_clients)
    : m_port(i_port)
    , m_startNs(static_cast<size_t>(i_clients))
    , m_readyNs(static_cast<size_t>(i_clients))
    , m_roomLists(static_cast<size_t>(i_clients))
{
    for (int l_index = 0; l_index < i_clients; ++l_index)
    {
        m_links.push_back(std::make_unique<LoadClient>(l_index,
            [this](LoadClient& i_link, quint32 i_code, WireReader& i_reader) {
                if (i_code == 1 && i_reader.U8() != 1 && m_failure.isEmpty())
                    m_failure = QStringLiteral("crowd client %1: login refused").arg(i_link.Index());
                OnFrame(i_link, i_code);
            },
            [this](LoadClient& i_link) {
                if (m_failure.isEmpty())
                    m_failure = QStringLiteral("crowd client %1: %2").arg(i_link.Index()).arg(i_link.Failure());
            },
            nullptr));
    }
}

bool LoadCrowd::LogIn(int i_atOnce, int i_timeoutMs)
{
    m_clock.start();
    for (int l_slot = 0; l_slot < i_atOnce; ++l_slot)
        StartNext();
    int const l_all = static_cast<int>(m_links.size());
    bool const l_in = RunUntil([this, l_all] { return m_ready == l_all || !m_failure.isEmpty(); }, i_timeoutMs);
    m_loginNs = m_clock.nsecsElapsed();
    return l_in && m_failure.isEmpty();
}

std::vector<double> LoadCrowd::LoginMs() const
{
    std::vector<double> l_times;
    for (size_t l_index = 0; l_index < m_links.size(); ++l_index)
        l_times.push_back(static_cast<double>(m_readyNs[l_index] - m_startNs[l_index]) / 1e6);
    return l_times;
}

void LoadCrowd::StartNext()
{
    if (m_started >= static_cast<int>(m_links.size()))
        return;
    size_t const l_index = static_cast<size_t>(m_started++);
    QByteArray l_frames = LoadClient::LoginFrame("crowd" + QByteArray::number(static_cast<int>(l_index)));
    l_frames += WireWriter(2).U32(static_cast<quint32>(20000 + l_index)).Frame();
    l_frames += WireWriter(14).String(s_room).Frame() + WireWriter(64).Frame();
    m_startNs[l_index] = m_clock.nsecsElapsed();
    m_links[l_index]->Start(m_port, l_frames);
}

void LoadCrowd::OnFrame(LoadClient& i_link, quint32 i_code)
{
    size_t const l_index = static_cast<size_t>(i_link.Index());
    // One room list comes with the login; the second answers the one asked for after the
    // room was entered, so that it shows the client in.
    if (i_code == 64 && ++m_roomLists[l_index] == 2)
    {
        m_readyNs[l_index] = m_clock.nsecsElapsed();
        ++m_ready;
        StartNext();
    }
}
