// A folder of stored cards in which anything may lie. What must hold: the listing has each file that is a stored card,
// oldest first, octet for octet and with a number of its own, and nothing else; and what people are shown of the cards,
// what is on them and their senders, cannot act on their terminal, and is not longer than an answer.
#include "service/inbox.h"

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
#include "service/vcard.h"
#include "service/vcard_words.h"

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

void check_shown(const stored_card_t& card, const std::filesystem::path& file) {
    must_be_safe(card.sender);
    for (const contact_t& contact : contacts_of(card.octets)) {
        must_be_safe(contact.name + contact.organisation + contact.telephone);
    }
    for (const vcard::card_t& one : vcard::cards_of(card.octets)) {
        for (const std::string& line : vcard::words_of(one)) {
            must_be_safe(line);
            must(line.find_first_of("\r\n") == std::string::npos);
        }
    }
    const std::string json =
        card_json(1, file, card).dump(-1, ' ', true, nlohmann::ordered_json::error_handler_t::replace);
    must(json.size() < 20'000 + 6 * file.native().size());
}

void check(const inbox_t::numbered_card_t& one, inbox_t& inbox, const std::string& content) {
    const stored_card_t& card = one.card;
    must(content.ends_with(":" + card.sender + "\n" + card.octets));
    must(content.size() > card.sender.size() + card.octets.size() + 2);  // the time
    must(one.number && inbox.file_of(*one.number) == card.name && inbox.number_of(card.name) == one.number);
    check_shown(card, inbox.folder().file(card.name));
}

using cards_t = std::vector<inbox_t::numbered_card_t>;

cards_t list(inbox_t& inbox) {
    cards_t cards;
    inbox.list(0, [&](inbox_t::numbered_card_t card) {
        cards.push_back(std::move(card));
        return true;
    });
    return cards;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const fuzzed_home_t home;
    std::filesystem::remove_all(inbox_folder_t(home.path()).path());
    for (const char* const suffix : {"", "-wal", "-shm"}) {
        std::filesystem::remove(inbox_t::numbers_file(home.path()).native() + suffix);
    }
    std::filesystem::create_directories(inbox_folder_t(home.path()).path());
    inbox_t inbox(home.path());
    input_t input(data, size);
    const contents_t contents = fill(inbox.folder().path(), input);
    const cards_t cards = list(inbox);
    must(std::ranges::is_sorted(cards, {}, [](const auto& one) { return one.card.time; }));
    for (const inbox_t::numbered_card_t& one : cards) {
        check(one, inbox, contents.at(one.card.name));
    }
    const auto stored = std::ranges::count_if(contents, [](const auto& file) {
        return file.first.size() == ZPD_STORED_NAME_LENGTH && file.first.find('G') == std::string::npos &&
               parse_stored_card(file.first, file.second);
    });
    must(static_cast<size_t>(stored) == cards.size());
    return 0;
}
