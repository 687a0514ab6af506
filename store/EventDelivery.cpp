#include "store/EventDelivery.h"

#include "store/EventHandler.h"

EventDelivery::Walk::~Walk()
{
    if (--s_depth == 0 && !s_graves.empty())
        Flush();
}

void EventDelivery::Bury(EventHandlerRoot* ip_handler)
{
    BuryLater([](void* ip_object) { delete static_cast<EventHandlerRoot*>(ip_object); }, ip_handler);
}

void EventDelivery::BuryLater(void (*i_deleter)(void*), void* ip_object)
{
    s_graves.push_back({i_deleter, ip_object});
    if (s_depth == 0)
        Flush();
}

void EventDelivery::Flush()
{
    // A destructor may bury more; keep going until nothing is left.
    while (!s_graves.empty())
    {
        std::vector<Grave> l_graves;
        l_graves.swap(s_graves);
        for (Grave const& l_grave : l_graves)
            l_grave.m_deleter(l_grave.mp_object);
    }
}
