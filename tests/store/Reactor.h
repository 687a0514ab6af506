#pragma once

#include <functional>
#include <utility>

#include "store/Data.h"

// A listener whose reaction to items added, removed or matching a path is set by the test.
class Reactor : public DataHandler
{
public:
    explicit Reactor(std::function<void(Item*)> i_reaction = {}) : m_reaction(std::move(i_reaction)) {}

    Reactor& Added(Type* ip_type) { ip_type->m_itemAddedEvent.Add(MakeHandler(&Reactor::On)); return *this; }
    Reactor& Removed(Type* ip_type) { ip_type->m_itemRemovedEvent.Add(MakeHandler(&Reactor::On)); return *this; }
    Reactor& Path(PathNode* ip_root) { ListenPath(ip_root, &Reactor::On); return *this; }
    void On(Item* ip_item)
    {
        ++m_calls;
        if (m_reaction)
            m_reaction(ip_item); // may destroy this listener, so nothing of it is touched after
    }

    std::function<void(Item*)> m_reaction;
    int m_calls = 0;
};
