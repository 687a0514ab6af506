#pragma once

#include <QMetaType>

#include <cstdint>

#include "stream/Persistent.h"

// A user's statistics as the server reports them: 20 bytes on the wire.
class UserStats : public Persistent
{
public:
    bool Read(InputStream& i_stream) override;
    bool Write(OutputStream& o_stream) const override;

    std::uint32_t m_averageSpeed = 0; // bytes per second; for the own user, the upload speed
    std::uint64_t m_count = 0;        // not interpreted
    std::uint32_t m_sharedFiles = 0;
    std::uint32_t m_furtherCount = 0; // not interpreted
};

Q_DECLARE_METATYPE(UserStats)
