#include <QApplication>
#include <QSharedMemory>

#include "heaptrim.h"
#include "uiprompt.h"
#include "widget.h"

namespace {

// A crashed instance leaves its segment behind on Linux. Attaching and
// detaching as the last user removes such an orphan; a live instance keeps
// it attached, so the create below still fails for a second start.
void clearStaleSegment(const QString& key) {
    QSharedMemory probe(key);
    if (probe.attach()) probe.detach();
}

}  // namespace

int main(int argc, char* argv[]) {
    keepLargeBlocksMapped();
    QApplication a(argc, argv);
    UiPrompt::installFromEnvironment();

    const QString key = QCoreApplication::applicationName();
    clearStaleSegment(key);
    QSharedMemory instance(key);
    if (!instance.create(1, QSharedMemory::ReadWrite)) {
        UiPrompt::warning(nullptr, "already opened!", "already opened!");
        return 0;
    }

    Widget w;
    w.show();
    return a.exec();
}
