#include "AccountBook.h"

#include "ServerLimits.h"
#include "ServerLog.h"

#include <QCryptographicHash>
#include <QFile>
#include <QRandomGenerator>

namespace
{
// An accounts file larger than this is not one of ours.
constexpr qint64 c_maxFileSize = 64 * 1024 * 1024;
constexpr int c_saltLength = 16;
}

AccountBook::AccountBook(QString const& i_path, qsizetype i_maxAccounts)
    : m_path(i_path)
    , m_maxAccounts(i_maxAccounts)
{
}

bool AccountBook::Load(QString& o_error, int& o_skipped)
{
    if (m_path.isEmpty() || !QFile::exists(m_path))
        return true;
    QFile l_file(m_path);
    if (!l_file.open(QIODevice::ReadOnly))
    {
        o_error = QStringLiteral("cannot read %1: %2").arg(m_path, l_file.errorString());
        return false;
    }
    if (l_file.size() > c_maxFileSize)
    {
        o_error = QStringLiteral("%1 is too large to be an accounts file").arg(m_path);
        return false;
    }
    o_skipped = 0;
    QList<QByteArray> l_lines = l_file.readAll().split('\n');
    for (QByteArray const& l_line : l_lines)
    {
        if (l_line.trimmed().isEmpty())
            continue;
        QList<QByteArray> l_fields = l_line.trimmed().split(' ');
        if (l_fields.size() != 3)
        {
            ++o_skipped;
            continue;
        }
        auto l_name = QByteArray::fromBase64Encoding(l_fields[0],
            QByteArray::AbortOnBase64DecodingErrors);
        auto l_salt = QByteArray::fromBase64Encoding(l_fields[1],
            QByteArray::AbortOnBase64DecodingErrors);
        QByteArray l_hash = QByteArray::fromHex(l_fields[2]);
        if (!l_name || !l_salt || (*l_name).isEmpty() || (*l_name).size() > ServerLimits::c_maxNameLength
            || l_hash.size() != 32)
        {
            ++o_skipped;
            continue;
        }
        m_accounts.insert(*l_name, Account{*l_salt, l_hash});
    }
    return true;
}

AccountBook::LoginResult AccountBook::Login(QByteArray const& i_name, QByteArray const& i_password)
{
    if (i_name.isEmpty() || i_name.size() > ServerLimits::c_maxNameLength)
        return LoginResult::InvalidName;
    auto l_found = m_accounts.constFind(i_name);
    if (l_found != m_accounts.constEnd())
    {
        return Hash(l_found->m_salt, i_password) == l_found->m_hash ? LoginResult::Accepted
                                                                   : LoginResult::WrongPassword;
    }
    if (m_accounts.size() >= m_maxAccounts)
        return LoginResult::Full;
    Account l_account;
    l_account.m_salt.resize(c_saltLength);
    QRandomGenerator::system()->fillRange(reinterpret_cast<quint32*>(l_account.m_salt.data()),
        c_saltLength / 4);
    l_account.m_hash = Hash(l_account.m_salt, i_password);
    m_accounts.insert(i_name, l_account);
    Append(i_name, l_account);
    return LoginResult::Registered;
}

std::optional<quint32> AccountBook::UploadSpeed(QByteArray const& i_name) const
{
    auto const l_found = m_speeds.constFind(i_name);
    return l_found == m_speeds.constEnd() ? std::nullopt : std::optional<quint32>(*l_found);
}

void AccountBook::SetUploadSpeed(QByteArray const& i_name, quint32 i_speed)
{
    if (m_accounts.contains(i_name))
        m_speeds.insert(i_name, i_speed);
}

QByteArray AccountBook::Hash(QByteArray const& i_salt, QByteArray const& i_password)
{
    return QCryptographicHash::hash(i_salt + i_password, QCryptographicHash::Sha256);
}

void AccountBook::Append(QByteArray const& i_name, Account const& i_account)
{
    if (m_path.isEmpty())
        return;
    QFile l_file(m_path);
    QByteArray l_line = i_name.toBase64() + ' ' + i_account.m_salt.toBase64() + ' '
        + i_account.m_hash.toHex() + '\n';
    if (!l_file.open(QIODevice::WriteOnly | QIODevice::Append,
            QFileDevice::ReadOwner | QFileDevice::WriteOwner)
        || l_file.write(l_line) != l_line.size())
        ServerLog::Write(QStringLiteral("accounts cannot write %1: %2").arg(m_path, l_file.errorString()));
}
