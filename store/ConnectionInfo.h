#pragma once

class Item;

// The two items of a connection or disconnection event, as the listener sees them.
struct ConnectionInfo
{
    Item* m_from = nullptr;
    Item* m_to = nullptr;
};
