#pragma once

// The first byte of an input of the search tree target: who sends the rest.
namespace DNetSource
{
enum : unsigned char
{
    Server = 0,    // the body of a server message that carries a tree message
    Candidate = 1, // the bytes on a connection to a possible parent
    Child = 2      // the bytes on a connection from a child
};
inline constexpr unsigned char s_kinds = 3;
} // namespace DNetSource
