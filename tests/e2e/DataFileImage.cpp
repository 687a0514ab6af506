#include "DataFileImage.h"

#include <QtEndian>

namespace
{
void PutInt(QByteArray& io_bytes, int i_value)
{
    char l_buffer[4];
    qToLittleEndian<qint32>(i_value, l_buffer);
    io_bytes.append(l_buffer, 4);
}

void PutString(QByteArray& io_bytes, std::string const& i_text)
{
    PutInt(io_bytes, static_cast<int>(i_text.size()));
    io_bytes.append(i_text.data(), static_cast<qsizetype>(i_text.size()));
}

struct Cursor
{
    QByteArray const& m_bytes;
    qsizetype m_at = 0;

    bool Int(int& o_value)
    {
        if (m_bytes.size() - m_at < 4)
            return false;
        o_value = qFromLittleEndian<qint32>(m_bytes.constData() + m_at);
        m_at += 4;
        return true;
    }
    bool String(std::string& o_text)
    {
        int l_length = 0;
        if (!Int(l_length) || l_length < 0 || m_bytes.size() - m_at < l_length)
            return false;
        o_text.assign(m_bytes.constData() + m_at, static_cast<std::size_t>(l_length));
        m_at += l_length;
        return true;
    }
};
} // namespace

QByteArray DataFileImage::Encode() const
{
    QByteArray l_bytes;
    PutInt(l_bytes, static_cast<int>(m_types.size()));
    for (TypeRecord const& l_type : m_types)
    {
        PutString(l_bytes, l_type.m_name);
        l_bytes.append(l_type.m_isNull ? '\1' : '\0');
        PutInt(l_bytes, static_cast<int>(l_type.m_items.size()));
        for (auto const& l_item : l_type.m_items)
        {
            PutInt(l_bytes, l_item.first);
            if (!l_type.m_isNull)
                PutString(l_bytes, l_item.second);
        }
    }
    PutInt(l_bytes, static_cast<int>(m_pairs.size()));
    for (auto const& l_pair : m_pairs)
    {
        PutInt(l_bytes, l_pair.first);
        PutInt(l_bytes, l_pair.second);
    }
    return l_bytes;
}

std::optional<DataFileImage> DataFileImage::Decode(QByteArray const& i_bytes)
{
    DataFileImage l_image;
    Cursor l_cursor{i_bytes};
    int l_typeCount = 0;
    if (!l_cursor.Int(l_typeCount) || l_typeCount < 0)
        return std::nullopt;
    for (int l_t = 0; l_t < l_typeCount; ++l_t)
    {
        TypeRecord l_type;
        int l_itemCount = 0;
        if (!l_cursor.String(l_type.m_name) || l_cursor.m_at >= i_bytes.size())
            return std::nullopt;
        l_type.m_isNull = i_bytes.at(l_cursor.m_at++) != 0;
        if (!l_cursor.Int(l_itemCount) || l_itemCount < 0)
            return std::nullopt;
        for (int l_n = 0; l_n < l_itemCount; ++l_n)
        {
            std::pair<int, std::string> l_item;
            if (!l_cursor.Int(l_item.first) || (!l_type.m_isNull && !l_cursor.String(l_item.second)))
                return std::nullopt;
            l_type.m_items.push_back(l_item);
        }
        l_image.m_types.push_back(std::move(l_type));
    }
    int l_pairCount = 0;
    if (!l_cursor.Int(l_pairCount) || l_pairCount < 0)
        return std::nullopt;
    for (int l_n = 0; l_n < l_pairCount; ++l_n)
    {
        std::pair<int, int> l_pair;
        if (!l_cursor.Int(l_pair.first) || !l_cursor.Int(l_pair.second))
            return std::nullopt;
        l_image.m_pairs.insert(l_pair);
    }
    if (l_cursor.m_at != i_bytes.size())
        return std::nullopt;
    return l_image;
}

DataFileImage::TypeRecord const* DataFileImage::Find(std::string const& i_name) const
{
    for (TypeRecord const& l_type : m_types)
        if (l_type.m_name == i_name)
            return &l_type;
    return nullptr;
}

std::optional<std::string> DataFileImage::Setting(std::string const& i_keyType, std::string const& i_key) const
{
    TypeRecord const* lp_keys = Find(i_keyType);
    TypeRecord const* lp_values = Find("global_value");
    if (!lp_keys || !lp_values)
        return std::nullopt;
    for (auto const& l_key : lp_keys->m_items)
    {
        if (l_key.second != i_key)
            continue;
        for (auto const& l_value : lp_values->m_items)
        {
            std::pair<int, int> const l_pair{std::min(l_key.first, l_value.first), std::max(l_key.first, l_value.first)};
            if (m_pairs.count(l_pair))
                return l_value.second;
        }
    }
    return std::nullopt;
}
