#include "base/record_file.h"

#include <fcntl.h>
#include <fmt/chrono.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>

#include "base/own_file.h"
#include "base/text.h"

namespace base {

std::string record_file_t::open(const std::filesystem::path& file) {
    file_ = std::filesystem::absolute(file);
    return begin();
}

std::string record_file_t::begin() {
    const std::string tried = fmt::format("cannot record the dialogue in {}: ", file_.string());
    if (std::string problem = own_file_problem(file_); !problem.empty()) {
        return tried + problem;
    }
    if (rename(file_.c_str(), (file_.native() + ".1").c_str()) != 0 && errno != ENOENT) {
        return tried + errno_text(errno);
    }
    std::string problem;
    descriptor_ = open_own_file(file_, O_WRONLY | O_CREAT | O_EXCL, problem);
    written_ = 0;
    if (!descriptor_) {
        return tried + problem;
    }
    const auto now = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
    return write_out(fmt::format("# Begun {:%Y-%m-%d %H:%M:%S} UTC\n", now)) ? "" : tried + errno_text(errno);
}

std::string record_file_t::write(std::string_view text) {
    if (written_ > size_) {
        if (std::string error = begin(); !error.empty()) {
            return error;
        }
    }
    return write_out(text) ? "" : fmt::format("cannot write {}: {}", file_.string(), errno_text(errno));
}

bool record_file_t::write_out(std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = ::write(descriptor_.get(), text.data(), text.size());
        if (count < 0 && errno != EINTR) {
            return false;
        }
        text.remove_prefix(static_cast<size_t>(std::max<ssize_t>(count, 0)));
        written_ += static_cast<size_t>(std::max<ssize_t>(count, 0));
    }
    return true;
}

}  // namespace base
