#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QMap>

class ClientConnection;

// Brings searches into the distributed tree where it begins, at the clients without a parent,
// and names possible parents to those clients.
//
// Every name has a rank: the order of its first login in this run, kept when the name logs in
// again. A client is named only parents of lower rank, so every parent link points from a
// higher rank to a lower one and no cycle can form, not even when a parent comes back in a new
// session after its children. Among the parents it may have, a client is named the youngest
// ranks first, never one it was named before in the same session.
//
// Sessions are kept in indexes by rank, so that a report or an offer looks at a bounded number
// of entries however many sessions there are.
class SearchTree
{
public:
    // A parent that appears is named to at most this many waiting clients per report, the
    // next ones in turn across reports.
    static constexpr qsizetype c_waitingPerNewParent = 64;

    // i_possibleParents names make a full list.
    explicit SearchTree(quint32 i_possibleParents);

    // The name's rank, given at its first call in this run.
    quint64 RankOf(QByteArray const& i_name);
    // A session logged in under its name's rank; searches reach it until it reports a parent.
    void Join(ClientConnection& i_client);
    // The session ends; it is neither offered nor offered to any more.
    void Forget(ClientConnection const& i_client);

    void Search(ClientConnection& i_searcher, quint32 i_token, QByteArray const& i_text,
        bool i_wishList);
    void SetListenPort(ClientConnection& i_client, quint32 i_port);
    void SetHasParent(ClientConnection& i_client, bool i_hasParent);
    void SetCanParent(ClientConnection& i_client, bool i_canParent);
    void SetHasChildren(ClientConnection& i_client, bool i_hasChildren);
    void SetLevel(ClientConnection& i_client, qint32 i_level);
    void SetGroupLeader(ClientConnection& i_client, QByteArray const& i_leader);

    // Index entries looked at so far, by offers of either kind.
    quint64 Examined() const { return m_examined; }

private:
    static bool CanBeParent(ClientConnection const& i_client);
    static bool IsWaiting(ClientConnection const& i_client);
    // Brings the client's entry in the parent index up to date; true when it has just become
    // a possible parent.
    bool ReindexParent(ClientConnection& i_client);
    // Sends message 102 with up to a full list of parents the client has not been named.
    void OfferParents(ClientConnection& i_client);
    // A parent that appears is named to the next waiting clients of higher rank.
    void OfferToWaiting(ClientConnection& i_parent);
    // Sends the list, youngest first, notes the names as named and takes them from what the
    // client still waits for.
    void Name(ClientConnection& i_client, QList<ClientConnection*> const& i_parents);

    qsizetype m_possibleParents;
    QHash<QByteArray, quint64> m_ranks;
    // Logged in and not known to have a parent: where searches enter.
    QMap<quint64, ClientConnection*> m_parentless;
    // Logged in, taking children and listening.
    QMap<quint64, ClientConnection*> m_parents;
    // Said they have no parent, and were named fewer than a full list since.
    QMap<quint64, ClientConnection*> m_waiting;
    // The last waiting client a new parent was named to.
    quint64 m_lastOffered = 0;
    quint64 m_examined = 0;
};
