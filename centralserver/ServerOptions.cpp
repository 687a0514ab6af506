#include "ServerOptions.h"

#include <QCommandLineParser>

#include <functional>

namespace
{
bool ParseNumber(QString const& i_text, quint32 i_max, quint32& o_value)
{
    bool l_ok = false;
    uint l_value = i_text.toUInt(&l_ok);
    if (!l_ok || l_value > i_max)
        return false;
    o_value = l_value;
    return true;
}

// "KEY=VALUE" with neither empty, split at the last '=' so that a room or user name may
// hold one.
bool SplitPair(QString const& i_text, QByteArray& o_key, QByteArray& o_value)
{
    qsizetype l_at = i_text.lastIndexOf(QLatin1Char('='));
    if (l_at <= 0 || l_at == i_text.size() - 1)
        return false;
    o_key = i_text.left(l_at).toUtf8();
    o_value = i_text.mid(l_at + 1).toUtf8();
    return true;
}

// Hands every KEY=VALUE given to the option to i_take, which refuses a value it cannot use;
// on the first refusal o_error names the option and the form it wants, then i_detail.
bool ReadPairs(QCommandLineParser const& i_parser, QCommandLineOption const& i_option,
    std::function<bool(QByteArray const&, QByteArray const&)> const& i_take, QString& o_error,
    QString const& i_detail = {})
{
    QByteArray l_key;
    QByteArray l_value;
    for (QString const& l_pair : i_parser.values(i_option))
    {
        if (!SplitPair(l_pair, l_key, l_value) || !i_take(l_key, l_value))
        {
            o_error = QStringLiteral("--%1 wants %2%3")
                          .arg(i_option.names().constFirst(), i_option.valueName(), i_detail);
            return false;
        }
    }
    return true;
}
}

bool ServerOptions::Parse(QStringList const& i_arguments, QString& o_error)
{
    QCommandLineParser l_parser;
    l_parser.setApplicationDescription(
        QStringLiteral("Central server for a local or private Tidewick network."));
    l_parser.addHelpOption();
    l_parser.addVersionOption();
    QCommandLineOption l_port(QStringLiteral("port"),
        QStringLiteral("TCP port to listen on, 0 for any free port (default 2242)."),
        QStringLiteral("N"));
    QCommandLineOption l_listen(QStringLiteral("listen"),
        QStringLiteral("Address to listen on (default 0.0.0.0, every interface)."),
        QStringLiteral("ADDRESS"));
    QCommandLineOption l_accounts(QStringLiteral("accounts"),
        QStringLiteral("File that keeps the accounts across restarts."), QStringLiteral("FILE"));
    QCommandLineOption l_maxAccounts(QStringLiteral("max-accounts"),
        QStringLiteral("Accounts after which new names are refused; 0 admits only known names "
                       "(default 100000)."),
        QStringLiteral("N"));
    QCommandLineOption l_wishList(QStringLiteral("wishlist-period"),
        QStringLiteral("Seconds between wish list searches told to clients (default 720)."),
        QStringLiteral("SECONDS"));
    QCommandLineOption l_privileged(QStringLiteral("privileged"),
        QStringLiteral("A privileged user; may be repeated."), QStringLiteral("NAME"));
    QCommandLineOption l_minSpeed(QStringLiteral("parent-min-speed"),
        QStringLiteral("Upload speed in KiB/s a client needs to take children (default 1)."),
        QStringLiteral("N"));
    QCommandLineOption l_ratio(QStringLiteral("parent-speed-ratio"),
        QStringLiteral("Upload speed per child a parent needs, in tenths of KiB/s (default 50)."),
        QStringLiteral("N"));
    QCommandLineOption l_owner(QStringLiteral("room-owner"),
        QStringLiteral("Owner of a room; may be repeated."), QStringLiteral("ROOM=NAME"));
    QCommandLineOption l_operator(QStringLiteral("room-operator"),
        QStringLiteral("Operator of a room; may be repeated."), QStringLiteral("ROOM=NAME"));
    QCommandLineOption l_country(QStringLiteral("country"),
        QStringLiteral("Country code shown for a user, such as DE; may be repeated."),
        QStringLiteral("NAME=CODE"));
    QCommandLineOption l_sharedFiles(QStringLiteral("shared-files"),
        QStringLiteral("Number of shared files shown for a user (default 0); may be repeated."),
        QStringLiteral("NAME=N"));
    QCommandLineOption l_uploadSpeed(QStringLiteral("upload-speed"),
        QStringLiteral("Upload speed in bytes/s shown for a user until it reports its own; may be "
                       "repeated."),
        QStringLiteral("NAME=BYTES"));
    QCommandLineOption l_possibleParents(QStringLiteral("possible-parents"),
        QStringLiteral("Names in one list of possible parents, 0 for none (default 10)."),
        QStringLiteral("N"));
    l_parser.addOptions({l_port, l_listen, l_accounts, l_maxAccounts, l_wishList, l_privileged, l_minSpeed,
        l_ratio, l_owner, l_operator, l_country, l_sharedFiles, l_uploadSpeed, l_possibleParents});
    l_parser.process(i_arguments);

    if (!l_parser.positionalArguments().isEmpty())
    {
        o_error = QStringLiteral("unexpected argument: ") + l_parser.positionalArguments().first();
        return false;
    }
    quint32 l_number = 0;
    if (l_parser.isSet(l_port))
    {
        if (!ParseNumber(l_parser.value(l_port), 65535, l_number))
        {
            o_error = QStringLiteral("--port wants a number from 0 to 65535");
            return false;
        }
        m_port = static_cast<quint16>(l_number);
    }
    if (l_parser.isSet(l_listen) && !m_listenAddress.setAddress(l_parser.value(l_listen)))
    {
        o_error = QStringLiteral("--listen wants an IP address");
        return false;
    }
    m_accountsFile = l_parser.value(l_accounts);
    if (l_parser.isSet(l_maxAccounts)
        && !ParseNumber(l_parser.value(l_maxAccounts), 0xffffffffu, m_maxAccounts))
    {
        o_error = QStringLiteral("--max-accounts wants a number");
        return false;
    }
    if (l_parser.isSet(l_wishList)
        && (!ParseNumber(l_parser.value(l_wishList), 0xffffffffu, m_wishListPeriod)
            || m_wishListPeriod == 0))
    {
        o_error = QStringLiteral("--wishlist-period wants a number of seconds above 0");
        return false;
    }
    if (l_parser.isSet(l_minSpeed)
        && !ParseNumber(l_parser.value(l_minSpeed), 0x1fffff, m_parentMinSpeed))
    {
        o_error = QStringLiteral("--parent-min-speed wants a number");
        return false;
    }
    if (l_parser.isSet(l_ratio)
        && (!ParseNumber(l_parser.value(l_ratio), 0x7fffffff, m_parentSpeedRatio)
            || m_parentSpeedRatio == 0))
    {
        o_error = QStringLiteral("--parent-speed-ratio wants a number above 0");
        return false;
    }
    if (l_parser.isSet(l_possibleParents)
        && !ParseNumber(l_parser.value(l_possibleParents), c_maxPossibleParents, m_possibleParents))
    {
        o_error = QStringLiteral("--possible-parents wants a number from 0 to %1").arg(c_maxPossibleParents);
        return false;
    }
    for (QString const& l_name : l_parser.values(l_privileged))
    {
        if (!l_name.isEmpty())
            m_privileged.insert(l_name.toUtf8());
    }
    auto const l_owners = [this](QByteArray const& i_room, QByteArray const& i_name)
    {
        m_roomOwners.insert(i_room, i_name);
        return true;
    };
    auto const l_operators = [this](QByteArray const& i_room, QByteArray const& i_name)
    {
        m_roomOperators[i_room].insert(i_name);
        return true;
    };
    auto const l_countries = [this](QByteArray const& i_name, QByteArray const& i_code)
    {
        m_countries.insert(i_name, i_code);
        return true;
    };
    // A number per name, into i_map.
    auto const l_numbers = [](QMap<QByteArray, quint32>& o_map)
    {
        return [&o_map](QByteArray const& i_name, QByteArray const& i_number)
        {
            quint32 l_number = 0;
            if (!ParseNumber(QString::fromUtf8(i_number), 0xffffffffu, l_number))
                return false;
            o_map.insert(i_name, l_number);
            return true;
        };
    };
    QString const l_numberRange = QStringLiteral(", %1 a number from 0 to 4294967295");
    return ReadPairs(l_parser, l_owner, l_owners, o_error) && ReadPairs(l_parser, l_operator, l_operators, o_error)
        && ReadPairs(l_parser, l_country, l_countries, o_error)
        && ReadPairs(l_parser, l_sharedFiles, l_numbers(m_sharedFiles), o_error, l_numberRange.arg(QStringLiteral("N")))
        && ReadPairs(l_parser, l_uploadSpeed, l_numbers(m_uploadSpeeds), o_error,
            l_numberRange.arg(QStringLiteral("BYTES")));
}
