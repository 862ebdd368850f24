#include "cli/planned_faults.h"

#include <poll.h>
#include <unistd.h>

#include "cli/output.h"
#include "network/chaos.h"

namespace {

/// The names of the faults that the phones have.
network::spared_faults_t faults_by_phone(network::network_t& network, const std::vector<std::string>& numbers) {
    network::spared_faults_t faults;
    for (const std::string& number : numbers) {
        for (const std::string& order : network.faults_in_force(number)) {
            faults[number].insert(order.substr(0, order.find('=')));
        }
    }
    return faults;
}

/// Who does not read lets the network go on: what finds no room in the pipe is left out.
void tell_order(const network::planned_order_t& order, const std::string& error) {
    pollfd output{STDOUT_FILENO, POLLOUT, 0};
    if (poll(&output, 1, 0) == 1) {
        say_line(network::to_text(order));
    }
    if (!error.empty()) {
        remark(error);
    }
}

}  // namespace

void follow_faults(network::network_t& network, const std::vector<std::string>& numbers,
                   std::vector<network::planned_order_t> plan, std::optional<uint64_t> seed) {
    if (seed) {
        say("# chaos: --chaos {}", *seed);
        network::chaos_t chaos(*seed, numbers, faults_by_phone(network, numbers));
        network.follow([chaos = std::move(chaos)]() mutable { return chaos.next(); }, tell_order);
    }
    network.follow(network::orders_of(std::move(plan)), tell_order);
}
