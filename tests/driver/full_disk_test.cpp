// What the driver leaves when a file cannot be written to its end. For Linux alone, which has a limit on files.

#include <gmock/gmock.h>
#include <sys/resource.h>

#include <csignal>

#include "tests/driver/phone.h"

namespace {

using full_disk_test = driver_test;

TEST_F(full_disk_test, a_part_of_a_card_is_no_card) {
    phone.preset("activated", 1);
    phone.start();
    signal(SIGXFSZ, SIG_IGN);
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit small{40, before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &small);
    radio.deliver(deliver_message(port_header, std::string(130, 'x')));
    radio.deliver(deliver_message(port_header, "fits"));
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_THAT(phone.cards(), testing::ElementsAre("+123:fits"));
}

}  // namespace
