#include "bench/child.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "bench/set_up.h"

namespace {

[[noreturn]] void become(char* const* arguments) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int nowhere = open("/dev/null", O_RDWR);
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        dup2(nowhere, stream);
    }
    execvp(arguments[0], arguments);
    _exit(127);
}

}  // namespace

child_t::child_t(const std::vector<std::string>& arguments) {
    std::vector<char*> words;
    words.reserve(arguments.size() + 1);
    for (const std::string& argument : arguments) {
        words.push_back(const_cast<char*>(argument.c_str()));
    }
    words.push_back(nullptr);
    id_ = fork();
    if (id_ == 0) {
        become(words.data());
    }
    require(id_ > 0 ? "" : "no process for " + arguments.front());
}

void child_t::end() {
    if (id_ > 0) {
        kill(id_, SIGTERM);
        waitpid(id_, nullptr, 0);
        id_ = -1;
    }
}

double child_t::core_seconds() const {
    std::ifstream file("/proc/" + std::to_string(id_) + "/stat");
    std::stringstream text;
    text << file.rdbuf();
    std::istringstream fields(text.str().substr(text.str().rfind(')') + 1));  // behind the program's name
    std::string field;
    for (int i = 0; i < 11; ++i) {  // of proc(5), up to utime and stime
        fields >> field;
    }
    double user = 0;
    double system = 0;
    fields >> user >> system;
    return (user + system) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

double child_t::memory() const {
    std::ifstream file("/proc/" + std::to_string(id_) + "/statm");
    double all = 0;
    double resident = 0;
    double shared = 0;
    file >> all >> resident >> shared;
    return (resident - shared) * static_cast<double>(sysconf(_SC_PAGESIZE));
}

bool is_installed(const std::string& program) {
    const char* const folders = getenv("PATH");  // NOLINT(concurrency-mt-unsafe)
    std::istringstream path(folders != nullptr ? folders : "");
    for (std::string folder; std::getline(path, folder, ':');) {
        if (access(folder.append("/").append(program).c_str(), X_OK) == 0) {
            return true;
        }
    }
    return false;
}
