#include "server/ServerFrameReader.h"

#include <QIODevice>
#include <QtEndian>

#include <algorithm>

ServerFrameReader::Result ServerFrameReader::ReadFrom(QIODevice& io_device)
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
            if (m_length > s_maxFrameLength)
                return FrameTooLong;
            if (m_length <= s_wholeBufferLength)
                m_frame.EnsureBufferCapacity(static_cast<int>(m_length));
        }

        qint64 const l_missing = qint64(m_length) - m_frame.GetWriteIndex();
        if (l_missing == 0)
            return FrameReady;
        qint64 const l_available = io_device.bytesAvailable();
        if (l_available <= 0)
            return NeedMore;

        qint64 const l_free = m_frame.GetBufferSize() - m_frame.GetWriteIndex();
        if (l_free > 0)
        {
            qint64 const l_got = io_device.read(m_frame.GetWriteBuffer(), std::min(l_missing, l_free));
            if (l_got <= 0)
                return NeedMore;
            m_frame.AdvanceWriteIndex(static_cast<int>(l_got));
            continue;
        }
        // A full buffer grows by appending what has arrived, which doubles its capacity: the
        // memory stays within twice the bytes really received.
        QByteArray const l_piece = io_device.read(std::min({l_missing, l_available, qint64(s_wholeBufferLength)}));
        if (l_piece.isEmpty())
            return NeedMore;
        m_frame.WriteBuffer(l_piece.constData(), static_cast<unsigned long>(l_piece.size()));
    }
}

void ServerFrameReader::NextFrame()
{
    m_lengthKnown = false;
    m_length = 0;
    m_frame.Reset();
}
