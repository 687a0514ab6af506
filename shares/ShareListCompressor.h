#pragma once

#include <QObject>
#include <QThreadPool>

#include <functional>
#include <string>

// Compresses share lists away from the main thread: at the level lists are sent with, a large
// share takes seconds, and the window must stay live meanwhile. The result comes back on the
// thread that owns the compressor, from a later turn of its event loop.
class ShareListCompressor : public QObject
{
    Q_OBJECT
public:
    using Done = std::function<void(std::string const& i_message)>;

    explicit ShareListCompressor(QObject* ip_parent = nullptr);
    // Waits for the list being compressed; lists not yet delivered are dropped.
    ~ShareListCompressor() override;

    // i_body is the list before compression; i_done gets the whole message, code included.
    void Compress(std::string i_body, Done i_done);

private:
    // One thread: lists are rare, and each one is a single zlib stream.
    QThreadPool m_pool;
};
