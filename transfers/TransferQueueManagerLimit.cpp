#include <climits>

#include "store/Settings.h"
#include "transfers/TransferQueueManager.h"
#include "transfers/TransferSupport.h"

void TransferQueueManager::SetUploadSpeedLimit(int i_kibPerSecond)
{
    SetGlobal("upload_speed_limit", Value(i_kibPerSecond));
    DetermineUploadSpeedLimit();
}

void TransferQueueManager::EnableUploadSpeedLimit(bool i_enabled)
{
    SetGlobal("upload_speed_limit_enabled", Value(i_enabled ? "yes" : "no"));
    DetermineUploadSpeedLimit();
}

void TransferQueueManager::DetermineUploadSpeedLimit()
{
    long long const l_limit = DecimalOf(GetGlobal("upload_speed_limit")).value_or(0);
    bool const l_enabled = GetGlobal("upload_speed_limit_enabled") == "yes";
    m_uploadSpeedLimit.Set(l_enabled && l_limit > 0 && l_limit <= INT_MAX ? static_cast<int>(l_limit) : 0);
}
