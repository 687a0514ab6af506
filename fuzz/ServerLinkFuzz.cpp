// Bytes from the central server, as the link reads them: the frame reader cuts them into frames,
// and every frame's code and body go to the message handler, whatever the code.

#include <QBuffer>

#include <cstdint>

#include "FuzzRig.h"
#include "server/ServerFrameReader.h"
#include "server/ServerMessageHandler.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* ip_data, std::size_t i_size)
{
    FuzzRig l_rig;
    QBuffer l_wire;
    l_wire.setData(InputBytes(ip_data, i_size));
    l_wire.open(QIODevice::ReadOnly);
    ServerFrameReader l_reader;
    ServerMessageHandler l_handler(l_rig.GetServer());
    while (l_reader.ReadFrom(l_wire) == FrameReader::FrameReady)
    {
        MemStream l_message = l_reader.Frame();
        std::uint32_t l_code = 0;
        if (l_message.Read(l_code) && l_code <= std::uint32_t(INT32_MAX))
            l_handler.Handle(static_cast<int>(l_code), l_message);
        l_reader.NextFrame();
    }
    return 0;
}
