// A console that compacts a server's tables, to be killed by a test, or to be put where it has no tool.

#include <QCoreApplication>
#include <cstdio>
#include <stdexcept>

#include "db/Connection.h"
#include "maintenance/ServerCompaction.h"

int main(int argc, char** argv) {
    const QCoreApplication application{argc, argv};
    try {
        tessaly::maintenance::NoProgress progress;
        tessaly::maintenance::ServerCompaction{}.run(tessaly::db::Connection{}, progress);
        return 0;
    } catch (const std::runtime_error& fault) {
        std::puts(fault.what());
        return 1;
    }
}
