#include "forms/ChatLine.h"

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
