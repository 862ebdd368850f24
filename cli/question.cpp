#include "cli/question.h"

#include <unistd.h>

#include <iostream>
#include <string>

#include "cli/output.h"

bool can_ask() {
    return isatty(STDIN_FILENO) != 0 && isatty(STDERR_FILENO) != 0;
}

bool ask(std::string_view question) {
    remark(question, " [y/N] ");
    std::string answer;
    std::getline(std::cin, answer);
    return answer == "y" || answer == "Y" || answer == "yes";
}
