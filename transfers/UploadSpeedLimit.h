#pragma once

#include <QMutex>

// The upload speed limit in force, in KiB/s, 0 for none. Upload threads read it before every
// block while the main thread may change it; the lock is held for the copy only.
class UploadSpeedLimit
{
public:
    int Get() const;
    void Set(int i_kibPerSecond);

private:
    mutable QMutex m_mutex;
    int m_kibPerSecond = 0;
};
