#pragma once

#include <QObject>
#include <QString>

#include <utility>
#include <vector>

struct UPNPDev;

// Makes every call of the UPnP library, in order and one at a time, on a thread of its own:
// discovery waits two seconds and a gateway answers when it likes, and the window must not
// wait with them. Its log lines go out as signals, in the order they happen.
class UPnPWorker : public QObject
{
    Q_OBJECT
public:
    using Lines = std::vector<std::pair<int, QString>>;

    // The device to use: the first whose type names an internet gateway, else the first of all.
    static UPNPDev* ChooseDevice(UPNPDev* ip_list, Lines& o_lines);

    // A control URL is known: discovery found a gateway and read its description.
    static bool HasGateway();

public slots:
    void DoInit();
    // i_ownAddress is this computer's address in dotted form, empty when it has none over IPv4.
    void DoAddPortMapping(QString const& i_ownAddress, int i_port);
    void DoRemovePortMapping(int i_port);
    // Removes the mapping this run made, lets the library's records go and ends the thread.
    void DoShutdown();

signals:
    void LogLine(int i_level, QString const& i_text);
    void InitFinished(bool i_initialized);

private:
    int AddMapping(QByteArray const& i_address, int i_port) const;
    void Line(int i_level, QString const& i_text) { emit LogLine(i_level, i_text); }

    bool m_initialized = false;
    int m_mappedPort = -1;
};
