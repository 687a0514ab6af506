#pragma once

#include <QMetaType>

#include <cstdint>

#include "stream/Persistent.h"

// A peer's IPv4 address and port as the server hands them out. The address is the number
// QHostAddress(quint32) takes: the first octet of the dotted form in the most significant byte.
class TCPAddress : public Persistent
{
public:
    TCPAddress() = default;
    TCPAddress(std::uint32_t i_ip, std::uint32_t i_port) : m_ip(i_ip), m_port(i_port) {}

    bool Read(InputStream& i_stream) override;
    bool Write(OutputStream& o_stream) const override;

    bool operator==(TCPAddress const& i_other) const { return m_ip == i_other.m_ip && m_port == i_other.m_port; }

    std::uint32_t m_ip = 0;
    std::uint32_t m_port = 0;
};

Q_DECLARE_METATYPE(TCPAddress)
