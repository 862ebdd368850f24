// What a modem may say, in fragments as they come: the pieces, and every reader of a line.
#include "fuzz/fuzz.h"
#include "radio/at_lexer.h"
#include "radio/at_values.h"
#include "radio/result_codes.h"
#include "radio/sim_values.h"

namespace {

void read_line(const std::string& line) {
    radio::registration(line);
    radio::operator_access(line);
    radio::capabilities(line);
    radio::cdma_service(line);
    radio::has_serving_system(line);
    radio::new_message(line);
    radio::readable_memories(line);
    radio::memories_in_use(line);
    radio::memory_level(line);
    radio::message_reference(line);
    for (const radio::tries_question_t& question : radio::tries_questions()) {
        radio::tries_left(question, line);
    }
    const auto card = radio::card_identity(line);
    must(!card || radio::card_identity(*card) == card);
    radio::choose_announcement(radio::offered_numbers(line), true);
    radio::announcement_of(line);
    if (const auto length = radio::delivered_length(line)) {
        radio::tpdus_of_line(line, *length);
    }
    for (const auto& read : {radio::read_message(line), radio::listed_message(line)}) {
        must(!read || radio::tpdus_of_line(line, read->length).empty());  // a header line is no PDU
    }
    for (const auto& result : {radio::final_result(line), radio::numeric_result(line)}) {
        must(!result || !radio::described(*result).empty());
    }
    if (const auto command = radio::command_line(line)) {
        must(command->find_first_of("\r\n\x1a\x1b") == std::string::npos);
    }
}

}  // namespace

/// The first octet: how long the fragments are, and whether a prompt is awaited.
int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    radio::at_lexer_t lexer;
    if (data[0] % 2 == 1) {
        lexer.expect_prompt();
    }
    const size_t step = 1U + data[0] / 2U;
    const std::string octets(data + 1, data + size);
    for (size_t at = 0; at < octets.size(); at += step) {
        for (const radio::token_t& token : lexer.feed(std::string_view(octets).substr(at, step))) {
            must(token.text.empty() == (token.kind == radio::token_t::kind_t::prompt));
            must(token.text.find_first_of("\r\n") == std::string::npos);
            read_line(token.text);
        }
    }
    return 0;
}
