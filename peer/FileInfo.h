#pragma once

#include "peer/AttributeMap.h"
#include "stream/Persistent.h"

#include <QtGlobal>

#include <string>

// One file as it travels between peers: a name (a bare name or a whole path, by message), its
// size and its attributes. Sets of them keep one record per name and size.
class FileInfo : public Persistent
{
public:
    FileInfo() = default;
    FileInfo(std::string i_name, qint64 i_size, AttributeMap i_attributes = AttributeMap())
        : m_name(std::move(i_name)), m_size(i_size), m_attributes(std::move(i_attributes))
    {
    }

    std::string const& GetName() const { return m_name; }
    qint64 GetSize() const { return m_size; }
    AttributeMap const& GetAttributes() const { return m_attributes; }
    AttributeMap& Attributes() { return m_attributes; }

    // A marker byte of 0 is a record without fields: the read succeeds at once with every
    // field at its default.
    bool Read(InputStream& i_stream) override;
    bool Write(OutputStream& o_stream) const override;

    // Byte order of the names, then the sizes; the attributes do not take part.
    bool operator<(FileInfo const& i_other) const
    {
        if (int const l_order = m_name.compare(i_other.m_name); l_order != 0)
            return l_order < 0;
        return m_size < i_other.m_size;
    }

private:
    std::string m_name;
    qint64 m_size = 0;
    AttributeMap m_attributes;
};
