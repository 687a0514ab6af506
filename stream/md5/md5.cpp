#include "stream/md5/md5.h"

MD5::MD5() : m_hash(QCryptographicHash::Md5) {}

void MD5::update(unsigned char const* ip_input, unsigned int i_length)
{
    if (m_finalized || !ip_input)
        return;
    m_hash.addData(QByteArrayView(ip_input, static_cast<qsizetype>(i_length)));
}

void MD5::finalize()
{
    if (m_finalized)
        return;
    m_digest = m_hash.result().toHex();
    m_finalized = true;
}

std::string MD5::hex_digest()
{
    finalize();
    return m_digest.toStdString();
}
