#pragma once

#include <QTemporaryDir>

#include <cstddef>
#include <cstdint>
#include <string>

// One file that each fuzz input is written to, for the code that reads its input from disk. It
// lives in a folder of its own, memory-backed where the system has one: a target may write
// beside it (a copy of a damaged data file, synced) at every input.
class InputFile
{
public:
    InputFile();

    // The file now holds exactly the input; false when it could not be written.
    bool Write(std::uint8_t const* ip_data, std::size_t i_size);
    std::string const& Name() const { return m_name; }

private:
    QTemporaryDir m_folder;
    std::string m_name;
};
