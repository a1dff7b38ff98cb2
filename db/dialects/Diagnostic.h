#pragma once

#include <string>

namespace tessaly::db {

/// One diagnostic record as the driver gave it; text is UTF-8.
struct Diagnostic {
    std::string sqlState;  ///< five characters, "HY000" where the driver knows no better
    int nativeCode = 0;    ///< the engine's own number
    std::string message;
};

/// What a failure means to the program, the weightiest last. Error.h has a type for each.
enum class FaultKind {
    Other,
    StalePlan,     ///< the tables have changed since the statement was prepared
    Conflict,      ///< the transaction was ended because of what others did meanwhile
    DuplicateKey,  ///< a row was refused because a key would stand twice
    LostSession    ///< the session is gone and its connection good for nothing more
};

}  // namespace tessaly::db
