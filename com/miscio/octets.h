/// Octet strings: card data, user data, headers, what the radio returns.
#pragma once

#include <string>
#include <string_view>

using octet_string_t = std::string;
using octet_view_t = std::string_view;
