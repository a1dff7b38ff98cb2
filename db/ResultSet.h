#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tessaly::db {

namespace detail {
class Statement;
}

/// The rows of one run of a Query, walked once from the first to the last. Standing before the first row when
/// it is made: call next() first. Columns are read by name without regard to case, in any order, as often as
/// wanted; an unknown name throws db::Error, and so does reading before the first or after the last row.
/// Other statements may run, fetch and delete on the connection while it is walked.
class ResultSet {
  public:
    /// Fetches the first row: some drivers do a statement's work only then, and what fails is to fail before
    /// anybody makes room for the rows.
    explicit ResultSet(std::shared_ptr<detail::Statement> statement);
    ~ResultSet();
    ResultSet(ResultSet&& other) noexcept = default;
    ResultSet& operator=(ResultSet&& other) = delete;

    /// Moves to the next row; false at the end of the data.
    [[nodiscard]] bool next();

    [[nodiscard]] bool isNull(std::string_view column);
    /// The whole text however long, UTF-8; NULL reads as empty, isNull() tells the two apart. The reference
    /// holds until next().
    [[nodiscard]] const std::string& text(std::string_view column);
    /// Nothing for NULL.
    [[nodiscard]] std::optional<std::string> optionalText(std::string_view column);
    /// The text of the column at `index`, counted from 0 as columns() has them; null for NULL. For long
    /// walks, which need not look the name up in every row.
    [[nodiscard]] const std::string* value(std::size_t index);
    /// A number; a fraction is cut. Throws on NULL and on text that is no number.
    [[nodiscard]] long long integer(std::string_view column);
    /// True for any number but zero, a fraction too; NULL is false. Throws on text that is no number.
    [[nodiscard]] bool flag(std::string_view column);

    struct Column {
        std::string name;
        bool isText = false;  ///< declared as a character type of any length
    };
    /// The set's columns in order, known before the first row too.
    [[nodiscard]] const std::vector<Column>& columns() const noexcept;

  private:
    struct Cell {
        std::string text;
        bool null = false;
    };
    Cell& cell(std::string_view column);
    Cell& cell(std::size_t index);
    void read(std::size_t index);
    void describeColumns(int count);
    [[nodiscard]] bool fetch();
    void close();

    std::shared_ptr<detail::Statement> statement_;
    std::vector<Cell> cells_;    // reused from row to row, so that a long walk allocates nothing
    std::size_t cellsRead_ = 0;  // cells 0 to cellsRead_-1 hold the current row
    bool onRow_ = false;
    bool ended_ = false;
    std::optional<bool> fetched_;  // whether there is a first row, until next() has said so
};

}  // namespace tessaly::db
