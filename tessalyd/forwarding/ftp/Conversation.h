#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tessaly::tessalyd::ftp {

/// What client and server say to each other on the control connection during one operation, as far as it
/// matters afterwards. Arguments of commands, a password among them, are not kept, nor is the server's text.
class Conversation {
  public:
    /// What the file's size there has to be.
    explicit Conversation(std::optional<std::uint64_t> expectedSize = {}) : expectedSize_(expectedSize) {}

    /// A command, with its arguments.
    void sent(std::string_view command);
    /// A line of the server's. Returns false if the operation is not to go on: the size is another one, or
    /// the server talks without an end.
    [[nodiscard]] bool received(std::string_view line);

    /// The last command; empty before the first.
    [[nodiscard]] const std::string& verb() const noexcept { return verb_; }
    /// The code of the last reply; 0: to the last command none has come.
    [[nodiscard]] int code() const noexcept { return code_; }
    /// The server has said where it awaits the data connection.
    [[nodiscard]] bool awaitsDataConnection() const noexcept { return code_ == 229 || code_ == 227; }
    /// A connection was made, not one used that was there.
    [[nodiscard]] bool isNew() const noexcept { return isNew_; }
    /// The server has refused the password, and not because there are too many others.
    [[nodiscard]] bool refusesPassword() const noexcept {
        return verb_ == "PASS" && code_ == 530 && !saysTooMany_;
    }
    /// The file has another size there.
    [[nodiscard]] bool sizeDiffers() const noexcept { return sizeDiffers_; }
    /// The server does not know the command SIZE.
    [[nodiscard]] bool lacksSize() const noexcept { return lacksSize_; }

  private:
    [[nodiscard]] bool concludes(std::string_view line);

    std::optional<std::uint64_t> expectedSize_;
    std::string verb_;
    int code_ = 0;
    int lines_ = 0;  // since the last command
    bool isNew_ = false;
    bool saysTooMany_ = false;
    bool sizeDiffers_ = false;
    bool lacksSize_ = false;
};

}  // namespace tessaly::tessalyd::ftp
