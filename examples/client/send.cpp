// send-cpp CARD.vcf NUMBER DEVICE: hands in a card, and tells what happens on the phone until it is sent. How a loop of
// events takes part: it waits for a descriptor.
#include <poll.h>

#include <ctime>
#include <fstream>
#include <iostream>
#include <iterator>
#include <zpd/client.hpp>

namespace {

bool is_end_of(const zpd::event_t& event, std::uint64_t message) {
    return event.message == message && (event.kind == zpd::kind_t::sent || event.kind == zpd::kind_t::set_aside ||
                                        event.kind == zpd::kind_t::cancelled);
}

/// Whether the message was sent.
bool follow(zpd::events_t& events, std::uint64_t message) {
    for (;;) {
        pollfd ready{events.descriptor(), POLLIN, 0};
        poll(&ready, 1, -1);
        const auto event = events.next();
        if (!event) {
            std::cerr << event.failure().text << "; it is asked again\n";
        } else if (*event) {
            std::cout << (*event)->text << std::endl;
            if (is_end_of(**event, message)) {
                return (*event)->kind == zpd::kind_t::sent;
            }
        }
    }
}

}  // namespace

int main(int count, char** arguments) {
    if (count != 4) {
        std::cerr << "usage: send-cpp CARD.vcf NUMBER DEVICE\n";
        return 2;
    }
    std::ifstream file(arguments[1], std::ios::binary);
    const std::string card{std::istreambuf_iterator<char>(file), {}};
    zpd::events_t events(arguments[3], 0, static_cast<std::uint64_t>(std::time(nullptr)));
    zpd::client_t client(arguments[3]);
    const auto message = client.send(card, arguments[2]);
    if (!message) {
        std::cerr << arguments[1] << ": " << message.failure().text << '\n';
        return 1;
    }
    return follow(events, *message) ? 0 : 1;
}
