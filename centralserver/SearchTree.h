#pragma once

#include <QByteArray>
#include <QList>

class ClientConnection;
class SessionRegistry;

// Brings searches into the distributed tree at its roots, the clients without a parent,
// and names possible parents to the roots.
//
// A root is offered only roots that logged in before it and can take children. Every
// parent link then points from a younger session to an older one, so no two clients can
// pick each other, and a client that has a parent, and so may sit below the one asking,
// is never offered.
class SearchTree
{
public:
    static constexpr qsizetype c_maxPossibleParents = 10;

    explicit SearchTree(SessionRegistry const& i_sessions);

    void Search(ClientConnection& i_searcher, quint32 i_token, QByteArray const& i_text,
        bool i_wishList);
    void SetHasParent(ClientConnection& i_client, bool i_hasParent);
    void SetCanParent(ClientConnection& i_client, bool i_canParent);
    void SetHasChildren(ClientConnection& i_client, bool i_hasChildren);
    void SetLevel(ClientConnection& i_client, qint32 i_level);
    void SetGroupLeader(ClientConnection& i_client, QByteArray const& i_leader);

private:
    static bool IsRoot(ClientConnection const& i_client);
    static bool CanBeParent(ClientConnection const& i_client);
    // Sends message 102 when the client is a root and an older root can be its parent.
    void OfferParents(ClientConnection& i_client);
    // A new possible parent: the younger roots hear of it.
    void OfferToYoungerRoots(ClientConnection& i_parent);

    SessionRegistry const& m_sessions;
};
