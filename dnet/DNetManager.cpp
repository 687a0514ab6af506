#include "dnet/DNetManager.h"

#include <cstdint>

DNetManager* dnetManager = nullptr;

namespace
{
constexpr std::uint8_t s_searchCode = 3;
constexpr std::uint32_t s_indirectSearch = 49;
} // namespace

DNetManager::DNetManager(QObject* ip_parent) : QObject(ip_parent)
{
    dnetManager = this;
}

DNetManager::~DNetManager()
{
    dnetManager = nullptr;
}

void DNetManager::OnDNetMessage(MemStream& i_message)
{
    std::uint8_t l_code = 0;
    std::uint32_t l_inner = 0;
    if (!i_message.Read(l_code) || l_code != s_searchCode || !i_message.Read(l_inner) || l_inner != s_indirectSearch)
        return;
    std::string l_user;
    std::uint32_t l_req = 0;
    std::string l_text;
    if (i_message.Read(l_user) && i_message.Read(l_req) && i_message.Read(l_text))
        emit DNetSearchRequest(l_user, l_req, l_text);
}
