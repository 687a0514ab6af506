#include "shares/ShareListCompressor.h"

#include "peer/ShareList.h"

ShareListCompressor::ShareListCompressor(QObject* ip_parent) : QObject(ip_parent)
{
    m_pool.setMaxThreadCount(1);
}

ShareListCompressor::~ShareListCompressor()
{
    // A task still running posts its result to this object; once it has ended, the posted
    // result goes with the object unheard.
    m_pool.waitForDone();
}

void ShareListCompressor::Compress(std::string i_body, Done i_done)
{
    m_pool.start(
        [this, l_body = std::move(i_body), l_done = std::move(i_done)]() mutable
        {
            MemStream const l_message = ShareListMessageOfBody(l_body);
            // Plain bytes cross the threads; the stream's buffer is not shared between them.
            std::string l_bytes(l_message.GetReadBuffer(), static_cast<std::size_t>(l_message.GetPendingReadLength()));
            l_body = std::string();
            // The call's last reference may be dropped on either thread; the callback, which may
            // hold the graph's pooled sets, is taken out and ends on the window's thread.
            QMetaObject::invokeMethod(
                this,
                [l_done = std::move(l_done), l_bytes = std::move(l_bytes)]() mutable
                {
                    Done const l_call = std::move(l_done);
                    l_call(l_bytes);
                },
                Qt::QueuedConnection);
        });
}
