#pragma once

#include <QString>
#include <string>

// The lines of the chat views, rooms and private chats alike. Everything from the server is
// shown as text: the bytes are decoded as UTF-8, markup is escaped, and only web addresses
// become links.

// The sender in blue between brackets, then the text.
QString ChatLine(std::string const& i_user, std::string const& i_text);

// A line of the client's own, in green after a star.
QString StatusLine(QString const& i_text);
