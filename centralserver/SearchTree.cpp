#include "SearchTree.h"

#include "ClientConnection.h"
#include "ServerLimits.h"
#include "ServerLog.h"
#include "WireWriter.h"

#include <QStringList>


namespace
{
constexpr quint8 c_distributedSearch = 3;
constexpr quint32 c_innerFileSearch = 49;

QString YesNo(bool i_value)
{
    return i_value ? QStringLiteral("yes") : QStringLiteral("no");
}

// Removes the client's entry only while it is the client's: a newer session of the name holds
// the same rank.
void Remove(QMap<quint64, ClientConnection*>& io_index, ClientConnection const& i_client)
{
    auto const l_found = io_index.find(i_client.Rank());
    if (l_found != io_index.end() && l_found.value() == &i_client)
        io_index.erase(l_found);
}
}

SearchTree::SearchTree(quint32 i_possibleParents)
    : m_possibleParents(i_possibleParents)
{
}

quint64 SearchTree::RankOf(QByteArray const& i_name)
{
    auto l_found = m_ranks.constFind(i_name);
    if (l_found == m_ranks.constEnd())
        l_found = m_ranks.insert(i_name, static_cast<quint64>(m_ranks.size()) + 1);
    return *l_found;
}

void SearchTree::Join(ClientConnection& i_client)
{
    m_parentless.insert(i_client.Rank(), &i_client);
}

void SearchTree::Forget(ClientConnection const& i_client)
{
    Remove(m_parentless, i_client);
    Remove(m_parents, i_client);
    Remove(m_waiting, i_client);
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
    // A copy, so that a send that closes a client cannot disturb the walk.
    for (ClientConnection* lp_client : m_parentless.values())
    {
        if (lp_client == &i_searcher || lp_client->IsClosing())
            continue;
        lp_client->Send(l_frame);
        ++l_count;
    }
    ServerLog::Write(QStringLiteral("%1 %2 token %3 to %4 clients for \"%5\"")
            .arg(i_wishList ? QStringLiteral("wishlist search") : QStringLiteral("search"),
                ServerLog::Printable(i_searcher.Name()))
            .arg(i_token)
            .arg(l_count)
            .arg(ServerLog::Printable(i_text)));
}

void SearchTree::SetListenPort(ClientConnection& i_client, quint32 i_port)
{
    i_client.SetListenPort(i_port);
    if (ReindexParent(i_client))
        OfferToWaiting(i_client);
}

void SearchTree::SetHasParent(ClientConnection& i_client, bool i_hasParent)
{
    ClientConnection::TreeState& l_state = i_client.Tree();
    l_state.m_parentReported = true;
    l_state.m_hasParent = i_hasParent;
    ServerLog::Write(QStringLiteral("has parent %1 %2")
            .arg(ServerLog::Printable(i_client.Name()), YesNo(i_hasParent)));
    if (i_hasParent)
    {
        Remove(m_parentless, i_client);
        l_state.m_wanted = 0;
        Remove(m_waiting, i_client);
        return;
    }
    if (i_client.IsLoggedIn())
        m_parentless.insert(i_client.Rank(), &i_client);
    // Every report of no parent asks anew: a child whose parent has left needs others than
    // those it tried.
    l_state.m_wanted = m_possibleParents;
    OfferParents(i_client);
}

void SearchTree::SetCanParent(ClientConnection& i_client, bool i_canParent)
{
    i_client.Tree().m_canParent = i_canParent;
    ServerLog::Write(QStringLiteral("can parent %1 %2")
            .arg(ServerLog::Printable(i_client.Name()), YesNo(i_canParent)));
    if (ReindexParent(i_client))
        OfferToWaiting(i_client);
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

bool SearchTree::CanBeParent(ClientConnection const& i_client)
{
    return i_client.IsLoggedIn() && !i_client.IsClosing() && i_client.Tree().m_canParent
        && i_client.ListenPort() != 0;
}

bool SearchTree::IsWaiting(ClientConnection const& i_client)
{
    ClientConnection::TreeState const& l_state = i_client.Tree();
    return i_client.IsLoggedIn() && !i_client.IsClosing() && l_state.m_parentReported
        && !l_state.m_hasParent && l_state.m_wanted > 0;
}

bool SearchTree::ReindexParent(ClientConnection& i_client)
{
    if (!CanBeParent(i_client))
    {
        Remove(m_parents, i_client);
        return false;
    }
    bool const l_isNew = m_parents.value(i_client.Rank()) != &i_client;
    m_parents.insert(i_client.Rank(), &i_client);
    return l_isNew;
}

void SearchTree::OfferParents(ClientConnection& i_client)
{
    QList<ClientConnection*> l_parents;
    if (IsWaiting(i_client))
    {
        ClientConnection::TreeState const& l_state = i_client.Tree();
        qsizetype const l_most = qMin(l_state.m_wanted, ServerLimits::c_maxNamedPerSession - l_state.m_named.size());
        // Downwards from the client's own rank: the youngest lower ranks first. The names
        // skipped are at most those named to the session before, which are bounded.
        for (auto l_entry = m_parents.lowerBound(i_client.Rank());
             l_entry != m_parents.cbegin() && l_parents.size() < l_most;)
        {
            --l_entry;
            ++m_examined;
            if (!l_state.m_named.contains(l_entry.key()) && CanBeParent(*l_entry.value()))
                l_parents.append(l_entry.value());
        }
    }
    Name(i_client, l_parents);
}

void SearchTree::OfferToWaiting(ClientConnection& i_parent)
{
    quint64 const l_rank = i_parent.Rank();
    // From the client after the one looked at last, round to the first client above the
    // parent's rank, so that successive new parents reach all waiting clients in turn.
    auto const l_first = m_waiting.upperBound(l_rank);
    auto const l_start = m_waiting.upperBound(qMax(l_rank, m_lastOffered));
    QList<ClientConnection*> l_clients;
    qsizetype l_looked = 0;
    auto const l_collect = [&](auto i_from, auto i_to) {
        for (auto l_entry = i_from; l_entry != i_to && l_looked < c_waitingPerNewParent; ++l_entry)
        {
            ++l_looked;
            ++m_examined;
            m_lastOffered = l_entry.key();
            if (IsWaiting(*l_entry.value()) && !l_entry.value()->Tree().m_named.contains(l_rank))
                l_clients.append(l_entry.value());
        }
    };
    l_collect(l_start, m_waiting.cend());
    l_collect(l_first, l_start);
    // Collected first: naming changes the index, and a send may close a client.
    for (ClientConnection* lp_client : l_clients)
        Name(*lp_client, {&i_parent});
}

void SearchTree::Name(ClientConnection& i_client, QList<ClientConnection*> const& i_parents)
{
    ClientConnection::TreeState& l_state = i_client.Tree();
    if (!i_parents.isEmpty())
    {
        WireWriter l_message(102);
        l_message.U32(static_cast<quint32>(i_parents.size()));
        QStringList l_names;
        for (ClientConnection* lp_parent : i_parents)
        {
            l_message.String(lp_parent->Name()).Address(lp_parent->PeerIPv4(), lp_parent->ListenPort());
            l_names.append(ServerLog::Printable(lp_parent->Name()));
            l_state.m_named.insert(lp_parent->Rank());
        }
        i_client.Send(l_message.Frame());
        ServerLog::Write(QStringLiteral("possible parents for %1: %2")
                .arg(ServerLog::Printable(i_client.Name()), l_names.join(QStringLiteral(", "))));
    }
    l_state.m_wanted = l_state.m_named.size() >= ServerLimits::c_maxNamedPerSession
        ? 0
        : qMax<qsizetype>(0, l_state.m_wanted - i_parents.size());
    if (IsWaiting(i_client))
        m_waiting.insert(i_client.Rank(), &i_client);
    else
        Remove(m_waiting, i_client);
}
