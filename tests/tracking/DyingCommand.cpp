// A command process for tests that kill one mid-run: it serves a FakeCommand and, once told
// about its listener, reports its start and one progress update to the listener named on its
// command line; then it runs until it is killed.
#include "FakeCommand.h"
#include "foundation/KeyedArchive.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QTimer>
#include <cstdio>

using namespace Qt::StringLiterals;

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    QDBusConnection bus = QDBusConnection::sessionBus();
    auto* command = new FakeCommand(u"capture"_s);
    command->setParent(&app);
    if (arguments.size() != 3 ||
        !bus.registerObject(u"/test/dying"_s, command,
                            QDBusConnection::ExportAdaptors | QDBusConnection::ExportAllSlots)) {
        return 2;
    }
    std::printf("serving %s /test/dying\n", qPrintable(bus.baseService()));
    std::fflush(stdout);
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, [&] {
        if (command->count(u"addListenerToPublishedService"_s) == 0) {
            return;
        }
        poll.stop();
        const Endpoint listener(arguments.at(1), arguments.at(2));
        bus.send(listenerMessage(listener, u"commandStarted"_s));
        bus.send(listenerMessage(
            listener, u"progressUpdate"_s,
            {KeyedArchive::archivedData(QVariantMap{{u"task"_s, u"Capturing"_s}})}));
    });
    poll.start(10);
    return QCoreApplication::exec();
}
