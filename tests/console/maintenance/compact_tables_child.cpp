// A console that compacts a server's tables, to be killed by a test.

#include <QCoreApplication>

#include "console/maintenance/ServerCompaction.h"

int main(int argc, char** argv) {
    const QCoreApplication application{argc, argv};
    tessaly::maintenance::compactServer([] { return true; });
    return 0;
}
