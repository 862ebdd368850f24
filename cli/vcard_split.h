/// Where in a text its vCards are.
#pragma once

#include <string_view>
#include <vector>

struct vcards_t {
    std::vector<std::string_view>
        cards;          // in their order, each from its BEGIN:VCARD to the end of its END:VCARD's line
    bool more = false;  // there is other text, too, also that of one which does not end
};

/// A vCard inside of another (AGENT of vCard 2.1) is part of it. The views are of `text`.
vcards_t split_vcards(std::string_view text);
