#pragma once

#include <QObject>

class QSocketNotifier;

// Turns SIGTERM and SIGINT into a Qt signal on the main thread, so that the client shuts down
// exactly as when its window is closed.
class TerminationSignals : public QObject
{
    Q_OBJECT
public:
    explicit TerminationSignals(QObject* ip_parent = nullptr);
    ~TerminationSignals() override;

signals:
    void TerminationRequested();

private slots:
    void OnSignalByte();

private:
    static void HandleSignal(int i_signal);

    static inline int s_fds[2] = {-1, -1};
    QSocketNotifier* mp_notifier = nullptr;
};
