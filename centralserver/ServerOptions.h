#pragma once

#include <QByteArray>
#include <QHostAddress>
#include <QMap>
#include <QSet>
#include <QString>
#include <QStringList>

// Everything the command line can set, with the defaults of a plain start.
class ServerOptions
{
public:
    QHostAddress m_listenAddress = QHostAddress(QHostAddress::AnyIPv4);
    quint16 m_port = 2242;
    QString m_accountsFile;
    // New names are refused beyond this. An account costs a few hundred bytes of memory and
    // a line of the accounts file; a private network is far smaller, and a stranger
    // inventing names cannot grow either without end.
    quint32 m_maxAccounts = 100000;
    // A frame begun and not completed within this closes the connection. Half a minute
    // carries the largest frame over a slow line, and keeps a stranger from holding
    // half-sent frames open for long.
    int m_partialFrameTimeoutMs = 30 * 1000;
    quint32 m_wishListPeriod = 720;
    QSet<QByteArray> m_privileged;
    // Parent rules handed to every client: minimum upload speed in KiB/s, and the
    // speed per child connection.
    quint32 m_parentMinSpeed = 1;
    quint32 m_parentSpeedRatio = 50;
    QMap<QByteArray, QByteArray> m_roomOwners;
    QMap<QByteArray, QSet<QByteArray>> m_roomOperators;
    // What other users are shown of a user: a country code, sent as given, and a number of
    // shared files. Clients report neither, so they are set here to be seen on the network.
    QMap<QByteArray, QByteArray> m_countries;
    QMap<QByteArray, quint32> m_sharedFiles;
    // The upload speed in bytes per second shown for a user until it reports its own. A
    // client takes children only with a speed, and a fresh client has none before its first
    // upload, so without this no client of a new network could be a parent.
    QMap<QByteArray, quint32> m_uploadSpeeds;
    // Names in one list of possible parents; 0 names none, and every client then gets every
    // search straight from the server.
    quint32 m_possibleParents = 10;
    static constexpr quint32 c_maxPossibleParents = 1000;

    // False with a message for the user when the arguments are not usable; "--help" and
    // "--version" print and exit through the parser.
    bool Parse(QStringList const& i_arguments, QString& o_error);
};
