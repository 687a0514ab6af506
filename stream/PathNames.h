#pragma once

#include <string>

// Path names from other clients may separate with '\' or '/', so every function here accepts
// both. Their results become item keys and must stay exactly as they are.

// The last component; one trailing separator is ignored.
std::string GetFileName(std::string i_path);

// The path without its last component; a bare name is returned as it is.
std::string GetFolder(std::string i_path);

// The folder above a folder; trailing '\' are ignored, and a path of only '\' gives "".
std::string GetParentFolder(std::string i_path);

// The lower-cased text after the last "."; "" without one.
std::string GetFileExtension(std::string i_name);

// The key form of a path: inner runs of separators shrink to their first character, one
// trailing separator goes, and the bytes are lower-cased. '/' and '\' are not unified.
std::string GetAbsoluteFileName(std::string i_path);

// The components in reverse order joined by "/", for display: a\b\c gives c/b/a.
std::string ReversePathname(std::string i_path);
