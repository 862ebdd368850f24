// A folder of stored cards in which anything may lie. What must hold: the listing has each file that is a stored card,
// oldest first and octet for octet, and nothing else; what cannot be read is told; and what people are shown of the
// cards, their names and senders, cannot act on their terminal.
#include <algorithm>
#include <fstream>
#include <map>

#include "base/safe_text.h"
#include "base/text.h"
#include "com/zpd/zpd_ioctl.h"
#include "fuzz/fuzz.h"
#include "fuzz/home.h"
#include "fuzz/input.h"
#include "service/card_json.h"
#include "service/inbox_folder.h"
#include "service/vcard.h"

namespace {

using contents_t = std::map<std::string, std::string>;  // by name

bool acts_on_a_terminal(unsigned char octet) {
    return octet < 0x20 || octet == 0x7F;
}

void must_be_safe(const std::string& text) {
    const std::string shown = base::escaped(text);
    must(std::ranges::none_of(shown, acts_on_a_terminal));
    must(base::to_utf8(base::to_utf16(shown)) == shown);
}

/// One that a card may have, or one that it may not.
std::string name_of(input_t& input) {
    std::string name;
    for (const size_t length = input.below(8) == 0 ? input.below(40) + 1 : ZPD_STORED_NAME_LENGTH;
         name.size() < length;) {
        name += (ZPD_STORED_NAME_DIGITS "G")[input.below(64) == 0 ? 16 : input.below(16)];
    }
    return name;
}

/// Files, and now and then a folder in a file's place.
contents_t fill(const std::filesystem::path& folder, input_t& input) {
    contents_t contents;
    while (!input.empty()) {
        const std::string name = name_of(input);
        const bool is_folder = input.below(16) == 0;
        const std::string time = input.below(4) == 0 ? "" : std::to_string(input.u32()) + ":";
        const std::string content = time + input.piece(250);
        if (!contents.contains(name) && is_folder) {
            std::filesystem::create_directory(folder / name);
        } else if (!std::filesystem::is_directory(folder / name)) {
            std::ofstream(folder / name, std::ios::binary) << content;
            contents[name] = content;
        }
    }
    return contents;
}

void check(const stored_card_t& card, const inbox_folder_t& inbox, const std::string& content) {
    must(content.ends_with(":" + card.sender + "\n" + card.octets));
    must(content.size() > card.sender.size() + card.octets.size() + 2);  // the time
    std::string error;
    must(inbox.load(card.name, &error)->octets == card.octets);
    must(inbox.find(card.name, &error) == card.name);
    must_be_safe(card.sender);
    for (const contact_t& contact : contacts_of(card.octets)) {
        must_be_safe(contact.name + contact.organisation + contact.telephone);
    }
    must(card_json(1, inbox.file(card.name), card)
             .dump(-1, ' ', true, nlohmann::ordered_json::error_handler_t::replace)
             .size() < 21'000 + 6 * inbox.file(card.name).native().size());
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const fuzzed_home_t home;
    const inbox_folder_t inbox(home.path());
    std::filesystem::remove_all(inbox.path());
    std::filesystem::create_directories(inbox.path());
    input_t input(data, size);
    const contents_t contents = fill(inbox.path(), input);
    const inbox_folder_t::listing_t listing = inbox.cards();
    must(std::ranges::is_sorted(listing.cards, {}, &stored_card_t::time));
    for (const stored_card_t& card : listing.cards) {
        check(card, inbox, contents.at(card.name));
    }
    const auto cards = std::ranges::count_if(contents, [](const auto& file) {
        return file.first.size() == ZPD_STORED_NAME_LENGTH && file.first.find('G') == std::string::npos &&
               parse_stored_card(file.first, file.second);
    });
    must(static_cast<size_t>(cards) == listing.cards.size());
    return 0;
}
