#pragma once

#include <set>
#include <string>

// Reads the text of another user's search into its terms: whole words a file must hold,
// text its name must contain (marked `*`), and text its name must not contain (marked `-`).
// A term is a run up to a blank or tab, or a run between double quotes. Case is left as
// typed.
class SearchParser
{
public:
    using TokenSet = std::set<std::string>;

    // False when the text cannot be searched: a lone mark, an empty or broken token, or no
    // term that includes anything. On false the sets may hold the terms read before the fault.
    bool SetSearchText(std::string const& i_text);

    TokenSet const& GetIncludedTokenSet() const { return m_included; }
    TokenSet const& GetIncludedPartTokenSet() const { return m_includedParts; }
    TokenSet const& GetExcludedTokenSet() const { return m_excluded; }

    // The separators between terms.
    static char const* Whitespace() { return " \t"; }

private:
    TokenSet m_included;
    TokenSet m_includedParts;
    TokenSet m_excluded;
};
