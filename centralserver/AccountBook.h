#pragma once

#include <QByteArray>
#include <QHash>
#include <QString>

#include <optional>

// Accounts of the network: a name is registered with its password at its first login,
// while there are fewer accounts than the most allowed. With a file, accounts are appended
// to it as they are made and read back at start.
class AccountBook
{
public:
    enum class LoginResult
    {
        Registered,
        Accepted,
        WrongPassword,
        InvalidName,
        // A new name, and the book holds the most accounts allowed.
        Full
    };

    // An empty path keeps the accounts in memory only. Accounts read from the file are all
    // kept, even above i_maxAccounts; only new ones are refused.
    AccountBook(QString const& i_path, qsizetype i_maxAccounts);

    // Reads the file if there is one; a missing file is an empty book. Lines that do not
    // parse are skipped and counted in o_skipped.
    bool Load(QString& o_error, int& o_skipped);
    QString const& Path() const { return m_path; }

    LoginResult Login(QByteArray const& i_name, QByteArray const& i_password);
    bool Exists(QByteArray const& i_name) const { return m_accounts.contains(i_name); }
    qsizetype Count() const { return m_accounts.size(); }

    // The speed the name reported last in this run, if it did.
    std::optional<quint32> UploadSpeed(QByteArray const& i_name) const;
    void SetUploadSpeed(QByteArray const& i_name, quint32 i_speed);

private:
    struct Account
    {
        QByteArray m_salt;
        QByteArray m_hash;
    };

    static QByteArray Hash(QByteArray const& i_salt, QByteArray const& i_password);
    void Append(QByteArray const& i_name, Account const& i_account);

    QString m_path;
    qsizetype m_maxAccounts;
    QHash<QByteArray, Account> m_accounts;
    QHash<QByteArray, quint32> m_speeds;
};
