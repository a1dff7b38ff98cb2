#include <QApplication>

#include "console/app/Startup.h"

int main(int argc, char* argv[]) {
    const QApplication application{argc, argv};
    return tessaly::Main();
}
