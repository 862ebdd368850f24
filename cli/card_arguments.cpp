#include "cli/card_arguments.h"

void add_card_arguments(CLI::App* command, context_t& context, card_arguments_t& arguments) {
    command->add_option("card", arguments.paths, "files, folders of *.vcf, or - for the standard input")
        ->type_name("CARD.vcf")
        ->check(not_empty("the card's name"))
        ->required();
    card_options_t& options = arguments.options;
    auto* split = command->add_flag("--split", options.split, "each vCard of a file with several is a card of its own");
    auto* convert =
        command->add_flag("--convert", options.convert, "make UTF-8 of UTF-16, Windows-1252 or what CHARSET says");
    command->add_flag("--force", options.force, "also what is no vCard");
    command->add_flag("--binary", options.binary, "the card is not UTF-8 text: any octets, cut anywhere")
        ->excludes(split)
        ->excludes(convert);
    command->add_flag(
        "--long-reference", options.long_reference,
        "number the message's parts with a 16-bit reference: fewer mix-ups, 127 octets a datagram, not 128");
    add_json_option(command, context);
}
