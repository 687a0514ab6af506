#include "SearchTree.h"

#include "ClientConnection.h"
#include "ServerLog.h"
#include "SessionRegistry.h"
#include "WireWriter.h"

#include <QStringList>

#include <algorithm>

namespace
{
constexpr quint8 c_distributedSearch = 3;
constexpr quint32 c_innerFileSearch = 49;

QString YesNo(bool i_value)
{
    return i_value ? QStringLiteral("yes") : QStringLiteral("no");
}
}

SearchTree::SearchTree(SessionRegistry const& i_sessions)
    : m_sessions(i_sessions)
{
}

void SearchTree::Search(ClientConnection& i_searcher, quint32 i_token, QByteArray const& i_text,
    bool i_wishList)
{
    QByteArray l_frame = WireWriter(93)
                             .U8(c_distributedSearch)
                             .U32(c_innerFileSearch)
                             .String(i_searcher.Name())
                             .U32(i_token)
                             .String(i_text)
                             .Frame();
    int l_count = 0;
    for (ClientConnection* lp_client : m_sessions.All())
    {
        if (lp_client == &i_searcher || lp_client->Tree().m_hasParent)
            continue;
        lp_client->Send(l_frame);
        ++l_count;
    }
    ServerLog::Write(QStringLiteral("%1 %2 token %3 to %4 clients")
            .arg(i_wishList ? QStringLiteral("wishlist search") : QStringLiteral("search"),
                ServerLog::Printable(i_searcher.Name()))
            .arg(i_token)
            .arg(l_count));
}

void SearchTree::SetHasParent(ClientConnection& i_client, bool i_hasParent)
{
    ClientConnection::TreeState& l_state = i_client.Tree();
    bool l_changed = !l_state.m_parentReported || l_state.m_hasParent != i_hasParent;
    l_state.m_parentReported = true;
    l_state.m_hasParent = i_hasParent;
    ServerLog::Write(QStringLiteral("has parent %1 %2")
            .arg(ServerLog::Printable(i_client.Name()), YesNo(i_hasParent)));
    if (i_hasParent || !l_changed)
        return;
    OfferParents(i_client);
    OfferToYoungerRoots(i_client);
}

void SearchTree::SetCanParent(ClientConnection& i_client, bool i_canParent)
{
    bool l_could = i_client.Tree().m_canParent;
    i_client.Tree().m_canParent = i_canParent;
    ServerLog::Write(QStringLiteral("can parent %1 %2")
            .arg(ServerLog::Printable(i_client.Name()), YesNo(i_canParent)));
    if (i_canParent && !l_could)
        OfferToYoungerRoots(i_client);
}

void SearchTree::SetHasChildren(ClientConnection& i_client, bool i_hasChildren)
{
    i_client.Tree().m_hasChildren = i_hasChildren;
    ServerLog::Write(QStringLiteral("child depth %1 %2")
            .arg(ServerLog::Printable(i_client.Name()), YesNo(i_hasChildren)));
}

void SearchTree::SetLevel(ClientConnection& i_client, qint32 i_level)
{
    i_client.Tree().m_level = i_level;
    ServerLog::Write(
        QStringLiteral("level %1 %2").arg(ServerLog::Printable(i_client.Name())).arg(i_level));
}

void SearchTree::SetGroupLeader(ClientConnection& i_client, QByteArray const& i_leader)
{
    i_client.Tree().m_groupLeader = i_leader;
    ServerLog::Write(QStringLiteral("group leader %1 %2")
            .arg(ServerLog::Printable(i_client.Name()), ServerLog::Printable(i_leader)));
}

bool SearchTree::IsRoot(ClientConnection const& i_client)
{
    return i_client.IsLoggedIn() && !i_client.IsClosing() && i_client.Tree().m_parentReported
        && !i_client.Tree().m_hasParent;
}

bool SearchTree::CanBeParent(ClientConnection const& i_client)
{
    return IsRoot(i_client) && i_client.Tree().m_canParent
        && i_client.ListenPort() != 0;
}

void SearchTree::OfferParents(ClientConnection& i_client)
{
    if (!IsRoot(i_client))
        return;
    // Sessions come in name order; the oldest roots are offered first.
    QList<ClientConnection*> l_parents;
    for (ClientConnection* lp_candidate : m_sessions.All())
    {
        if (lp_candidate->Sequence() < i_client.Sequence() && CanBeParent(*lp_candidate))
            l_parents.append(lp_candidate);
    }
    if (l_parents.isEmpty())
        return;
    std::sort(l_parents.begin(), l_parents.end(),
        [](ClientConnection* ip_left, ClientConnection* ip_right) {
            return ip_left->Sequence() < ip_right->Sequence();
        });
    if (l_parents.size() > c_maxPossibleParents)
        l_parents.resize(c_maxPossibleParents);

    WireWriter l_message(102);
    l_message.U32(static_cast<quint32>(l_parents.size()));
    QStringList l_names;
    for (ClientConnection* lp_parent : l_parents)
    {
        l_message.String(lp_parent->Name()).Address(lp_parent->PeerIPv4(), lp_parent->ListenPort());
        l_names.append(ServerLog::Printable(lp_parent->Name()));
    }
    i_client.Send(l_message.Frame());
    ServerLog::Write(QStringLiteral("possible parents for %1: %2")
            .arg(ServerLog::Printable(i_client.Name()), l_names.join(QStringLiteral(", "))));
}

void SearchTree::OfferToYoungerRoots(ClientConnection& i_parent)
{
    if (!CanBeParent(i_parent))
        return;
    for (ClientConnection* lp_client : m_sessions.All())
    {
        if (lp_client->Sequence() > i_parent.Sequence())
            OfferParents(*lp_client);
    }
}
