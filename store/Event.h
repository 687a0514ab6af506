#pragma once

#include <set>

#include "store/EventDelivery.h"
#include "store/EventHandler.h"

// A multicast event that owns its handlers. Delivery walks a copy of the set, so handlers
// may add, mark or destroy listeners while it runs.
template <class Arg>
class Event
{
public:
    using Handler = EventHandlerBase<Arg>;
    using HandlerSet = std::set<Handler*>;

    Event() = default;
    Event(Event const&) = delete;
    Event& operator=(Event const&) = delete;
    ~Event()
    {
        for (Handler* lp_handler : m_handlers)
            delete lp_handler;
    }

    // Listeners that went are taken out here too, not only at the next delivery: an event that
    // is seldom delivered would otherwise keep every listener that ever left it.
    void Add(Handler* ip_handler)
    {
        for (auto l_at = m_handlers.begin(); l_at != m_handlers.end();)
        {
            if (!(*l_at)->m_removed)
            {
                ++l_at;
                continue;
            }
            EventDelivery::Bury(*l_at);
            l_at = m_handlers.erase(l_at);
        }
        m_handlers.insert(ip_handler);
    }
    std::size_t Size() const { return m_handlers.size(); }

    void Notify(Arg& i_arg)
    {
        if (m_handlers.empty())
            return;
        Deliver(HandlerSet(m_handlers), i_arg,
                [this](Handler* ip_handler) { return m_handlers.erase(ip_handler) > 0; });
    }

    // The walk shared by every event and by the type-pair handler sets of the graph: each
    // live handler of the copy is called at its turn, each marked one is taken out of the
    // live set (by i_erase, which says whether it was still there) and buried.
    template <class A, class EraseFn>
    static void Deliver(std::set<EventHandlerBase<A>*> const& i_copy, A& i_arg, EraseFn i_erase)
    {
        EventDelivery::Walk l_walk;
        for (EventHandlerBase<A>* lp_handler : i_copy)
        {
            if (!lp_handler->m_removed)
                lp_handler->Handle(i_arg);
            else if (i_erase(lp_handler))
                EventDelivery::Bury(lp_handler);
        }
    }

private:
    HandlerSet m_handlers;
};
