#include "shares/SearchParser.h"

#include <algorithm>

bool SearchParser::SetSearchText(std::string const& i_text)
{
    m_included.clear();
    m_includedParts.clear();
    m_excluded.clear();

    std::string::size_type l_at = 0;
    while (true)
    {
        l_at = i_text.find_first_not_of(Whitespace(), l_at);
        if (l_at == std::string::npos)
            return !m_included.empty() || !m_includedParts.empty();

        // One mark at most: in -*x the excluded text is *x.
        TokenSet* lp_set = &m_included;
        if (i_text[l_at] == '-')
            lp_set = &m_excluded, ++l_at;
        else if (i_text[l_at] == '*')
            lp_set = &m_includedParts, ++l_at;

        std::string l_token;
        if (l_at < i_text.size() && i_text[l_at] == '"')
        {
            // A quoted token runs to the closing quote, or to the end without one.
            std::string::size_type const l_close = i_text.find('"', l_at + 1);
            std::string::size_type const l_end = l_close == std::string::npos ? i_text.size() : l_close;
            l_token = i_text.substr(l_at + 1, l_end - l_at - 1);
            l_at = l_close == std::string::npos ? i_text.size() : l_close + 1;
        }
        else
        {
            std::string::size_type const l_end = std::min(i_text.find_first_of(Whitespace(), l_at), i_text.size());
            l_token = i_text.substr(l_at, l_end - l_at);
            l_at = l_end;
        }
        // A mark with nothing after it gives an empty token here too.
        if (l_token.empty() || l_token.find('"') != std::string::npos)
            return false;
        lp_set->insert(std::move(l_token));
    }
}
