#pragma once

#include <string>

// The file side of the data file: whole reads, atomic replacement, and the copies kept of a
// file that turned out damaged. Nothing here touches the graph, so writes may run on any thread.
namespace DataFileIO
{
enum class ReadResult
{
    Read,     // the bytes are in o_bytes (possibly fewer than the file's size, if a read failed)
    Missing,  // no file: the normal first start
    NotPlain, // something else stands there, or it cannot be opened: left alone
    TooLarge, // a plain file too large to be a data file
};
ReadResult ReadWholeFile(std::string const& i_fileName, std::string& o_bytes);

// Replaces the file whole by way of a temporary file beside it, mode 0600, synced before the
// rename. False, with the previous file as it was, when anything fails.
bool WriteFileAtomically(std::string const& i_fileName, std::string const& i_bytes);

// How many copies of damaged data files are kept beside the file; older ones go.
constexpr int s_keptDamagedCopies = 3;

// Keeps i_bytes, the damaged file as it was read, as "<file>.damaged-<date-time>", or moves
// the file there when it was not read (i_bytes null). Returns the copy's path, empty when it
// could not be made.
std::string KeepDamagedCopy(std::string const& i_fileName, std::string const* ip_bytes);
} // namespace DataFileIO
