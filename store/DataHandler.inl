#pragma once

// Definitions of DataHandler's registration shortcuts; included at the end of store/Data.h.

template <class Class>
void DataHandler::ListenItemAdded(char const* i_typeName, void (Class::*i_method)(Item*))
{
    d.GetType(i_typeName)->m_itemAddedEvent.Add(MakeHandler(i_method));
}

template <class Class>
void DataHandler::ListenItemRemoved(char const* i_typeName, void (Class::*i_method)(Item*))
{
    d.GetType(i_typeName)->m_itemRemovedEvent.Add(MakeHandler(i_method));
}

template <class Class>
void DataHandler::ListenConnection(char const* i_typeName, void (Class::*i_method)(ConnectionInfo))
{
    d.GetType(i_typeName)->m_connectionEvent.Add(MakeHandler(i_method));
}

template <class Class>
void DataHandler::ListenDisconnection(char const* i_typeName, void (Class::*i_method)(ConnectionInfo))
{
    d.GetType(i_typeName)->m_disconnectionEvent.Add(MakeHandler(i_method));
}

template <class Class>
void DataHandler::ListenPairConnection(char const* i_first, char const* i_second,
                                       void (Class::*i_method)(ConnectionInfo&))
{
    d.AddConnectionEventHandler(d.GetType(i_first), d.GetType(i_second), MakeHandler(i_method));
}

template <class Class>
void DataHandler::ListenPairDisconnection(char const* i_first, char const* i_second,
                                          void (Class::*i_method)(ConnectionInfo&))
{
    d.AddDisconnectionEventHandler(d.GetType(i_first), d.GetType(i_second), MakeHandler(i_method));
}

template <class Class>
void DataHandler::ListenPath(PathNode* ip_root, void (Class::*i_method)(Item*))
{
    ip_root->mp_data->AddPathEventHandler(ip_root, MakeHandler(i_method));
}
