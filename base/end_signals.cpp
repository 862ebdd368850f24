#include "base/end_signals.h"

#include <poll.h>
#include <sys/signalfd.h>

#include <cerrno>

namespace base {

end_signals_t::end_signals_t() {
    sigemptyset(&signals_);
    sigaddset(&signals_, SIGINT);
    sigaddset(&signals_, SIGTERM);
    // A blocked signal would come although nohup has it ignored.
    struct sigaction hang_up {};
    if (sigaction(SIGHUP, nullptr, &hang_up) == 0 && hang_up.sa_handler != SIG_IGN) {
        sigaddset(&signals_, SIGHUP);
    }
    pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
    descriptor_ = descriptor_t(signalfd(-1, &signals_, SFD_CLOEXEC));
}

void end_signals_t::end_by_signal() const {
    pthread_sigmask(SIG_UNBLOCK, &signals_, nullptr);
}

bool end_signals_t::wait(int milliseconds) const {
    pollfd ready{descriptor_.get(), POLLIN, 0};
    int count = 0;
    do {
        count = poll(&ready, 1, milliseconds);
    } while (count < 0 && errno == EINTR);
    return count != 0;
}

}  // namespace base
