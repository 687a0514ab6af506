#include "forms/ChatLine.h"

#include <QTextBrowser>

#include "stream/RichText.h"

namespace
{
QString Decoded(std::string const& i_bytes)
{
    // By length, so that a NUL does not cut the text short. A NUL has no glyph: it shows as
    // the mark of an unreadable byte, as bytes that are not UTF-8 do.
    return QString::fromUtf8(i_bytes.data(), static_cast<qsizetype>(i_bytes.size()))
        .replace(QChar(u'\0'), QChar::ReplacementCharacter);
}
} // namespace

QString ChatLine(std::string const& i_user, std::string const& i_text)
{
    return ConvertLinks(QStringLiteral("[<font color=\"blue\">") + EscapeHTML(Decoded(i_user)) +
                        QStringLiteral("</font>] ") + EscapeHTML(Decoded(i_text)));
}

QString StatusLine(QString const& i_text)
{
    return ConvertLinks(QStringLiteral("* <font color=\"green\">") + EscapeHTML(i_text) + QStringLiteral("</font>"));
}

void AppendChatLine(QTextBrowser* ip_view, QString const& i_html)
{
    QString l_html = ip_view->document()->toHtml();
    if (l_html.size() <= c_maxChatHtml)
    {
        ip_view->append(i_html);
        return;
    }
    // Cut at a line end, so that the view starts with a whole line.
    qsizetype const l_lineEnd = l_html.indexOf(QLatin1Char('\n'), c_chatHtmlCut);
    l_html.remove(0, l_lineEnd < 0 ? l_html.size() : l_lineEnd + 1);
    ip_view->setUpdatesEnabled(false);
    ip_view->clear();
    ip_view->append(l_html);
    ip_view->append(i_html);
    ip_view->setUpdatesEnabled(true);
}
