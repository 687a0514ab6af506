#pragma once

#include <optional>
#include <string>

// A file copied over loopback with nothing but blocking system calls: the yardstick for the
// client's download. The sender reads the file and sends it in 8 KiB blocks; the receiver fills
// 8 KiB blocks from its socket and writes each to the target, then closes, which the sender waits
// for. Each side runs on a thread of its own, so that its CPU time can be told apart.
struct PlainCopyFigures
{
    double m_seconds = 0;
    double m_senderCpuSeconds = 0;
    double m_receiverCpuSeconds = 0;
};

// Nothing when a socket, the files or the copy failed.
std::optional<PlainCopyFigures> PlainCopy(std::string const& i_source, std::string const& i_target, long long i_size);
