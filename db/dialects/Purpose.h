#pragma once

namespace tessaly::db {

/// What a session is opened for. Its dialect says by which words of the connect string and by which
/// statements an engine is told.
enum class Purpose {
    General,
    Walk,           ///< long walks alone: their rows are fetched as they are walked
    DurableWrites,  ///< what is committed survives a power failure
    Queries,        ///< each statement is planned for its own values
    Snapshot,       ///< walks that only read, and see the database as it is at one moment
    Load            ///< walks, and rows into a new database that nobody uses before it is complete
};

}  // namespace tessaly::db
