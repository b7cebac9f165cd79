#pragma once

#include <QByteArray>
#include <QStringList>
#include <condition_variable>
#include <memory>
#include <mutex>

// Reads one pipe to its end on a background job and splits the text into lines, leaving out
// the blank ones. The writing end goes to a child; this side keeps reading even past the limit,
// so the writer never blocks on a full pipe.
class TextPipeReader
{
public:
    TextPipeReader();
    ~TextPipeReader();
    TextPipeReader(const TextPipeReader&) = delete;
    TextPipeReader& operator=(const TextPipeReader&) = delete;

    // Made on first use; -1 when the system has no pipe to give. Both ends close on exec.
    int readingEnd();
    int writingEnd();
    // Once the child holds its copy of the writing end: closes ours so the end of the child's
    // output is seen as the end of the pipe.
    void closeWritingEnd();

    void startReading();
    // Waits until reading has finished.
    QStringList lines();
    // Bytes read past the limit and not kept; waits like lines().
    quint64 droppedBytes();

    // 0 means UTF-8; otherwise a QStringConverter::Encoding value plus one.
    unsigned encoding() const { return m_encoding; }
    void setEncoding(unsigned encoding) { m_encoding = encoding; }
    // Bytes kept at most, give or take one read; 0 keeps everything.
    quint64 limit() const { return m_limit; }
    void setLimit(quint64 limit) { m_limit = limit; }

    static QStringList splitIntoLines(const QString& text);

private:
    struct Shared;

    void makePipe();
    // Waits until reading has finished, then reads under the lock.
    template <typename Read> auto whenFinished(Read read) -> decltype(read());
    QString decode(const QByteArray& buffer) const;

    std::shared_ptr<Shared> m_shared;
    int m_fds[2] = {-1, -1};
    unsigned m_encoding = 0;
    quint64 m_limit = 0;
    bool m_started = false;
};
