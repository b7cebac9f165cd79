#include "status/OutlineTree.h"

#include "foundation/KeyedArchive.h"
#include "messaging/ClientIdentifier.h"
#include "messaging/FullyQualifiedIdentifier.h"
#include "messaging/VolumeIdentifier.h"

#include <QCborArray>
#include <QCborStreamWriter>
#include <QCborValue>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {
const ClientIdentifier kOwner(u"Me"_s, 5);
const VolumeIdentifier kVolume(u"6d1f0c52-disk"_s, VolumeIdentifier::Kind::Uuid, u"/media/disk"_s);

QVariantList levels(const ClientIdentifier& client, const QVariantList& below)
{
    return QVariantList{QVariant::fromValue(client), QVariant::fromValue(kVolume)} + below;
}

QByteArray outlineOf(const QList<QVariantList>& entries)
{
    QVariantList archived;
    for (const QVariantList& entry : entries) {
        archived.append(QVariant::fromValue(FullyQualifiedIdentifier::withIdentifierArray(entry)));
    }
    return KeyedArchive::archivedData(archived);
}

// The same archive with an open-ended top array, as another writer might make it.
QByteArray withOpenEndedArray(const QByteArray& data)
{
    const QCborArray entries = QCborValue::fromCbor(data).toArray();
    QByteArray rewritten;
    QCborStreamWriter writer(&rewritten);
    writer.startArray();
    for (const QCborValue& entry : entries) {
        entry.toCbor(writer);
    }
    writer.endArray();
    return rewritten;
}
} // namespace

// Entries that share folders; numbers as levels; the asker's client left open or not; and the
// same answers whether the data take the fast reading or the general decoder.
TEST(OutlineTreeTest, HoldsEntriesAndWhatTheyContainAndNothingElse)
{
    const QByteArray data = outlineOf({
        levels(kOwner, {u"Users"_s, u"me"_s, u"Documents"_s}),
        levels(kOwner, {u"Users"_s, u"me"_s, u"Music"_s, u"song.mp3"_s}),
        levels(kOwner, {u"Layers"_s, 5U}),
    });
    const ClientIdentifier anyClient(u"*"_s, 0xFFFFFFFFU);
    const ClientIdentifier stranger(u"Other"_s, 9);
    const struct
    {
        QVariantList item;
        bool held;
    } cases[] = {
        {levels(anyClient, {u"Users"_s, u"me"_s, u"Documents"_s}), true},
        {levels(anyClient, {u"Users"_s, u"me"_s, u"Documents"_s, u"letter.txt"_s}), true},
        {levels(kOwner, {u"Users"_s, u"me"_s, u"Music"_s, u"song.mp3"_s}), true},
        {levels(anyClient, {u"Users"_s, u"me"_s, u"Music"_s, u"other.mp3"_s}), false},
        {levels(anyClient, {u"Users"_s, u"me"_s, u"Music"_s}), false}, // only inside it
        {levels(anyClient, {u"Users"_s, u"me"_s}), false},
        {levels(anyClient, {u"Users"_s, u"you"_s, u"Documents"_s}), false},
        {levels(stranger, {u"Users"_s, u"me"_s, u"Documents"_s}), false},
        {levels(anyClient, {u"Layers"_s, 5.0, u"block"_s}), true}, // 5u comes back as 5.0
        {levels(anyClient, {u"Layers"_s, u"5"_s}), false},         // a string is no number
        {{}, false},
    };
    for (const QByteArray& form : {data, withOpenEndedArray(data)}) {
        const auto tree = OutlineTree::read(form, std::make_shared<OutlineComponents>());
        ASSERT_TRUE(tree);
        EXPECT_EQ(tree->entryCount(), 3);
        for (const auto& c : cases) {
            SCOPED_TRACE(QVariant(c.item).toStringList().join(u'/').toStdString());
            EXPECT_EQ(tree->holds(c.item), c.held);
        }
    }
}

TEST(OutlineTreeTest, DataThatIsNoOutlineIsNotReadAndOutlinesShareTheirLevels)
{
    const auto components = std::make_shared<OutlineComponents>();
    for (const QByteArray& bad :
         {QByteArray("\xa1\x01", 2), QByteArray(), KeyedArchive::archivedData(u"Photos"_s),
          QByteArray("\x9f\x01", 2) /* an array that never ends */}) {
        EXPECT_FALSE(OutlineTree::read(bad, components)) << bad.toHex().toStdString();
    }
    const QByteArray first = outlineOf({levels(kOwner, {u"Users"_s, u"me"_s})});
    const QByteArray second = outlineOf({levels(kOwner, {u"Users"_s, u"you"_s})});
    ASSERT_TRUE(OutlineTree::read(first, components));
    const qsizetype known = components->size();
    ASSERT_TRUE(OutlineTree::read(second, components));
    EXPECT_EQ(components->size(), known + 1) << "only \"you\" is new";
}
