#pragma once

#include <QByteArray>
#include <QList>
#include <QMap>

class ClientConnection;
class SessionRegistry;

// Brings searches into the distributed tree at its roots, the clients without a parent,
// and names possible parents to the roots.
//
// A root is offered only roots that logged in before it and can take children. Every
// parent link then points from a younger session to an older one, so no two clients can
// pick each other, and a client that has a parent, and so may sit below the one asking,
// is never offered.
//
// Roots and possible parents are kept in indexes ordered by age, so that a report or an
// offer looks at a bounded number of entries however many sessions there are.
class SearchTree
{
public:
    static constexpr qsizetype c_maxPossibleParents = 10;
    // A new possible parent is named to this many younger roots, in turn across new
    // parents: a parent takes only a handful of children, and a crowd dialling it at once
    // would mostly be refused.
    static constexpr qsizetype c_rootsPerNewParent = 10;

    explicit SearchTree(SessionRegistry const& i_sessions);

    void Search(ClientConnection& i_searcher, quint32 i_token, QByteArray const& i_text,
        bool i_wishList);
    void SetListenPort(ClientConnection& i_client, quint32 i_port);
    void SetHasParent(ClientConnection& i_client, bool i_hasParent);
    void SetCanParent(ClientConnection& i_client, bool i_canParent);
    void SetHasChildren(ClientConnection& i_client, bool i_hasChildren);
    void SetLevel(ClientConnection& i_client, qint32 i_level);
    void SetGroupLeader(ClientConnection& i_client, QByteArray const& i_leader);
    // The session ends; it is neither offered nor offered to any more.
    void Forget(ClientConnection const& i_client);

    // Index entries looked at so far, by offers of either kind.
    quint64 Examined() const { return m_examined; }

private:
    static bool IsRoot(ClientConnection const& i_client);
    static bool CanBeParent(ClientConnection const& i_client);
    // Brings the client's index entries up to date; true when it has just become a
    // possible parent.
    bool Reindex(ClientConnection& i_client);
    // Sends message 102 when the client is a root and an older root can be its parent:
    // the oldest ones, and ip_newParent among them if it is given.
    void OfferParents(ClientConnection& i_client, ClientConnection* ip_newParent = nullptr);
    // A new possible parent: the next younger roots in turn hear of it.
    void OfferToYoungerRoots(ClientConnection& i_parent);

    SessionRegistry const& m_sessions;
    // By login sequence. An entry may stand for a session that is closing until it is
    // forgotten; the checks above skip it.
    QMap<quint64, ClientConnection*> m_roots;
    QMap<quint64, ClientConnection*> m_parents;
    // The last root a new parent was named to.
    quint64 m_lastOfferedRoot = 0;
    quint64 m_examined = 0;
};
