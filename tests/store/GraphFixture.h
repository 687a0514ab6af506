#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "store/Data.h"

// A fresh graph per test, with a small schema shaped like the client's own.
class GraphFixture : public ::testing::Test
{
protected:
    GraphFixture();

    Data m_data;
    Type* mp_global;
    Type* mp_globalValue;
    Type* mp_user;
    Type* mp_isOnline;
    Type* mp_inUserList;
    Type* mp_room;
    Type* mp_request;
    Type* mp_results;
    Type* mp_socket;
};

// Records every event it hears, as "kind:from>to" lines, in delivery order.
class Recorder : public DataHandler
{
public:
    explicit Recorder(Data& io_data) : mr_data(io_data) {}

    void ListenType(Type* ip_type);
    void ListenData();
    void ListenPair(Type* ip_first, Type* ip_second);
    void ListenPath(PathNode* ip_root);

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

    static std::string Name(Item* ip_item);
    static std::string Describe(ConnectionInfo const& i_info);

    Data& mr_data;
    std::vector<std::string> m_lines;
    std::vector<Item*> m_paths;
};
