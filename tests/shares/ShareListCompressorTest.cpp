// What a compression's caller hands over ends on the caller's thread: callbacks hold the
// graph's pooled sets, and one freed on the worker went to a pool that died with the thread.
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QThread>

#include <atomic>
#include <memory>
#include <vector>

#include "shares/ShareListCompressor.h"

namespace
{
struct EndWatch
{
    std::atomic<int>* mp_offThread;
    ~EndWatch()
    {
        if (QThread::currentThread() != QCoreApplication::instance()->thread())
            ++*mp_offThread;
    }
};
} // namespace

TEST(ShareListCompressor, EveryCallbackEndsOnTheCallersThread)
{
    std::atomic<int> l_offThread = 0;
    int l_called = 0;
    constexpr int c_lists = 400;
    {
        ShareListCompressor l_compressor;
        for (int l_list = 0; l_list < c_lists; ++l_list)
        {
            auto lp_watch = std::make_shared<EndWatch>(EndWatch{&l_offThread});
            l_compressor.Compress(std::string(4, '\0'), [lp_watch, &l_called](std::string const&) { ++l_called; });
            lp_watch.reset();
            // The answer is taken the moment it is posted, while the worker may still hold its
            // part of the call.
            QDeadlineTimer const l_deadline(10000);
            while (l_called <= l_list && !l_deadline.hasExpired())
                QCoreApplication::processEvents();
        }
        ASSERT_EQ(l_called, c_lists);
    }
    EXPECT_EQ(l_offThread.load(), 0);
}
