/// The cards that a phone has received and stored: one file each in the incoming folder of its home, "<unix
/// time>:<sender>" on the first line and then the card's octets.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct stored_card_t {
    std::string name;  // of the file: 32 hexadecimal digits
    uint64_t time = 0;
    std::string sender;
    std::string octets;
};

/// None when the content does not have the form of a stored card.
std::optional<stored_card_t> parse_stored_card(std::string name, std::string_view content);

class inbox_folder_t {
  public:
    /// What lies under the name of a stored card.
    enum class file_t { card, other, gone, unreadable };

    explicit inbox_folder_t(const std::filesystem::path& home);

    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path file(const std::string& name) const { return path_ / name; }
    /// False for a name that no stored card has, too.
    bool has(const std::string& name) const;

    /// The names that a stored card can have, in no order; `error` stays as it is when the folder could be read, or
    /// does not exist.
    std::vector<std::string> names(std::string* error) const;
    /// Sets `card`, or `error` when it is unreadable.
    file_t read(const std::string& name, stored_card_t* card, std::string* error) const;
    /// None, with the reason in `error`, for a file that cannot be read or is no stored card.
    std::optional<stored_card_t> load(const std::string& name, std::string* error) const;

  private:
    std::filesystem::path path_;
};
