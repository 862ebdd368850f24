// Senders of cards, a network and a service that is killed, all of whose choices the input makes: what comes whole is
// stored as often as it was sent, and nothing else is.
#include <stdlib.h>

#include "fuzz/fuzz.h"
#include "fuzz/input.h"
#include "tests/radio/card_world.h"

namespace {

// References come round late, or no datagram is lost: else there is no telling apart.
constexpr manners_t manners[] = {
    {.senders = 2,
     .references = 2,
     .reused_after = 100'000,
     .longest_gap = 3000,
     .lost_of_100 = 8,
     .in_a_burst = false},
    {.senders = 2, .references = 2, .reused_after = 500, .longest_gap = 300, .lost_of_100 = 0, .in_a_burst = false}};

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    silence();
    char folder[] = "/dev/shm/zpd-fuzz-XXXXXX";
    must(mkdtemp(folder) != nullptr);
    input_t input(data, size);
    {
        card_world_t world(folder, manners[input.below(2)], [&](unsigned most) {
            if (input.empty()) {
                return most;  // else there would be no end of kills
            }
            const unsigned octets = most > 255 ? input.octet() * 256U + input.octet() : input.octet();
            return octets % (most + 1);
        });
        while (!input.empty()) {
            world.send(1 + input.below(32));
        }
        const auto result = world.result();
        must(result.missed == 0 && result.surplus == 0 && result.mixed == 0);
    }
    std::filesystem::remove_all(folder);
    return 0;
}
