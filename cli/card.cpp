#include "cli/card.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "base/file.h"
#include "base/safe_text.h"
#include "base/text.h"
#include "com/zpd/zpd_ioctl.h"

namespace {

size_t limit(const card_options_t& options) {
    return options.long_reference ? ZPD_CARD_MAX_LONG_REFERENCE : ZPD_CARD_MAX_SHORT_REFERENCE;
}

}  // namespace

std::string card_t::label() const {
    return base::escaped(std::filesystem::path(path).filename().native());
}

std::string size_and_limit(size_t size, const card_options_t& options) {
    return fmt::format("it has {} octets, and 255 datagrams hold at most {}{}", size, limit(options),
                       options.binary ? "" : ", a little less when characters have to be kept whole");
}

std::string read_card(card_t* card, const card_options_t& options) {
    const std::string shown = base::escaped(card->path);
    if (const int error = base::read_file(card->path, ZPD_CARD_MAX_SHORT_REFERENCE, &card->octets); error != 0) {
        return fmt::format("cannot read the card {}: {}", shown, base::errno_text(error));
    }
    if (card->octets.empty()) {
        return fmt::format("the card {} is empty", shown);
    }
    if (card->octets.size() > limit(options)) {
        std::error_code failed;
        const auto on_disk = std::filesystem::file_size(card->path, failed);
        const size_t size = failed ? card->octets.size() : std::max<size_t>(on_disk, card->octets.size());
        return fmt::format("the card {} is too long: {}", shown, size_and_limit(size, options));
    }
    if (!options.binary && !base::is_utf8(card->octets)) {
        return fmt::format("the card {} is not valid UTF-8; send it as it is with --binary", shown);
    }
    return {};
}
