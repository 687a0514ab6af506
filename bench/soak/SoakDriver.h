#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QString>
#include <QTimer>

#include <cstdint>
#include <string>

#include "ChatLoop.h"
#include "DownloadLoop.h"

// What one side of the soak is told: who it is, who the peer is, where the peer's shared
// folder lies on this machine, where the two sides meet, and its pace.
struct SoakPlan
{
    std::string m_self;
    std::string m_peer;
    std::string m_room;
    QString m_peerShare;
    QString m_meeting; // a folder both sides write their ready, sent and report files into
    int m_loadSeconds = 3600;
    int m_downloadEveryMs = 4000;
    int m_chatEveryMs = 500;
    int m_maxOutstanding = 2;
};

// Runs one side of the soak in the window's process. It waits until the client is logged in,
// has scanned its shares and is in the room, and until the peer is too; then downloads and
// chats for the planned time; then lets the queue drain, tells the peer what it sent, waits
// for the peer's lines, and writes its report. The process stays up afterwards, idle, so that
// its memory and descriptors can be read at the end; it ends as the client does.
class SoakDriver : public QObject
{
    Q_OBJECT
public:
    explicit SoakDriver(SoakPlan i_plan, QObject* ip_parent = nullptr);

private slots:
    void OnTick();

private:
    enum class Phase { Starting, Load, Drain, Settle, Done };

    QString Meeting(char const* i_what, std::string const& i_name) const;
    void WriteMeeting(char const* i_what, QString const& i_text) const;
    void Tick();
    void WriteProgress() const;
    void WriteHeapReport() const;
    void Finish();
    void Enter(Phase i_phase);

    SoakPlan m_plan;
    ChatLoop m_chat;
    DownloadLoop m_downloads;
    Phase m_phase = Phase::Starting;
    QTimer m_timer;
    QElapsedTimer m_inPhase;
    QElapsedTimer m_clock;
    qint64 m_lastDownloadMs = 0;
    qint64 m_lastChatMs = 0;
    qint64 m_lastProgressMs = 0;
    std::uint32_t m_peerPrivate = 0;
    std::uint32_t m_peerRoom = 0;
    std::uint32_t m_disconnects = 0;
    std::string m_faults;
};
