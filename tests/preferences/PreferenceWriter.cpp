// Writes keys <prefix>0 … <prefix>N-1 of one domain, flushing after each, once the test says
// "go" on standard input: a second process contending for the same file.
#include "preferences/PreferenceStore.h"

#include <QString>
#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv)
{
    if (argc != 5) {
        std::fprintf(stderr, "usage: %s folder domain prefix count\n", argv[0]);
        return 2;
    }
    PreferenceStore store(QString::fromLocal8Bit(argv[1]));
    const QString domain = QString::fromLocal8Bit(argv[2]);
    const QString prefix = QString::fromLocal8Bit(argv[3]);
    const qint64 count = std::atoll(argv[4]);
    std::printf("ready\n");
    std::fflush(stdout);
    char line[16];
    if (!std::fgets(line, sizeof line, stdin)) {
        return 3;
    }
    for (qint64 i = 0; i < count; ++i) {
        store.setValue(prefix + QString::number(i), QVariant::fromValue(i), domain);
        if (!store.synchronize(domain)) {
            return 1;
        }
    }
    return 0;
}
