/// Who is on a contact card.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "service/vcard_properties.h"

/// What a card does not have is empty. Texts are as they came: they may hold octets that are not UTF-8, and controls.
struct contact_t {
    std::string name;          // the first FN property, else the N property as "given family"
    std::string organisation;  // the first ORG: its parts between ", "
    std::string telephone;     // the first TEL
};

/// Of each of vcard::cards_of.
std::vector<contact_t> contacts_of(std::string_view octets);

contact_t contact_of(const vcard::card_t& card);

/// The number of a TEL property, which vCard 4.0 gives as a URI (RFC 3966).
std::string telephone_of(std::string_view value);
