#pragma once

#include <QByteArray>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

// The client's data file as the tests build and read it, byte by byte and independently of
// the client's own code: 32-bit little-endian counts, length-prefixed strings, then id pairs.
struct DataFileImage
{
    struct TypeRecord
    {
        std::string m_name;
        bool m_isNull = false;
        std::vector<std::pair<int, std::string>> m_items; // id, value
    };

    std::vector<TypeRecord> m_types;
    std::set<std::pair<int, int>> m_pairs;

    QByteArray Encode() const;
    static std::optional<DataFileImage> Decode(QByteArray const& i_bytes);

    // The value of a settings key of a key type ("global" or "vglobal"), if the file holds it.
    std::optional<std::string> Setting(std::string const& i_keyType, std::string const& i_key) const;
    TypeRecord const* Find(std::string const& i_name) const;
};
