#pragma once

#include <vector>

class EventHandlerRoot;

// Keeps marked handlers (and other objects a walk may still hold) alive until the outermost
// delivery on the main thread has returned, so that a walk further up the stack never follows
// a freed pointer. The graph is single-threaded, so one counter serves every event.
class EventDelivery
{
public:
    class Walk
    {
    public:
        Walk() { ++s_depth; }
        ~Walk();
        Walk(Walk const&) = delete;
        Walk& operator=(Walk const&) = delete;
    };

    static void Bury(EventHandlerRoot* ip_handler);
    static void BuryLater(void (*i_deleter)(void*), void* ip_object);
    static int Depth() { return s_depth; }

private:
    struct Grave
    {
        void (*m_deleter)(void*);
        void* mp_object;
    };
    static void Flush();

    static inline int s_depth = 0;
    static inline std::vector<Grave> s_graves;
};
