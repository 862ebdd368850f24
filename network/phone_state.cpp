#include "network/phone_state.h"

#include "network/fault_table.h"
#include "network/phone.h"

namespace network {

phone_state_t state_of(const phone_t& phone) {
    const coverage_t coverage = phone.modem().coverage();
    phone_state_t state;
    state.number = phone.number();
    state.technology = name_of(coverage.technology);
    state.tty = phone.tty();
    const auto address = phone.listens_at();
    state.listens_at = address ? to_text(*address) : std::string();
    state.registration = name_of(coverage.registration);
    state.memories = phone.modem().messages().memories().levels();
    state.waiting = phone.waiting();
    state.faults = faults_in_force(phone);
    return state;
}

}  // namespace network
