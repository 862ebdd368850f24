/// A question to who sits at the terminal.
#pragma once

#include <string_view>

/// Whether somebody can be asked: the standard input and the standard error are a terminal.
bool can_ask();

/// "zpd send: … [y/N] ", and whether the answer is yes.
bool ask(std::string_view question);
