// What the machine takes for what no program of two threads or processes does without: an octet there and one back
// between two threads, through pipes and through a pseudo-terminal.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <thread>

#include "base/descriptor.h"
#include "bench/set_up.h"

namespace {

/// Sends back what comes, up to the end.
class echo_t {
  public:
    echo_t(int in, int out)
        : thread_([=] {
              char octet = 0;
              while (read(in, &octet, 1) == 1 && octet != '\0' && write(out, &octet, 1) == 1) {
              }
          }) {}
    void join() { thread_.join(); }

  private:
    std::thread thread_;
};

void there_and_back(benchmark::State& state, int out, int in, int far_in, int far_out) {
    echo_t echo(far_in, far_out);
    char octet = 'x';
    while (state.KeepRunning()) {
        require(write(out, &octet, 1) == 1 && read(in, &octet, 1) == 1 ? "" : "nothing comes back");
    }
    octet = '\0';
    require(write(out, &octet, 1) == 1 ? "" : "the other thread does not end");
    echo.join();
}

void through_pipes(benchmark::State& state) {
    std::array<int, 2> there{};
    std::array<int, 2> back{};
    require(pipe(there.data()) == 0 && pipe(back.data()) == 0 ? "" : "no pipe");
    const base::descriptor_t ends[] = {base::descriptor_t(there[0]), base::descriptor_t(there[1]),
                                       base::descriptor_t(back[0]), base::descriptor_t(back[1])};
    there_and_back(state, there[1], back[0], there[0], back[1]);
}

void through_a_pseudo_terminal(benchmark::State& state) {
    const base::descriptor_t modem(posix_openpt(O_RDWR | O_NOCTTY));
    std::array<char, 64> name{};
    require(unlockpt(modem.get()) == 0 && ptsname_r(modem.get(), name.data(), name.size()) == 0 ? ""
                                                                                                : "no pseudo-terminal");
    const base::descriptor_t host(open(name.data(), O_RDWR | O_NOCTTY));
    termios settings{};
    require(tcgetattr(host.get(), &settings) == 0 ? "" : "no terminal");
    cfmakeraw(&settings);
    tcsetattr(host.get(), TCSANOW, &settings);
    there_and_back(state, host.get(), host.get(), modem.get(), modem.get());
}

BENCHMARK(through_pipes)->UseRealTime();
BENCHMARK(through_a_pseudo_terminal)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
