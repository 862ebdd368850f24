// zpd count: what cards take that come in files, folders and streams, and what is told of those that cannot be sent. No
// service runs.
#include <gmock/gmock.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "tests/system/phones.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;

std::string vcard(const std::string& name) {
    return "BEGIN:VCARD\r\nVERSION:2.1\r\nFN" + name + "\r\nEND:VCARD\r\n";
}

std::string utf16(const std::string& ascii, bool little_endian) {
    std::string octets;
    for (const char letter : ascii) {
        octets += little_endian ? std::string{letter, '\0'} : std::string{'\0', letter};
    }
    return octets;
}

/// The octets of `cards`, in order, as the command would send them.
std::vector<size_t> octets_of(const arguments_t& arguments, size_t errors = 0) {
    const outcome_t outcome = zpd(joined({"count", "--json"}, arguments));
    EXPECT_EQ(outcome.status, errors == 0 ? 0 : 1) << outcome.errors;
    std::vector<size_t> octets;
    const auto told = nlohmann::json::parse(outcome.output);
    for (const auto& card : told["cards"]) {
        errors -= card.contains("error") ? 1 : 0;
        octets.push_back(card.value("octets", size_t{0}));
    }
    EXPECT_EQ(errors, 0U) << outcome.output;
    return octets;
}

TEST(count, cards_come_in_files_folders_and_streams_whole_or_one_by_one) {
    const folder_t folder;
    const std::string ann = vcard(":Ann"), agent = "BEGIN:VCARD\nAGENT:\n" + ann + "END:VCARD\n\n";
    std::filesystem::create_directories(folder / "cards/deeper");
    const std::string all =
        write_file(folder / "cards/b.vcf", "\xEF\xBB\xBF" + ann + "\r\n" + agent + "begin:vcard\nend:vcard");
    write_file(folder / "cards/a.VCF", ann);
    write_file(folder / "cards/c.txt", ann);
    write_file(folder / "cards/deeper/d.vcf", ann);
    const size_t size = read_file(all).size();
    EXPECT_EQ(octets_of({folder / "cards", all}), (std::vector<size_t>{ann.size(), size, size}));
    EXPECT_EQ(octets_of({"--convert", all}), std::vector<size_t>{size - 3});
    EXPECT_EQ(octets_of({"--split", folder / "cards"}),
              (std::vector<size_t>{ann.size(), ann.size(), agent.size() - 1, 21}));
    EXPECT_THAT(zpd({"count", "--split", all}).output, AllOf(HasSubstr("b.vcf (2 of 3): "), HasSubstr("\n3 cards: ")));
    EXPECT_THAT(zpd({"count", all}).errors, HasSubstr("byte order mark"));
    const std::string piped = "'" ZPD_BINARY "' count - <'" + all + "' | grep -q '^standard input: .*, 2 datagrams$'";
    EXPECT_EQ(std::system(piped.c_str()), 0);
}

TEST(count, what_cannot_be_sent_is_told_with_what_helps_and_the_others_are_counted) {
    const folder_t folder;
    const std::string ann = vcard(":Ann"), good = write_file(folder / "good.vcf", ann);
    std::filesystem::create_directory(folder / "none");
    const std::tuple<std::string, std::string, std::string> cases[] = {
        {"le.vcf", "\xFF\xFE" + utf16(ann, true), "le.vcf is UTF-16; send it converted: zpd count --convert "},
        {"be.vcf", utf16(ann, false), "is UTF-16; "},
        {"latin 1.vcf", vcard(":M\xFCller"), "not UTF-8, but Latin-1 or Windows-1252 by its look; send it converted: "},
        {"damaged.vcf", vcard(":\xC3\xBC\xC3"), "is not valid UTF-8; send it as it is: zpd count --binary "},
        {"control.vcf", vcard(":\xFC\x01"), "--binary"},
        {"no.vcf", "Ann", "is no vCard (no BEGIN:VCARD ... END:VCARD); count it all the same: zpd count --force "},
        {"cut.vcf", ann + "BEGIN:VCARD\r\n", "has more in it than whole vCards"},
        {"long.vcf", vcard(":" + std::string(32640, 'x')), "is too long: its 32682 octets take 256 datagrams"},
        {"many.vcf", vcard(":" + std::string(20000, 'x')) + vcard(":" + std::string(20000, 'x')),
         "it has 2 vCards in it, send them one by one: zpd count --split "},
        {"empty.vcf", "", "empty.vcf is empty"},
        {"none", "", "has no *.vcf in it"},
        {"nowhere.vcf", "", "No such file"},
    };
    arguments_t all;
    for (const auto& [name, octets, told] : cases) {
        if (!octets.empty() || name == "empty.vcf") {
            write_file(folder / name, octets);
        }
        all.push_back(folder / name);
        EXPECT_THAT(zpd({"count", folder / name}).errors, AllOf(testing::StartsWith("zpd count: "), HasSubstr(told)));
    }
    const auto octets = octets_of(joined(all, {good}), all.size());
    EXPECT_EQ(octets.back(), ann.size());
    EXPECT_EQ(octets_of({"--force", folder / "no.vcf", folder / "cut.vcf"}), (std::vector<size_t>{3, ann.size() + 13}));
    EXPECT_EQ(octets_of({"--split", folder / "many.vcf"}), (std::vector<size_t>{20042, 20042}));
}

TEST(count, converted_cards_are_utf8_in_name_and_in_fact) {
    const folder_t folder;
    const std::string converted = vcard(";CHARSET=UTF-8:\xC5\xB8\r\n \xC3\xA9\r\nN:\xE2\x82\xAC");
    const std::string quoted = vcard(";CHARSET=ISO-8859-1;ENCODING=QUOTED-PRINTABLE:=FC");
    // Windows-1252 and what a line says; the octet 0xBE is another letter in each.
    const auto size = [&](const std::string& octets) {
        return octets_of({"--convert", write_file(folder / "card.vcf", octets)}).at(0);
    };
    EXPECT_EQ(size(vcard(";CHARSET=iso-8859-15:\xBE\r\n \xE9\r\nN:\x80")), converted.size());
    EXPECT_EQ(size(utf16(quoted, true)), quoted.size());
    EXPECT_EQ(size(quoted), quoted.size());
    octets_of({"--convert", write_file(folder / "card.vcf", vcard(";CHARSET=no-such:\xBE"))}, 1);
}

}  // namespace
