#include "ChatLoop.h"

#include <QLineEdit>

#include "forms/ChatForm.h"
#include "forms/RoomForm.h"
#include "server/Server.h"
#include "shell/MainWindow.h"

namespace
{
// Words of several scripts, so that the lines cross the link as UTF-8 of every width.
constexpr char const* c_words[] = {"harbour", "tide", "Wellengang", "écluse", "прилив", "潮汐", "🌊", "&amp;", "<b>"};

bool TypeAndSend(QWidget* ip_form, std::string const& i_line)
{
    auto* lp_edit = ip_form ? ip_form->findChild<QLineEdit*>(QStringLiteral("chatEdit")) : nullptr;
    if (!lp_edit)
        return false;
    lp_edit->setText(QString::fromStdString(i_line));
    emit lp_edit->returnPressed();
    return lp_edit->text().isEmpty();
}

RoomForm* FormOfRoom(std::string const& i_room)
{
    for (RoomForm* lp_form : mainWindow->findChildren<RoomForm*>())
        if (lp_form->Room() == i_room)
            return lp_form;
    return nullptr;
}
} // namespace

ChatLoop::ChatLoop(std::string i_self, std::string i_peer, std::string i_room, QObject* ip_parent)
    : QObject(ip_parent), m_self(std::move(i_self)), m_peer(std::move(i_peer)), m_room(std::move(i_room)),
      m_random(static_cast<quint32>(std::hash<std::string>{}(m_self)))
{
    connect(gp_server, &Server::PrivateChat, this, &ChatLoop::OnPrivateChat);
    connect(gp_server, &Server::RoomChat, this, &ChatLoop::OnRoomChat);
}

bool ChatLoop::InRoom() const
{
    return FormOfRoom(m_room) != nullptr;
}

bool ChatLoop::SendNext()
{
    if (!gp_server->IsConnected())
        return false;
    bool const l_private = m_sentPrivate <= m_sentRoom;
    if (l_private)
    {
        if (!TypeAndSend(mainWindow->GetChatForm(m_peer), NextLine("pm", m_sentPrivate + 1)))
            return false;
        ++m_sentPrivate;
        return true;
    }
    if (!TypeAndSend(FormOfRoom(m_room), NextLine("room", m_sentRoom + 1)))
        return false;
    ++m_sentRoom;
    return true;
}

std::string ChatLoop::NextLine(char const* i_kind, std::uint32_t i_serial)
{
    std::string l_line = "soak " + std::string(i_kind) + ' ' + std::to_string(i_serial);
    int const l_words = m_random.bounded(0, 40);
    for (int l_word = 0; l_word < l_words; ++l_word)
        l_line += ' ' + std::string(c_words[m_random.bounded(static_cast<int>(std::size(c_words)))]);
    return l_line;
}

std::uint32_t ChatLoop::SerialOf(std::string const& i_chat, std::string const& i_kind)
{
    std::string const l_prefix = "soak " + i_kind + ' ';
    if (i_chat.compare(0, l_prefix.size(), l_prefix) != 0)
        return 0;
    std::uint32_t l_serial = 0;
    for (std::size_t l_at = l_prefix.size(); l_at < i_chat.size() && i_chat[l_at] != ' '; ++l_at)
    {
        if (i_chat[l_at] < '0' || i_chat[l_at] > '9' || l_serial > 100'000'000)
            return 0;
        l_serial = l_serial * 10 + static_cast<std::uint32_t>(i_chat[l_at] - '0');
    }
    return l_serial;
}

void ChatLoop::OnPrivateChat(std::string const& i_user, std::string const& i_chat, time_t, bool)
{
    ++m_received;
    std::uint32_t const l_serial = i_user == m_peer ? SerialOf(i_chat, "pm") : 0;
    if (l_serial == 0)
        ++m_strays;
    else
        m_peerPrivate.Arrived(l_serial);
}

void ChatLoop::OnRoomChat(std::string const& i_room, std::string const& i_user, std::string const& i_chat)
{
    ++m_received;
    std::uint32_t const l_serial = i_room == m_room ? SerialOf(i_chat, "room") : 0;
    if (l_serial != 0 && i_user == m_peer)
        m_peerRoom.Arrived(l_serial);
    else if (l_serial != 0 && i_user == m_self)
        m_ownRoom.Arrived(l_serial);
    else
        ++m_strays;
}

bool ChatLoop::AllArrived(std::uint32_t i_peerPrivate, std::uint32_t i_peerRoom) const
{
    return m_peerPrivate.Distinct() >= i_peerPrivate && m_peerRoom.Distinct() >= i_peerRoom &&
           m_ownRoom.Distinct() >= m_sentRoom;
}

std::string ChatLoop::Faults(std::uint32_t i_peerPrivate, std::uint32_t i_peerRoom) const
{
    std::string l_faults;
    auto const l_add = [&l_faults](char const* i_what, std::string const& i_fault) {
        if (!i_fault.empty())
            l_faults += std::string(i_what) + ": " + i_fault + '\n';
    };
    l_add("private lines from the peer", m_peerPrivate.Faults(i_peerPrivate));
    l_add("room lines from the peer", m_peerRoom.Faults(i_peerRoom));
    l_add("own room lines sent back", m_ownRoom.Faults(m_sentRoom));
    if (m_strays > 0)
        l_add("lines of no known sender or shape", std::to_string(m_strays));
    return l_faults;
}
