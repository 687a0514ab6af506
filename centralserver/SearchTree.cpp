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

void SearchTree::SetListenPort(ClientConnection& i_client, quint32 i_port)
{
    i_client.SetListenPort(i_port);
    if (Reindex(i_client))
        OfferToYoungerRoots(i_client);
}

void SearchTree::SetHasParent(ClientConnection& i_client, bool i_hasParent)
{
    ClientConnection::TreeState& l_state = i_client.Tree();
    bool l_changed = !l_state.m_parentReported || l_state.m_hasParent != i_hasParent;
    l_state.m_parentReported = true;
    l_state.m_hasParent = i_hasParent;
    ServerLog::Write(QStringLiteral("has parent %1 %2")
            .arg(ServerLog::Printable(i_client.Name()), YesNo(i_hasParent)));
    bool l_newParent = Reindex(i_client);
    if (i_hasParent || !l_changed)
        return;
    OfferParents(i_client);
    if (l_newParent)
        OfferToYoungerRoots(i_client);
}

void SearchTree::SetCanParent(ClientConnection& i_client, bool i_canParent)
{
    i_client.Tree().m_canParent = i_canParent;
    ServerLog::Write(QStringLiteral("can parent %1 %2")
            .arg(ServerLog::Printable(i_client.Name()), YesNo(i_canParent)));
    if (Reindex(i_client))
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

void SearchTree::Forget(ClientConnection const& i_client)
{
    m_roots.remove(i_client.Sequence());
    m_parents.remove(i_client.Sequence());
}

bool SearchTree::Reindex(ClientConnection& i_client)
{
    quint64 const l_key = i_client.Sequence();
    if (IsRoot(i_client))
        m_roots.insert(l_key, &i_client);
    else
        m_roots.remove(l_key);
    if (!CanBeParent(i_client))
    {
        m_parents.remove(l_key);
        return false;
    }
    bool const l_isNew = !m_parents.contains(l_key);
    m_parents.insert(l_key, &i_client);
    return l_isNew;
}

void SearchTree::OfferParents(ClientConnection& i_client, ClientConnection* ip_newParent)
{
    if (!IsRoot(i_client))
        return;
    // The index is in login order, so the oldest roots come first; the new parent takes
    // the last place if it is not among them.
    qsizetype const l_oldest = ip_newParent ? c_maxPossibleParents - 1 : c_maxPossibleParents;
    QList<ClientConnection*> l_parents;
    for (auto l_entry = m_parents.cbegin();
         l_entry != m_parents.cend() && l_entry.key() < i_client.Sequence()
         && l_parents.size() < l_oldest;
         ++l_entry)
    {
        ++m_examined;
        if (l_entry.value() != ip_newParent && CanBeParent(*l_entry.value()))
            l_parents.append(l_entry.value());
    }
    if (ip_newParent)
    {
        auto l_at = std::upper_bound(l_parents.begin(), l_parents.end(), ip_newParent,
            [](ClientConnection* ip_left, ClientConnection* ip_right) {
                return ip_left->Sequence() < ip_right->Sequence();
            });
        l_parents.insert(l_at, ip_newParent);
    }
    if (l_parents.isEmpty())
        return;

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
    // From the root after the one named last, round to the first root younger than the
    // parent, so that successive new parents reach all roots in turn.
    auto const l_first = m_roots.upperBound(i_parent.Sequence());
    auto const l_start = m_roots.upperBound(qMax(i_parent.Sequence(), m_lastOfferedRoot));
    QList<ClientConnection*> l_roots;
    auto const l_collect = [&](auto i_from, auto i_to) {
        for (auto l_entry = i_from; l_entry != i_to && l_roots.size() < c_rootsPerNewParent;
             ++l_entry)
        {
            ++m_examined;
            if (IsRoot(*l_entry.value()))
                l_roots.append(l_entry.value());
        }
    };
    l_collect(l_start, m_roots.cend());
    l_collect(l_first, l_start);
    // Collected first: offering sends, and a send may close a root.
    for (ClientConnection* lp_root : l_roots)
    {
        OfferParents(*lp_root, &i_parent);
        m_lastOfferedRoot = lp_root->Sequence();
    }
}
