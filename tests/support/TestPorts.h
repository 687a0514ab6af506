#pragma once

#include <QtGlobal>

#include <vector>

// A port on 127.0.0.1 that is bound but never listens: a connect to it is refused at once, and
// a program told to listen on it, on that address or on any address, cannot bind it.
class RefusingPort
{
public:
    RefusingPort();
    ~RefusingPort();
    RefusingPort(RefusingPort const&) = delete;
    RefusingPort& operator=(RefusingPort const&) = delete;

    // 0 when no port could be bound.
    quint16 Port() const { return m_port; }

private:
    int m_fd = -1;
    quint16 m_port = 0;
};

// A port on 127.0.0.1 with a listener that never accepts and whose backlog is full: a connect
// to it is neither refused nor completed but stays pending until the dialler gives up.
class BlackHolePort
{
public:
    BlackHolePort();
    ~BlackHolePort();
    BlackHolePort(BlackHolePort const&) = delete;
    BlackHolePort& operator=(BlackHolePort const&) = delete;

    // 0 when no listener could be set up or its backlog did not fill.
    quint16 Port() const { return m_port; }

private:
    bool Fill();

    int m_listener = -1;
    std::vector<int> m_fillers;
    quint16 m_port = 0;
};
