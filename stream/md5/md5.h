#pragma once

#include <QByteArray>
#include <QCryptographicHash>

#include <string>

// The MD5 message digest, fed in pieces and read as 32 lower-case hexadecimal digits.
class MD5
{
public:
    MD5();

    // Ignored once the digest is final.
    void update(unsigned char const* ip_input, unsigned int i_length);
    void finalize();
    // Finalizes first if that has not happened yet.
    std::string hex_digest();

private:
    QCryptographicHash m_hash;
    QByteArray m_digest;
    bool m_finalized = false;
};
