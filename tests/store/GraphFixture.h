#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Reactor.h"
#include "store/Data.h"

// A fresh graph per test, with a small schema shaped like the client's own.
class GraphFixture : public ::testing::Test
{
protected:
    GraphFixture();

    Data m_data;
    Type *mp_global, *mp_globalValue, *mp_user, *mp_isOnline, *mp_inUserList, *mp_room, *mp_socket;
    Type *mp_request, *mp_results, *mp_order, *mp_folder, *mp_entry, *mp_attrA, *mp_attrB, *mp_pcr, *mp_group;
};

// Records every event it hears, as "kind:from>to" lines, in delivery order.
class Recorder : public DataHandler
{
public:
    explicit Recorder(Data& io_data) : mr_data(io_data) {}

    void ListenType(Type* ip_type)
    {
        ip_type->m_itemAddedEvent.Add(MakeHandler(&Recorder::OnAdded));
        ip_type->m_itemRemovedEvent.Add(MakeHandler(&Recorder::OnRemoved));
        ip_type->m_connectionEvent.Add(MakeHandler(&Recorder::OnConnection));
        ip_type->m_disconnectionEvent.Add(MakeHandler(&Recorder::OnDisconnection));
    }
    void ListenData()
    {
        mr_data.m_connectionEvent.Add(MakeHandler(&Recorder::OnDataConnection));
        mr_data.m_disconnectionEvent.Add(MakeHandler(&Recorder::OnDataDisconnection));
    }
    void ListenPair(Type* ip_first, Type* ip_second)
    {
        mr_data.AddConnectionEventHandler(ip_first, ip_second, MakeHandler(&Recorder::OnPairConnection));
        mr_data.AddDisconnectionEventHandler(ip_first, ip_second, MakeHandler(&Recorder::OnPairDisconnection));
    }
    void ListenPath(PathNode* ip_root) { DataHandler::ListenPath(ip_root, &Recorder::OnPath); }

    void OnAdded(Item* ip_item) { m_lines.push_back("added:" + ip_item->AsString()); }
    void OnRemoved(Item* ip_item) { m_lines.push_back("removed:" + ip_item->AsString()); }
    void OnConnection(ConnectionInfo i_info) { m_lines.push_back("conn:" + Describe(i_info)); }
    void OnDisconnection(ConnectionInfo i_info) { m_lines.push_back("disc:" + Describe(i_info)); }
    void OnDataConnection(ConnectionInfo i_info) { m_lines.push_back("dconn:" + Describe(i_info)); }
    void OnDataDisconnection(ConnectionInfo i_info) { m_lines.push_back("ddisc:" + Describe(i_info)); }
    void OnPairConnection(ConnectionInfo& i_info) { m_lines.push_back("pconn:" + Describe(i_info)); }
    void OnPairDisconnection(ConnectionInfo& i_info) { m_lines.push_back("pdisc:" + Describe(i_info)); }
    void OnPath(Item* ip_root)
    {
        m_paths.push_back(ip_root);
        m_lines.push_back("path:" + (ip_root ? Name(ip_root) : std::string("null")));
    }

    static std::string Name(Item* ip_item) { return ip_item->GetType()->IsNull() ? ip_item->GetType()->GetName() : ip_item->AsString(); }
    static std::string Describe(ConnectionInfo const& i_info) { return Name(i_info.m_from) + ">" + Name(i_info.m_to); }

    Data& mr_data;
    std::vector<std::string> m_lines;
    std::vector<Item*> m_paths;
};
