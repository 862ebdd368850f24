#include "tests/system/phones.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <utility>

#include "base/hex.h"
#include "tests/incoming.h"

namespace fs = std::filesystem;

namespace {

std::string new_folder() {
    std::string path = "/tmp/zpd-system-XXXXXX";
    if (mkdtemp(path.data()) == nullptr) {
        std::abort();
    }
    return path;
}

}  // namespace

int told_number(const char* name, int otherwise) {
    const char* const text = std::getenv(name);
    return text != nullptr ? std::stoi(text) : otherwise;
}

arguments_t joined(arguments_t first, const arguments_t& more) {
    first.insert(first.end(), more.begin(), more.end());
    return first;
}

folder_t::folder_t() : path_(new_folder()) {}

folder_t::~folder_t() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

network_t::network_t(const folder_t& folder, const std::string& phones)
    : directory_(folder / "modems"), process_({"network", "--phones", phones, "--dir", directory_}) {
    EXPECT_TRUE(process_.wait_for_line("ready")) << process_.errors();
}

phone_t::phone_t(const folder_t& folder, const std::string& name, std::string modem)
    : home_(folder / name), device_(folder / (name + ".device")), modem_(std::move(modem)) {}

process_t& phone_t::start(const arguments_t& more) {
    serve_ =
        std::make_unique<process_t>(joined({"serve", "--modem", modem_, "--home", home_, "--device", device_}, more));
    return *serve_;
}

outcome_t phone_t::zpd(const arguments_t& arguments) const {
    return ::zpd(joined(arguments, {"--device", device_}));
}

outcome_t phone_t::inbox(const arguments_t& arguments) const {
    return ::zpd(joined(joined({"inbox"}, arguments), {"--home", home_}));
}

outcome_t phone_t::ioctl(const std::string& code, const arguments_t& more) const {
    return zpd(joined({"ioctl", code, "--json"}, more));
}

std::vector<fs::path> phone_t::stored() const {
    std::error_code none_yet;
    const fs::directory_iterator files(incoming_folder(home_), none_yet);
    return {begin(files), end(files)};
}

std::map<std::string, int> stored_cards(const phone_t& phone) {
    std::map<std::string, int> cards;
    for (const fs::path& file : phone.stored()) {
        const std::string text = read_file(file);
        cards[text.substr(text.find('\n') + 1)] += 1;
    }
    return cards;
}

std::string read_file(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

std::string write_file(const std::string& path, const std::string& octets) {
    std::ofstream(path, std::ios::binary) << octets;
    return path;
}

std::vector<std::string> submissions(const std::string& card, unsigned reference, size_t size) {
    std::vector<std::string> tpdus;
    const size_t parts = std::max<size_t>((card.size() + size - 1) / size, 1);
    for (size_t part = 0; part < parts; ++part) {
        const std::string place = fmt::format("0003{:02X}{:02X}{:02X}", reference & 0xFF, parts, part + 1);
        const std::string header = "050423F423F4" + (parts > 1 ? place : "");
        const std::string body = card.substr(part * size, size);
        const auto* const octets = reinterpret_cast<const uint8_t*>(body.data());
        tpdus.push_back(fmt::format("41000C914477000910200004{:02X}{:02X}{}{}", 1 + header.size() / 2 + body.size(),
                                    header.size() / 2, header, base::to_hex({octets, body.size()})));
    }
    return tpdus;
}
