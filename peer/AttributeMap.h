#pragma once

#include "stream/Persistent.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

// The format of a file and its numbered attributes (bit rate, length, variable rate flag), in
// the order they were added: a reader passes over codes it does not know, so the list keeps
// every pair as it came.
class AttributeMap : public Persistent
{
public:
    using Attribute = std::pair<std::uint32_t, std::uint32_t>; // code, value

    AttributeMap() = default;
    explicit AttributeMap(std::string i_format) : m_format(std::move(i_format)) {}

    std::string const& GetFormat() const { return m_format; }
    void SetFormat(std::string i_format) { m_format = std::move(i_format); }
    std::vector<Attribute> const& GetAttributes() const { return m_attributes; }
    void AddAttribute(std::uint32_t i_code, std::uint32_t i_value) { m_attributes.emplace_back(i_code, i_value); }

    bool Read(InputStream& i_stream) override;
    bool Write(OutputStream& o_stream) const override;

    bool operator==(AttributeMap const& i_other) const
    {
        return m_format == i_other.m_format && m_attributes == i_other.m_attributes;
    }

private:
    std::string m_format;
    std::vector<Attribute> m_attributes;
};
