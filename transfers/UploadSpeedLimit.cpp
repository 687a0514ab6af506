#include "transfers/UploadSpeedLimit.h"

#include <QMutexLocker>

int UploadSpeedLimit::Get() const
{
    QMutexLocker l_lock(&m_mutex);
    return m_kibPerSecond;
}

void UploadSpeedLimit::Set(int i_kibPerSecond)
{
    QMutexLocker l_lock(&m_mutex);
    m_kibPerSecond = i_kibPerSecond;
}
