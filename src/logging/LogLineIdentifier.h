#pragma once

#include <QByteArray>
#include <QMetaType>
#include <QString>
#include <atomic>
#include <memory>

class LogLineIdentifier;
class QDataStream;
using LogLine = std::shared_ptr<LogLineIdentifier>;

// The place of a log line in the tree of lines: a chain of sequence numbers from the
// process's root line down, written "4.73961099.512.7". Children are handed out by `next`
// from any thread.
class LogLineIdentifier : public std::enable_shared_from_this<LogLineIdentifier>
{
public:
    LogLineIdentifier(LogLine parent, quint64 sequence);
    LogLineIdentifier(const LogLineIdentifier&) = delete;
    LogLineIdentifier& operator=(const LogLineIdentifier&) = delete;

    static LogLine extending(const LogLine& parent, quint64 sequence);
    // Malformed text (empty, a non-digit, an empty level, an overflowing number) gives none.
    static LogLine fromString(const QString& text);

    LogLine next();
    const LogLine& parent() const { return m_parent; }
    quint64 sequence() const { return m_sequence; }
    quint64 count() const { return m_subsequence.load(); }
    quint16 classifications() const { return m_classifications.load(); }
    void addClassification(int classification);
    int depth() const;
    quint64 application() const;
    QString description() const;
    // The description's bytes, appended without a temporary per level.
    void appendDescription(QByteArray& bytes) const;
    size_t hash() const;

    static void registerArchivableClass();

private:
    friend QDataStream& operator>>(QDataStream& stream, LogLine& line);

    LogLine m_parent;
    quint64 m_sequence;
    std::atomic<quint64> m_subsequence{0};
    std::atomic<quint16> m_classifications{0};
};

// Equality and order compare parents first, then sequences; none sorts first.
bool operator==(const LogLineIdentifier& a, const LogLineIdentifier& b);
bool operator<(const LogLineIdentifier& a, const LogLineIdentifier& b);
bool sameLine(const LogLine& a, const LogLine& b);

// The non-keyed form: the parent (a presence byte, then the parent's own form), then the
// classifications, the sequence and the count as unsigned 32-bit values. None is one zero byte.
QDataStream& operator<<(QDataStream& stream, const LogLine& line);
QDataStream& operator>>(QDataStream& stream, LogLine& line);

Q_DECLARE_METATYPE(LogLine)
