#pragma once

#include <QString>
#include <string>

class QTextBrowser;

// The lines of the chat views, rooms and private chats alike. Everything from the server is
// shown as text: the bytes are decoded as UTF-8, markup is escaped, and only web addresses
// become links.

// The sender in blue between brackets, then the text.
QString ChatLine(std::string const& i_user, std::string const& i_text);

// A line of the client's own, in green after a star.
QString StatusLine(QString const& i_text);

// A chat view keeps at most this much HTML; past it the oldest part is cut in one go. A room or
// a conversation may run for days, and a view that kept every line would grow without end.
constexpr qsizetype c_maxChatHtml = 250000;
constexpr qsizetype c_chatHtmlCut = 50000;

// Appends the line to the view, first cutting the oldest part at a line end when the view holds
// more than its bound.
void AppendChatLine(QTextBrowser* ip_view, QString const& i_html);
