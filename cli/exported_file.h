/// Cards as files of people: names that they can read, and whole contents.
#pragma once

#include <filesystem>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <string_view>

/// The names of files for cards, each another one: "Ann Placeholder.vcf", "Ann Placeholder 2.vcf". At most 100 octets,
/// without anything that a file system, a shell or a terminal takes amiss.
class readable_names_t {
  public:
    std::string name_for(const nlohmann::ordered_json& card);

  private:
    std::set<std::string> taken_;  // without regard to case: some file systems have none
};

/// Writes a file so that it is there whole or not at all. One that is there already is left alone, save with
/// `overwrite`, and then only a regular one is replaced. Returns an empty text, or why it cannot.
[[nodiscard]] std::string write_whole(const std::filesystem::path& file, std::string_view octets, bool overwrite);
