#include "shares/MP3Scanner.h"

#include <QByteArray>
#include <QMutexLocker>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{
// Closes the descriptor on every way out of a scan.
class Descriptor
{
public:
    explicit Descriptor(int i_descriptor) : m_descriptor(i_descriptor) {}
    ~Descriptor()
    {
        if (m_descriptor >= 0)
            ::close(m_descriptor);
    }
    Descriptor(Descriptor const&) = delete;
    Descriptor& operator=(Descriptor const&) = delete;
    int Get() const { return m_descriptor; }

private:
    int m_descriptor;
};

// Fills the buffer but at the end of the file; the count read, or -1 on an error.
long ReadFull(int i_descriptor, unsigned char* op_buffer, std::size_t i_size)
{
    std::size_t l_done = 0;
    while (l_done < i_size)
    {
        ssize_t const l_read = ::read(i_descriptor, op_buffer + l_done, i_size - l_done);
        if (l_read < 0 && errno == EINTR)
            continue;
        if (l_read < 0)
            return -1;
        if (l_read == 0)
            break;
        l_done += static_cast<std::size_t>(l_read);
    }
    return static_cast<long>(l_done);
}
} // namespace

MP3Scanner::MP3Scanner(QObject* ip_parent) : QObject(ip_parent), mp_chunk(new unsigned char[s_chunkSize]) {}

MP3Scanner::~MP3Scanner() = default;

void MP3Scanner::Quit()
{
    QMutexLocker l_lock(&m_quitMutex);
    m_quit = true;
}

bool MP3Scanner::IsQuitting()
{
    QMutexLocker l_lock(&m_quitMutex);
    return m_quit;
}

void MP3Scanner::OnMP3ScanRequired(QString i_file)
{
    int l_version = 0, l_frequency = 0, l_bitrate = -1;
    std::string l_channelMode;
    bool l_isVBR = true;
    if (ScanMP3(i_file.toLatin1().toStdString(), l_version, l_channelMode, l_frequency, l_isVBR, l_bitrate))
        emit MP3Scanned(i_file, l_version, QString::fromLatin1(l_channelMode), l_frequency, l_isVBR, l_bitrate);
}

bool MP3Scanner::ScanMP3(std::string const& i_file, int& o_mpegVersion, std::string& o_channelMode, int& o_frequency,
                         bool& o_isVBR, int& o_bitrate)
{
    if (IsQuitting())
        return false;
    o_bitrate = -1;
    // Not blocking, so that opening a FIFO returns at once and is then turned away.
    Descriptor const l_file(::open(i_file.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (l_file.Get() < 0)
        return false;
    struct stat l_stat = {};
    if (::fstat(l_file.Get(), &l_stat) != 0 || !S_ISREG(l_stat.st_mode) || l_stat.st_size <= 0)
        return false;
    if (!TallyFile(l_file.Get()))
        return false;
    MP3Tally::Result l_result;
    if (!m_tally.Decide(l_result))
        return false;
    o_mpegVersion = l_result.m_mpegVersion;
    o_channelMode = MP3Tally::ChannelModeText(l_result.m_channelMode);
    o_frequency = l_result.m_frequency;
    o_bitrate = l_result.m_bitrate;
    o_isVBR = l_result.m_isVBR;
    return true;
}

bool MP3Scanner::TallyFile(int i_descriptor)
{
    m_tally.Clear();
    for (;;)
    {
        // Quitting never waits for the rest of a large file.
        if (IsQuitting())
            return false;
        long const l_read = ReadFull(i_descriptor, mp_chunk.get(), s_chunkSize);
        if (l_read < 0)
            return false;
        m_tally.AddChunk(mp_chunk.get(), static_cast<std::size_t>(l_read));
        if (static_cast<std::size_t>(l_read) < s_chunkSize)
            return true;
    }
}
