#include "logging/LogLineIdentifier.h"

#include "foundation/KeyedArchive.h"
#include "foundation/KeyedDecoder.h"

#include <QStringList>
#include <algorithm>
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
