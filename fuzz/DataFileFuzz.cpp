// The data file as the client loads it at start: the input is written as the file and read by
// the loader into the graph of the client's types, whose listeners hear every item restored.

#include <cstdint>

#include "FuzzRig.h"
#include "InputFile.h"
#include "store/Data.h"
#include "store/DataSaver.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* ip_data, std::size_t i_size)
{
    static InputFile s_file;
    FuzzRig l_rig;
    if (s_file.Write(ip_data, i_size))
        dataSaver->Load(&d, s_file.Name().c_str());
    return 0;
}
