#pragma once

#include <QStringList>

// kestromctl writes archives the way capture and verify commands leave them, for demos and
// tests (`archive create`), and prints an archive's grading as the monitor computes it
// (`archive status`).
class ArchiveVerbs
{
public:
    static bool handles(const QString& verb);
    // 0 success, 1 failure, 2 a usage error.
    static int run(const QStringList& arguments);
    static QString usage();
};
