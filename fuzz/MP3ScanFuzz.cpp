// A shared file scanned for its MPEG audio frames: the input is written as the file and read by
// the scanner in its chunks, whose candidate headers vote on the file's format.

#include <cstdint>
#include <string>

#include "InputFile.h"
#include "shares/MP3Scanner.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* ip_data, std::size_t i_size)
{
    static InputFile s_file;
    static MP3Scanner s_scanner;
    if (!s_file.Write(ip_data, i_size))
        return 0;
    int l_version = 0;
    std::string l_mode;
    int l_frequency = 0;
    bool l_isVBR = false;
    int l_bitrate = 0;
    s_scanner.ScanMP3(s_file.Name(), l_version, l_mode, l_frequency, l_isVBR, l_bitrate);
    return 0;
}
