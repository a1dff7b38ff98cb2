#pragma once

namespace tessaly::db {

/// An engine that works in this process calls back while it works on a session's statement, in the thread
/// that waits for the statement. Belongs to the session and its thread.
class Progress {
  public:
    class Listener {
      public:
        /// True ends the statement, and no other of the session: its ODBC call fails. Called every few
        /// microseconds. Must not use the connection.
        [[nodiscard]] virtual bool endsStatement() noexcept = 0;

      protected:
        ~Listener() = default;
    };

    Progress() = default;
    virtual ~Progress() = default;
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// Null: nobody is called, and no statement ended.
    virtual void setListener(Listener* listener) noexcept = 0;
};

}  // namespace tessaly::db
