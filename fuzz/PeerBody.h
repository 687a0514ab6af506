#pragma once

// The first byte of an input of the peer body target: which body the rest is.
namespace PeerBody
{
enum : unsigned char
{
    ShareList = 0,
    FolderContents = 1,
    SearchResult = 2
};
inline constexpr unsigned char s_kinds = 3;
} // namespace PeerBody
