#include "network/at_log.h"

#include <utility>

namespace network {

namespace {

bool is_result(std::string_view line) {
    return line == "OK" || line == "ERROR" || line.starts_with("+CMS ERROR:") || line.starts_with("+CME ERROR:");
}

}  // namespace

at_log_t::at_log_t(told_t told) : record_(is_result), told_(std::move(told)) {}

std::unique_ptr<at_log_t> at_log_t::open(const std::filesystem::path& file, told_t told, std::string* error) {
    std::unique_ptr<at_log_t> log(new at_log_t(std::move(told)));
    *error = log->file_.open(file);
    return error->empty() ? std::move(log) : nullptr;
}

at_log_t::~at_log_t() {
    end_piece();
    record_.end_line();
    write();
}

void at_log_t::host_says(std::string_view octets) {
    record_.host_says(octets);
    write();
}

void at_log_t::modem_says(std::string_view octets, bool more) {
    constexpr size_t most = 4096;
    piece_ += octets;
    if (!more || piece_.size() > most) {
        end_piece();
    }
}

void at_log_t::end_piece() {
    record_.modem_says(piece_);
    piece_.clear();
    write();
}

void at_log_t::write() {
    const std::string lines = record_.take();
    if (lines.empty() || !writable_) {
        return;
    }
    if (const std::string error = file_.write(lines); !error.empty()) {
        writable_ = false;
        told_(error + "; the dialogue is recorded no further");
    }
}

}  // namespace network
