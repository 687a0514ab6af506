#pragma once

#include <set>

#include "store/ConnectionInfo.h"
#include "store/EventHandler.h"

class Item;
class PathNode;
class Type;

// Base of everything that listens to the graph. It lists the handlers it made, so that its
// destruction marks them all; they are freed lazily by the events that hold them.
class DataHandler
{
public:
    DataHandler() = default;
    DataHandler(DataHandler const&) = delete;
    DataHandler& operator=(DataHandler const&) = delete;
    virtual ~DataHandler() { RemoveDataHandlers(); }

    void RemoveDataHandlers()
    {
        for (EventHandlerRoot* lp_handler : m_handlers)
            lp_handler->m_removed = true;
        m_handlers.clear();
    }

protected:
    template <class Class, class Arg>
    EventHandler<Class, Arg>* MakeHandler(void (Class::*i_method)(Arg))
    {
        auto* lp_handler = new EventHandler<Class, Arg>(static_cast<Class*>(this), i_method);
        m_handlers.insert(lp_handler);
        return lp_handler;
    }

    // Registration shortcuts; each makes one handler listed by this object.
    template <class Class>
    void ListenItemAdded(char const* i_typeName, void (Class::*i_method)(Item*));
    template <class Class>
    void ListenItemRemoved(char const* i_typeName, void (Class::*i_method)(Item*));
    template <class Class>
    void ListenConnection(char const* i_typeName, void (Class::*i_method)(ConnectionInfo));
    template <class Class>
    void ListenDisconnection(char const* i_typeName, void (Class::*i_method)(ConnectionInfo));
    template <class Class>
    void ListenPairConnection(char const* i_first, char const* i_second,
                              void (Class::*i_method)(ConnectionInfo&));
    template <class Class>
    void ListenPairDisconnection(char const* i_first, char const* i_second,
                                 void (Class::*i_method)(ConnectionInfo&));
    template <class Class>
    void ListenPath(PathNode* ip_root, void (Class::*i_method)(Item*));

    std::set<EventHandlerRoot*> m_handlers;
};

// The template definitions follow Data, in store/DataHandler.inl.
