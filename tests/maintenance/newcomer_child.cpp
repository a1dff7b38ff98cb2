// Opens the data source's database, as a server does, and runs a statement: a process that comes while
// another one compacts that database.

#include <csignal>
#include <cstdlib>
#include <iostream>
#include <string_view>

#include "db/Connection.h"
#include "db/Query.h"

/// newcomer_child STATEMENT [killed]; killed, it dies before it has closed the database.
int main(int argc, char** argv) {
    try {
        tessaly::db::Connection connection;
        connection.setConnectString("DSN=DicomFDB");
        connection.establish();
        tessaly::db::execute(connection, argv[1]);
        if (argc > 2 && std::string_view{argv[2]} == "killed")
            std::raise(SIGKILL);
        return EXIT_SUCCESS;
    } catch (const std::exception& fault) {
        std::cout << fault.what() << std::flush;
        return EXIT_FAILURE;
    }
}
