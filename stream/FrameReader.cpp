#include "stream/FrameReader.h"

#include <QIODevice>
#include <QtEndian>

#include <algorithm>

FrameReader::FrameReader(std::uint32_t i_maxFrameLength, Budget* ip_budget, int i_keptBufferLength)
    : m_maxFrameLength(i_maxFrameLength), mp_budget(ip_budget), m_keptBufferLength(i_keptBufferLength)
{
    Charge();
}

FrameReader::~FrameReader()
{
    if (mp_budget)
        mp_budget->m_used -= m_charged;
}

void FrameReader::Charge()
{
    std::uint64_t const l_held = static_cast<std::uint64_t>(m_frame.GetBufferSize());
    if (mp_budget)
        mp_budget->m_used = mp_budget->m_used - m_charged + l_held;
    m_charged = l_held;
}

bool FrameReader::Grow(int i_capacity)
{
    if (i_capacity <= m_frame.GetBufferSize())
        return true;
    if (mp_budget && mp_budget->m_used - m_charged + static_cast<std::uint64_t>(i_capacity) > mp_budget->m_limit)
        return false;
    if (m_frame.GetWriteIndex() == 0)
        m_frame.EnsureBufferCapacity(i_capacity);
    else
        m_frame.GrowBuffer(i_capacity);
    Charge();
    return true;
}

FrameReader::Result FrameReader::ReadFrom(QIODevice& io_device)
{
    for (;;)
    {
        if (!m_lengthKnown)
        {
            if (io_device.bytesAvailable() < 4)
                return NeedMore;
            quint32 l_length = 0;
            if (io_device.read(reinterpret_cast<char*>(&l_length), 4) != 4)
                return NeedMore;
            m_length = qFromLittleEndian(l_length);
            m_lengthKnown = true;
            if (m_length > m_maxFrameLength)
                return FrameTooLong;
            m_code = 0;
            if (m_length <= s_wholeBufferLength && !Grow(static_cast<int>(m_length)))
                return OverBudget;
        }

        qint64 const l_missing = qint64(m_length) - m_frame.GetWriteIndex();
        if (l_missing == 0)
            return FrameReady;
        qint64 const l_available = io_device.bytesAvailable();
        if (l_available <= 0)
            return NeedMore;

        bool const l_codeUnread = !CodeChecked();
        if (m_frame.GetBufferSize() == m_frame.GetWriteIndex())
        {
            // A full buffer doubles, or grows to what has arrived if that is more, never past
            // the frame: the memory stays within twice the bytes really received. Before its
            // code is checked, a body gets room for the code alone.
            qint64 const l_wanted = l_codeUnread ? 4
                                                 : std::max<qint64>(2 * qint64(m_frame.GetBufferSize()),
                                                                    m_frame.GetWriteIndex() + std::min(l_available, l_missing));
            if (!Grow(static_cast<int>(std::min<qint64>(l_wanted, m_length))))
                return OverBudget;
        }
        qint64 l_free = m_frame.GetBufferSize() - m_frame.GetWriteIndex();
        if (l_codeUnread)
            l_free = std::min<qint64>(l_free, 4 - m_frame.GetWriteIndex());
        qint64 const l_got = io_device.read(m_frame.GetWriteBuffer(), std::min(l_missing, l_free));
        if (l_got <= 0)
            return NeedMore;
        m_frame.AdvanceWriteIndex(static_cast<int>(l_got));
        if (l_codeUnread && CodeChecked())
        {
            m_code = qFromLittleEndian<quint32>(m_frame.GetReadBuffer());
            if (m_length > m_codeBound(m_code))
                return CodeTooLong;
        }
    }
}

void FrameReader::NextFrame()
{
    m_lengthKnown = false;
    m_length = 0;
    if (m_frame.GetBufferSize() > m_keptBufferLength)
        m_frame = MemStream();
    else
        m_frame.Reset();
    Charge();
}
