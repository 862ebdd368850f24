#include "air/result_codes.h"

#include <algorithm>
#include <string>

namespace air {

namespace {

constexpr std::string_view please_wait = "please wait, init or command processing in progress";

constexpr result_code_t cms[] = {
    {1, "Unassigned (unallocated) number"},
    {8, "Operator determined barring"},
    {10, "Call barred"},
    {21, "Short message transfer rejected"},
    {22, "Memory capacity exceeded"},
    {27, "Destination out of order"},
    {28, "Unidentified subscriber"},
    {29, "Facility rejected"},
    {30, "Unknown subscriber"},
    {38, "Network out of order"},
    {41, "Temporary failure"},
    {42, "Congestion"},
    {47, "Resources unavailable, unspecified"},
    {50, "Requested facility not subscribed"},
    {69, "Requested facility not implemented"},
    {81, "Invalid short message transfer reference value"},
    {95, "Semantically incorrect message"},
    {96, "Invalid mandatory information"},
    {97, "Message type non-existent or not implemented"},
    {98, "Message not compatible with short message protocol state"},
    {99, "Information element non-existent or not implemented"},
    {111, "Protocol error, unspecified"},
    {127, "Interworking, unspecified"},
    {128, "Telematic interworking not supported"},
    {129, "Short message Type 0 not supported"},
    {130, "Cannot replace short message"},
    {143, "Unspecified TP-PID error"},
    {144, "Data coding scheme (alphabet) not supported"},
    {145, "Message class not supported"},
    {159, "Unspecified TP-DCS error"},
    {160, "Command cannot be actioned"},
    {161, "Command unsupported"},
    {175, "Unspecified TP-Command error"},
    {176, "TPDU not supported"},
    {192, "SC busy"},
    {193, "No SC subscription"},
    {194, "SC system failure"},
    {195, "Invalid SME address"},
    {196, "Destination SME barred"},
    {197, "SM rejected-duplicate SM"},
    {198, "TP-VPF not supported"},
    {199, "TP-VP not supported"},
    {208, "(U)SIM SMS storage full"},
    {209, "No SMS storage capability in SIM"},
    {210, "Error in MS"},
    {211, "Memory capacity exceeded"},
    {212, "(U)SIM Application Toolkit busy"},
    {213, "(U)SIM data download error"},
    {255, "Unspecified error cause"},
    {300, "ME failure"},
    {301, "SMS service of ME reserved"},
    {302, "operation not allowed"},
    {303, "operation not supported"},
    {304, "invalid PDU mode parameter"},
    {305, "invalid text mode parameter"},
    {310, "(U)SIM not inserted"},
    {311, "(U)SIM PIN required"},
    {312, "PH-(U)SIM PIN required"},
    {313, "(U)SIM failure"},
    {314, "(U)SIM busy"},
    {315, "(U)SIM wrong"},
    {316, "(U)SIM PUK required"},
    {317, "(U)SIM PIN2 required"},
    {318, "(U)SIM PUK2 required"},
    {320, "memory failure"},
    {321, "invalid memory index"},
    {322, "memory full"},
    {330, "SMSC address unknown"},
    {331, "no network service"},
    {332, "network timeout"},
    {340, "no +CNMA acknowledgement expected"},
    {500, "unknown error"},
    {initialising, please_wait},
};

constexpr result_code_t cme[] = {
    {0, "phone failure"},
    {1, "no connection to phone"},
    {2, "phone-adaptor link reserved"},
    {3, "operation not allowed"},
    {4, "operation not supported"},
    {5, "PH-SIM PIN required"},
    {6, "PH-FSIM PIN required"},
    {7, "PH-FSIM PUK required"},
    {10, "SIM not inserted"},
    {11, "SIM PIN required"},
    {12, "SIM PUK required"},
    {13, "SIM failure"},
    {14, "SIM busy"},
    {15, "SIM wrong"},
    {16, "incorrect password"},
    {17, "SIM PIN2 required"},
    {18, "SIM PUK2 required"},
    {20, "memory full"},
    {21, "invalid index"},
    {22, "not found"},
    {23, "memory failure"},
    {24, "text string too long"},
    {25, "invalid characters in text string"},
    {26, "dial string too long"},
    {27, "invalid characters in dial string"},
    {30, "no network service"},
    {31, "network timeout"},
    {32, "network not allowed - emergency calls only"},
    {40, "network personalization PIN required"},
    {41, "network personalization PUK required"},
    {42, "network subset personalization PIN required"},
    {43, "network subset personalization PUK required"},
    {44, "service provider personalization PIN required"},
    {45, "service provider personalization PUK required"},
    {46, "corporate personalization PIN required"},
    {47, "corporate personalization PUK required"},
    {48, "hidden key required"},
    {50, "Incorrect parameters"},
    {100, "unknown"},
    {initialising, please_wait},
};

std::string folded(std::string_view words) {
    std::string letters;
    for (const char c : words) {
        if ((c >= '0' && c <= '9') || (c >= 'a' && c <= 'z')) {
            letters += c;
        } else if (c >= 'A' && c <= 'Z') {
            letters += static_cast<char>(c - 'A' + 'a');
        }
    }
    if (const size_t universal = letters.find("usim"); universal != std::string::npos) {
        letters.erase(universal, 1);
    }
    return letters;
}

}  // namespace

std::span<const result_code_t> cms_errors() {
    return cms;
}

std::span<const result_code_t> cme_errors() {
    return cme;
}

std::string_view words_of(std::span<const result_code_t> table, unsigned number) {
    const auto row = std::ranges::find(table, number, &result_code_t::number);
    return row == table.end() ? std::string_view() : row->words;
}

std::optional<unsigned> number_of(std::span<const result_code_t> table, std::string_view words) {
    const std::string wanted = folded(words);
    if (wanted.starts_with("pleasewait")) {  // some cut the words that follow short
        return initialising;
    }
    const auto row = std::ranges::find(table, wanted, [](const result_code_t& code) { return folded(code.words); });
    return row == table.end() ? std::nullopt : std::optional(row->number);
}

}  // namespace air
