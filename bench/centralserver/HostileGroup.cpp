#include "HostileGroup.h"

#include "RunUntil.h"
#include "WireReader.h"

namespace
{
int g_names = 0;
}

HostileGroup::HostileGroup(quint16 i_port, int i_count, bool i_logIn, QByteArray const& i_after)
    : m_logIn(i_logIn)
    , m_members(static_cast<size_t>(i_count))
{
    for (int l_index = 0; l_index < i_count; ++l_index)
    {
        Member& l_member = m_members[static_cast<size_t>(l_index)];
        l_member.mp_link = std::make_unique<LoadClient>(l_index,
            [&l_member](LoadClient&, quint32 i_code, WireReader& i_reader) {
                if (i_code == 1)
                    l_member.m_loggedIn = i_reader.U8() == 1;
                ++l_member.m_codes[i_code];
            },
            [](LoadClient&) {}, nullptr);
        QByteArray const l_frames = i_logIn ? LoadClient::LoginFrame("hostile" + QByteArray::number(++g_names)) + i_after : i_after;
        l_member.mp_link->Start(i_port, l_frames);
    }
}

bool HostileGroup::WaitReady(int i_timeoutMs)
{
    return RunUntil(
        [this] {
            for (Member const& l_member : m_members)
            {
                if (m_logIn ? !l_member.m_loggedIn : !l_member.mp_link->IsConnected())
                    return false;
            }
            return true;
        },
        i_timeoutMs);
}

int HostileGroup::WaitSettled(int i_timeoutMs)
{
    auto const l_open = [this] {
        int l_count = 0;
        for (Member const& l_member : m_members)
            l_count += l_member.mp_link->IsConnected() ? 1 : 0;
        return l_count;
    };
    RunUntil([&] { return l_open() + Closed() == Size(); }, i_timeoutMs);
    return l_open();
}

bool HostileGroup::WaitClosed(int i_count, int i_timeoutMs)
{
    return RunUntil([this, i_count] { return Closed() >= i_count; }, i_timeoutMs);
}

void HostileGroup::SendAll(QByteArray const& i_bytes)
{
    for (Member& l_member : m_members)
        l_member.mp_link->Send(i_bytes);
}

void HostileGroup::StopReadingAll()
{
    for (Member& l_member : m_members)
        l_member.mp_link->StopReading();
}

int HostileGroup::Closed() const
{
    int l_closed = 0;
    for (Member const& l_member : m_members)
        l_closed += l_member.mp_link->IsGone() ? 1 : 0;
    return l_closed;
}

int HostileGroup::LoggedIn() const
{
    int l_in = 0;
    for (Member const& l_member : m_members)
        l_in += l_member.m_loggedIn ? 1 : 0;
    return l_in;
}

int HostileGroup::Received(quint32 i_code, int i_times) const
{
    int l_received = 0;
    for (Member const& l_member : m_members)
        l_received += l_member.m_codes.value(i_code) >= i_times ? 1 : 0;
    return l_received;
}
