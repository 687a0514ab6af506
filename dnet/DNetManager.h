#pragma once

#include <QObject>

#include <string>

#include "stream/MemStream.h"

// The client's place in the distributed search tree. For now it carries the one way a search
// reaches this client: a distributed message from the server holding a search request.
class DNetManager : public QObject
{
    Q_OBJECT
public:
    explicit DNetManager(QObject* ip_parent = nullptr);
    ~DNetManager() override;

public slots:
    void OnDNetMessage(MemStream& i_message);

signals:
    void DNetSearchRequest(std::string const& i_user, quint32 i_req, std::string const& i_searchText);
};

extern DNetManager* dnetManager;
