#include "forms/WishListSearcher.h"

#include <limits>

#include "server/Server.h"
#include "store/Data.h"
#include "store/Log.h"
#include "store/Settings.h"

WishListSearcher* wishListSearcher = nullptr;

WishListSearcher::WishListSearcher(QObject* ip_parent) : QObject(ip_parent)
{
    wishListSearcher = this;
    SetVGlobal("wish_list_search_index", 0);
    connect(&m_timer, &QTimer::timeout, this, &WishListSearcher::OnSearchTimerTimeout);
    connect(gp_server, &Server::WishListWait, this, &WishListSearcher::OnWishListWait);
}

WishListSearcher::~WishListSearcher()
{
    if (wishListSearcher == this)
        wishListSearcher = nullptr;
}

void WishListSearcher::OnWishListWait(unsigned int i_waitPeriod)
{
    SetVGlobal("wish_list_wait", i_waitPeriod);
    m_timer.stop();
    long long const l_milliseconds = static_cast<long long>(i_waitPeriod) * 1000;
    Log(QStringLiteral("Wish List"), 1, QStringLiteral("Wish list wait period set to %1 milliseconds").arg(l_milliseconds));
    // A period of 0 would search on every turn of the event loop: it stops the searches.
    if (i_waitPeriod == 0)
        return;
    m_timer.setInterval(static_cast<int>(std::min<long long>(l_milliseconds, std::numeric_limits<int>::max())));
    m_timer.setSingleShot(false);
    m_timer.start();
}

void WishListSearcher::OnSearchTimerTimeout()
{
    int const l_index = GetVGlobalValue("wish_list_search_index").AsInt();
    std::list<Item*> const l_items =
        ItemPtr(d.GetType("wish_list_item_enabled")->GetGlobalNullItem()).GetItems("wish_list_item").SortAlphabetic(true);
    if (l_items.empty())
        return;
    int const l_count = static_cast<int>(l_items.size());
    ItemPtr const l_item = *std::next(l_items.begin(), l_index < 0 ? 0 : l_index % l_count);
    std::string const l_text = l_item.AsString();
    gp_server->FileSearch(l_text, true);
    Log(QStringLiteral("Wish List"), 1, QStringLiteral("Sent wish list search: %1").arg(QString::fromUtf8(l_text)));
    int const l_next = l_index + 1;
    SetVGlobal("wish_list_search_index", l_next >= l_count || l_next < 0 ? 0 : l_next);
}
