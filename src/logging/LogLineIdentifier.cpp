#include "logging/LogLineIdentifier.h"

#include "foundation/KeyedArchive.h"
#include "foundation/KeyedDecoder.h"

#include <QDataStream>
#include <QStringList>
#include <algorithm>
#include <charconv>
#include <vector>

namespace {
std::vector<const LogLineIdentifier*> chainFromRoot(const LogLineIdentifier& line)
{
    std::vector<const LogLineIdentifier*> chain;
    for (const LogLineIdentifier* level = &line; level != nullptr; level = level->parent().get()) {
        chain.push_back(level);
    }
    return {chain.rbegin(), chain.rend()};
}
} // namespace

LogLineIdentifier::LogLineIdentifier(LogLine parent, quint64 sequence)
    : m_parent(std::move(parent))
    , m_sequence(sequence)
{}

LogLine LogLineIdentifier::extending(const LogLine& parent, quint64 sequence)
{
    return std::make_shared<LogLineIdentifier>(parent, sequence);
}

LogLine LogLineIdentifier::fromString(const QString& text)
{
    LogLine line;
    const QStringList levels = text.split(QLatin1Char('.'));
    for (const QString& level : levels) {
        bool ok = false;
        const quint64 sequence = level.toULongLong(&ok, 10);
        const bool digitsOnly = std::all_of(level.cbegin(), level.cend(), [](QChar c) {
            return c >= QLatin1Char('0') && c <= QLatin1Char('9');
        });
        if (!ok || level.isEmpty() || !digitsOnly) {
            return nullptr;
        }
        line = extending(line, sequence);
    }
    return line;
}

LogLine LogLineIdentifier::next()
{
    return extending(shared_from_this(), m_subsequence.fetch_add(1) + 1);
}

void LogLineIdentifier::addClassification(int classification)
{
    if (classification >= 0 && classification < 16) {
        m_classifications.fetch_or(quint16(1U << unsigned(classification)));
    }
}

int LogLineIdentifier::depth() const
{
    return int(chainFromRoot(*this).size());
}

quint64 LogLineIdentifier::application() const
{
    return chainFromRoot(*this).front()->sequence();
}

QString LogLineIdentifier::description() const
{
    QStringList levels;
    for (const LogLineIdentifier* level : chainFromRoot(*this)) {
        levels << QString::number(level->sequence());
    }
    return levels.join(QLatin1Char('.'));
}

void LogLineIdentifier::appendDescription(QByteArray& bytes) const
{
    if (m_parent) {
        m_parent->appendDescription(bytes);
        bytes += '.';
    }
    char digits[20];
    const auto written = std::to_chars(digits, digits + sizeof digits, m_sequence);
    bytes.append(digits, written.ptr - digits);
}

size_t LogLineIdentifier::hash() const
{
    constexpr unsigned kFirstShift = 48;
    constexpr unsigned kStep = 3;
    size_t hash = 0;
    unsigned shift = kFirstShift;
    for (const LogLineIdentifier* level : chainFromRoot(*this)) {
        hash ^= size_t(level->sequence()) << shift;
        shift = shift < kStep * 2 ? kFirstShift : shift - kStep;
    }
    return hash;
}

bool operator==(const LogLineIdentifier& a, const LogLineIdentifier& b)
{
    return a.sequence() == b.sequence() && sameLine(a.parent(), b.parent());
}

bool operator<(const LogLineIdentifier& a, const LogLineIdentifier& b)
{
    const LogLine& pa = a.parent();
    const LogLine& pb = b.parent();
    if (!sameLine(pa, pb)) {
        return !pa || (pb && *pa < *pb);
    }
    return a.sequence() < b.sequence();
}

bool sameLine(const LogLine& a, const LogLine& b)
{
    if (!a || !b) {
        return !a && !b;
    }
    return *a == *b;
}

QDataStream& operator<<(QDataStream& stream, const LogLine& line)
{
    stream << quint8(line ? 1 : 0);
    if (line) {
        stream << line->parent() << quint32(line->classifications()) << quint32(line->sequence())
               << quint32(line->count());
    }
    return stream;
}

QDataStream& operator>>(QDataStream& stream, LogLine& line)
{
    quint8 present = 0;
    stream >> present;
    line = nullptr;
    if (present == 0) {
        return stream;
    }
    LogLine parent;
    quint32 classifications = 0;
    quint32 sequence = 0;
    quint32 count = 0;
    stream >> parent >> classifications >> sequence >> count;
    if (stream.status() == QDataStream::Ok) {
        line = LogLineIdentifier::extending(parent, sequence);
        line->m_subsequence = count;
        line->m_classifications = quint16(classifications);
    }
    return stream;
}

void LogLineIdentifier::registerArchivableClass()
{
    KeyedArchive::registerClass<LogLine>(
        QStringLiteral("LogLineIdentifier"),
        [](const QVariant& object) {
            const auto line = object.value<LogLine>();
            if (!line) {
                return QVariantMap();
            }
            QVariantMap fields{{QStringLiteral("classmap"), qint64(line->classifications())},
                               {QStringLiteral("seq"), QVariant::fromValue(line->sequence())},
                               {QStringLiteral("subseq"), QVariant::fromValue(line->count())}};
            if (line->parent()) {
                fields.insert(QStringLiteral("parent"), QVariant::fromValue(line->parent()));
            }
            return fields;
        },
        [](const KeyedDecoder& coder) {
            const LogLine parent =
                coder.decodeObject(QStringLiteral("parent"), {QStringLiteral("LogLineIdentifier")})
                    .value<LogLine>();
            auto line = extending(parent, quint64(coder.decodeInt64(QStringLiteral("seq"))));
            line->m_subsequence = quint64(coder.decodeInt64(QStringLiteral("subseq")));
            line->m_classifications = quint16(coder.decodeInt64(QStringLiteral("classmap")));
            return QVariant::fromValue(line);
        });
}

namespace {
[[maybe_unused]] const bool s_registered = (LogLineIdentifier::registerArchivableClass(), true);
} // namespace
