#include "core/TextPipeReader.h"

#include "core/WorkerPool.h"

#include <QRegularExpression>
#include <QStringDecoder>
#include <QThreadPool>
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace {
constexpr qsizetype kInitialCapacity = 1024;
constexpr size_t kChunk = 4096;
} // namespace

struct TextPipeReader::Shared
{
    std::mutex mutex;
    std::condition_variable done;
    bool finished = false;
    QStringList lines;
    quint64 dropped = 0;
};

TextPipeReader::TextPipeReader()
    : m_shared(std::make_shared<Shared>())
{}

TextPipeReader::~TextPipeReader()
{
    closeWritingEnd();
    if (m_started) {
        lines();
    } else if (m_fds[0] >= 0) {
        ::close(m_fds[0]);
    }
}

void TextPipeReader::makePipe()
{
    if (m_fds[0] < 0 && ::pipe2(m_fds, O_CLOEXEC) != 0) {
        m_fds[0] = m_fds[1] = -1;
    }
}

int TextPipeReader::readingEnd()
{
    makePipe();
    return m_fds[0];
}

int TextPipeReader::writingEnd()
{
    makePipe();
    return m_fds[1];
}

void TextPipeReader::closeWritingEnd()
{
    if (m_fds[1] >= 0) {
        ::close(m_fds[1]);
        m_fds[1] = -1;
    }
}

QString TextPipeReader::decode(const QByteArray& buffer) const
{
    if (m_encoding == 0) {
        return QString::fromUtf8(buffer);
    }
    QStringDecoder decoder(QStringConverter::Encoding(m_encoding - 1));
    return decoder.decode(buffer);
}

QStringList TextPipeReader::splitIntoLines(const QString& text)
{
    static const QRegularExpression blank(QStringLiteral("^\\s*$"));
    QStringList kept;
    for (const QString& line : text.split(QLatin1Char('\n'))) {
        if (!blank.match(line).hasMatch()) {
            kept << line;
        }
    }
    return kept;
}

void TextPipeReader::startReading()
{
    if (m_started) {
        return;
    }
    m_started = true;
    const int fd = readingEnd();
    m_fds[0] = -1; // the job owns it from here
    const quint64 limit = m_limit;
    // Every reader must run while its child writes, or the child blocks on a full pipe; the
    // pool never makes one job wait for another.
    WorkerPool::shared().start([this, fd, limit, shared = m_shared] {
        QByteArray buffer;
        buffer.reserve(kInitialCapacity);
        char chunk[kChunk];
        quint64 dropped = 0;
        while (fd >= 0) {
            const ssize_t got = ::read(fd, chunk, sizeof chunk);
            if (got < 0 && errno == EINTR) {
                continue;
            }
            if (got <= 0) {
                break;
            }
            if (limit == 0 || quint64(buffer.size()) < limit) {
                buffer.append(chunk, qsizetype(got));
            } else {
                dropped += quint64(got);
            }
        }
        if (fd >= 0) {
            ::close(fd);
        }
        // `this` outlives the job: the destructor waits for it.
        QStringList lines = splitIntoLines(decode(buffer));
        std::lock_guard lock(shared->mutex);
        shared->lines = std::move(lines);
        shared->dropped = dropped;
        shared->finished = true;
        shared->done.notify_all();
    });
}

template <typename Read> auto TextPipeReader::whenFinished(Read read) -> decltype(read())
{
    if (!m_started) {
        return {};
    }
    std::unique_lock lock(m_shared->mutex);
    m_shared->done.wait(lock, [this] { return m_shared->finished; });
    return read();
}

QStringList TextPipeReader::lines()
{
    return whenFinished([this] { return m_shared->lines; });
}

quint64 TextPipeReader::droppedBytes()
{
    return whenFinished([this] { return m_shared->dropped; });
}
