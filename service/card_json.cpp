#include "service/card_json.h"

#include <string>
#include <utility>

#include "base/text.h"
#include "service/vcard.h"

namespace {

using nlohmann::ordered_json;

// An answer of the service has room for 64 KB, and JSON takes up to six octets for one.
constexpr size_t longest_text = 500;
constexpr size_t longest_list = 15'900;

std::string shortened(std::string text) {
    if (text.size() <= longest_text) {
        return text;
    }
    size_t length = 0;
    for (size_t next = 0; next <= longest_text;
         next += base::first_code_point(std::string_view(text).substr(next)).length) {
        length = next;
    }
    return text.substr(0, length) + "…";
}

ordered_json text_or_null(std::string text) {
    return text.empty() ? ordered_json() : ordered_json(shortened(std::move(text)));
}

}  // namespace

ordered_json contacts_json(std::string_view octets) {
    ordered_json contacts = ordered_json::array();
    size_t size = 0;
    for (contact_t& contact : contacts_of(octets)) {
        ordered_json one = {{"name", shortened(std::move(contact.name))},
                            {"organisation", text_or_null(std::move(contact.organisation))},
                            {"telephone", text_or_null(std::move(contact.telephone))}};
        size += one.dump(-1, ' ', true, ordered_json::error_handler_t::replace).size() + 1;
        if (size > longest_list && !contacts.empty()) {
            break;
        }
        contacts.push_back(std::move(one));
    }
    return contacts;
}

ordered_json card_json(std::optional<uint64_t> number, const std::filesystem::path& file, const stored_card_t& card) {
    return {{"number", number ? ordered_json(*number) : ordered_json()},
            {"file", card.name},
            {"path", file.native()},
            {"sender", shortened(card.sender)},
            {"received", card.time},
            {"octets", card.octets.size()},
            {"contacts", contacts_json(card.octets)}};
}
