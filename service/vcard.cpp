#include "service/vcard.h"

#include <utility>

using vcard::components;
using vcard::joined;

namespace {

/// N is family name; given name; further ones (RFC 6350 6.2.2).
std::string name_of_n(std::vector<std::string> parts) {
    parts.resize(2);
    std::swap(parts[0], parts[1]);
    return joined(parts, " ");
}

void set_first(std::string& text, std::string value) {
    if (text.empty()) {
        text = std::move(value);
    }
}

}  // namespace

std::string telephone_of(std::string_view value) {
    const std::string text = vcard::text_of(value);
    return vcard::upper(text.substr(0, 4)) == "TEL:" ? text.substr(4) : text;
}

contact_t contact_of(const vcard::card_t& card) {
    contact_t contact;
    std::string n;
    for (const vcard::property_t& property : card) {
        if (property.name == "FN") {
            set_first(contact.name, vcard::text_of(property.value));
        } else if (property.name == "N") {
            set_first(n, name_of_n(components(property.value)));
        } else if (property.name == "ORG") {
            set_first(contact.organisation, joined(components(property.value), ", "));
        } else if (property.name == "TEL") {
            set_first(contact.telephone, telephone_of(property.value));
        }
    }
    set_first(contact.name, std::move(n));
    return contact;
}

std::vector<contact_t> contacts_of(std::string_view octets) {
    std::vector<contact_t> contacts;
    for (const vcard::card_t& card : vcard::cards_of(octets)) {
        contacts.push_back(contact_of(card));
    }
    return contacts;
}
