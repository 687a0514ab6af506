#include "stream/PathNames.h"

namespace
{
constexpr char const* g_separators = "/\\";

bool IsSeparator(char i_char)
{
    return i_char == '/' || i_char == '\\';
}

void RemoveOneTrailingSeparator(std::string& o_path)
{
    if (!o_path.empty() && IsSeparator(o_path.back()))
        o_path.pop_back();
}

// Bytes only, ASCII only: the key of a path must not change with the user's locale.
void LowerCase(std::string& o_text)
{
    for (char& l_char : o_text)
    {
        if (l_char >= 'A' && l_char <= 'Z')
            l_char = static_cast<char>(l_char - 'A' + 'a');
    }
}
}

std::string GetFileName(std::string i_path)
{
    RemoveOneTrailingSeparator(i_path);
    std::string::size_type const l_last = i_path.find_last_of(g_separators);
    return l_last == std::string::npos ? i_path : i_path.substr(l_last + 1);
}

std::string GetFolder(std::string i_path)
{
    RemoveOneTrailingSeparator(i_path);
    std::string::size_type const l_last = i_path.find_last_of(g_separators);
    return l_last == std::string::npos ? i_path : i_path.substr(0, l_last);
}

std::string GetParentFolder(std::string i_path)
{
    while (!i_path.empty() && i_path.back() == '\\')
        i_path.pop_back();
    return GetFolder(i_path);
}

std::string GetFileExtension(std::string i_name)
{
    std::string::size_type const l_dot = i_name.rfind('.');
    if (l_dot == std::string::npos)
        return std::string();
    std::string l_extension = i_name.substr(l_dot + 1);
    LowerCase(l_extension);
    return l_extension;
}

std::string GetAbsoluteFileName(std::string i_path)
{
    std::string l_result;
    l_result.reserve(i_path.size());
    for (std::string::size_type l_index = 0; l_index < i_path.size();)
    {
        if (!IsSeparator(i_path[l_index]))
        {
            l_result += i_path[l_index++];
            continue;
        }
        std::string::size_type l_end = l_index;
        while (l_end < i_path.size() && IsSeparator(i_path[l_end]))
            ++l_end;
        // A run that reaches the end stays whole; only one character of it goes below.
        if (l_end == i_path.size())
            l_result.append(i_path, l_index, l_end - l_index);
        else
            l_result += i_path[l_index];
        l_index = l_end;
    }
    RemoveOneTrailingSeparator(l_result);
    LowerCase(l_result);
    return l_result;
}

std::string ReversePathname(std::string i_path)
{
    std::string l_result;
    bool l_first = true;
    while (!i_path.empty())
    {
        if (IsSeparator(i_path.back()))
        {
            i_path.pop_back();
            continue;
        }
        if (!l_first)
            l_result += '/';
        l_first = false;
        std::string::size_type const l_last = i_path.find_last_of(g_separators);
        if (l_last == std::string::npos)
        {
            l_result += i_path;
            i_path.clear();
        }
        else
        {
            l_result.append(i_path, l_last + 1);
            i_path.resize(l_last);
        }
    }
    return l_result;
}
