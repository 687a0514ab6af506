#pragma once

#include <QObject>

class QSocketNotifier;

// Turns SIGTERM and SIGINT into a signal on the event loop, so that the server stops
// through the ordinary return of the loop and exits with 0.
class TerminationWatcher : public QObject
{
    Q_OBJECT

public:
    explicit TerminationWatcher(QObject* ip_parent = nullptr);
    ~TerminationWatcher() override;

    // Only one watcher may be installed in a process.
    bool Install(QString& o_error);

signals:
    void TerminationRequested(int i_signal);

private slots:
    void OnSignalPipeReadable();

private:
    static void HandleSignal(int i_signal);

    QSocketNotifier* mp_notifier = nullptr;
};
