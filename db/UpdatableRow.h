#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "db/Query.h"

namespace tessaly::db {

/// One row of one table, open for change: read when it is made, written back with update() or as a new row
/// with insert(). Only columns that were set are written, by one statement with bound values; the others keep
/// what they have. Column names are taken without regard to case; an unknown one throws. The connection must
/// outlive it and be open; nothing stays locked in between.
class UpdatableRow {
  public:
    /// Reads the first row of `select`, a SELECT * on `table` alone; a set without rows still gives the
    /// table's columns. The values of `key` tell the table's rows apart.
    UpdatableRow(const Connection& connection, std::string table, std::string_view key,
                 const std::string& select);

    /// False when there was no row: only insert() makes sense then.
    [[nodiscard]] bool exists() const noexcept { return exists_; }
    [[nodiscard]] bool isText(std::string_view column) const;
    /// The value last set or else read; nothing for NULL.
    [[nodiscard]] const std::optional<std::string>& value(std::string_view column) const;

    /// The value to write, nothing for NULL. A column that is no text takes numbers alone and throws on
    /// anything else, whatever the engine would let through.
    void set(std::string_view column, std::optional<std::string> value);

    /// Rewrites the row that was read, also when its key is among the columns set. Throws when it is gone.
    /// The row written is the one that a further update() rewrites.
    void update();
    void insert();

  private:
    struct Field {
        std::string name;
        bool isText = false;
        std::optional<std::string> value = {};
        bool set = false;

        [[nodiscard]] Param parameter() const;
    };
    /// The columns that were set, as the pieces of a statement.
    struct Change {
        std::string columns;
        std::string markers;
        std::string assignments;
        std::vector<Param> values;
    };
    [[nodiscard]] std::size_t indexOf(std::string_view column) const;
    [[nodiscard]] std::string quoted(const Field& field) const;
    [[nodiscard]] Change change() const;
    void written();

    const Connection& connection_;
    std::string table_;
    std::vector<Field> fields_;
    std::size_t key_ = 0;                 // index into fields_
    std::optional<std::string> keyRead_;  // the key of the row as it stands in the table
    bool exists_ = false;
};

}  // namespace tessaly::db
