#include "support/LoopbackCentral.h"

#include <gtest/gtest.h>

#include "support/WaitFor.h"

std::unique_ptr<RawClient> LoopbackCentral::Accept(int i_timeoutMs)
{
    if (!WaitFor([this] { return m_listener.hasPendingConnections(); }, i_timeoutMs))
        return nullptr;
    return std::make_unique<RawClient>(m_listener.nextPendingConnection());
}

std::unique_ptr<RawClient> LoopbackCentral::AnswerLogin(bool i_success)
{
    std::unique_ptr<RawClient> lp_client = Accept();
    if (!lp_client)
    {
        ADD_FAILURE() << "no client connected";
        return nullptr;
    }
    EXPECT_EQ(lp_client->Next().left(4), Body(1).Bytes()) << "the first message is not a login";
    lp_client->Send(i_success ? Body(1).U8(1).Str("welcome").U32(0).Str("") : Body(1).U8(0).Str("INVALIDPASS"));
    return lp_client;
}
