#include "stream/md5/md5.h"

#include <gtest/gtest.h>

#include <string>

TEST(Md5, DigestsFedInPieces)
{
    auto const l_digest = [](std::string const& i_text, unsigned int i_split)
    {
        auto const* lp_bytes = reinterpret_cast<unsigned char const*>(i_text.data());
        MD5 l_md5;
        l_md5.update(lp_bytes, i_split);
        l_md5.update(lp_bytes + i_split, static_cast<unsigned int>(i_text.size()) - i_split);
        l_md5.finalize();
        l_md5.update(lp_bytes, 1);
        return l_md5.hex_digest();
    };
    EXPECT_EQ(l_digest("", 0), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(l_digest("message digest", 3), "f96b697d7cb7938d525a2f31aaf161d0");
    std::string l_digits;
    for (int l_index = 0; l_index < 8; ++l_index)
        l_digits += "1234567890";
    EXPECT_EQ(l_digest(l_digits, 33), "57edf4a22be3c955ac49da2e2107b67a");
}
