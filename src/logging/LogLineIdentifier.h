#pragma once

#include <QMetaType>
#include <QString>
#include <atomic>
#include <memory>

class LogLineIdentifier;
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
    size_t hash() const;

    static void registerArchivableClass();

private:
    LogLine m_parent;
    quint64 m_sequence;
    std::atomic<quint64> m_subsequence{0};
    std::atomic<quint16> m_classifications{0};
};

// Equality and order compare parents first, then sequences; none sorts first.
bool operator==(const LogLineIdentifier& a, const LogLineIdentifier& b);
bool operator<(const LogLineIdentifier& a, const LogLineIdentifier& b);
bool sameLine(const LogLine& a, const LogLine& b);

Q_DECLARE_METATYPE(LogLine)
