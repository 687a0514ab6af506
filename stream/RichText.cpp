#include "stream/RichText.h"

#include <QRegularExpression>

QString ConvertLinks(QString i_text)
{
    // Unicode word characters for \b, as chat text is not ASCII: a letter such as "é" right
    // before "http" is part of a word, and no link starts there.
    static QRegularExpression const l_link(
        QStringLiteral("(\\bhttps?://[-a-zA-Z0-9+&@#/%?=~_|!:,.;]*[a-zA-Z0-9+&@#/%=~_|])"),
        QRegularExpression::UseUnicodePropertiesOption);
    return i_text.replace(l_link, QStringLiteral("<a href=\"\\1\">\\1</a>"));
}

QString EscapeHTML(QString i_text)
{
    i_text.replace(u'&', QStringLiteral("&amp;"));
    i_text.replace(u'<', QStringLiteral("&lt;"));
    i_text.replace(u'>', QStringLiteral("&gt;"));
    return i_text;
}
