#include "cli/arrivals.h"

#include <fmt/format.h>
#include <poll.h>
#include <sys/inotify.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "base/text.h"

std::string arrivals_t::watch() {
    std::error_code failed;
    std::filesystem::create_directories(inbox_.path(), failed);
    events_ = base::descriptor_t(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    // A stored card is whole when its name appears, by a link or a rename.
    if (inotify_add_watch(events_.get(), inbox_.path().c_str(), IN_CREATE | IN_MOVED_TO) < 0) {
        return fmt::format("cannot watch {}: {}", inbox_.path().native(), base::errno_text(errno));
    }
    return {};
}

bool arrivals_t::read_events() {
    std::array<char, 4096> buffer{};
    const ssize_t length = read(events_.get(), buffer.data(), buffer.size());
    for (size_t offset = 0; length > 0 && offset < static_cast<size_t>(length);) {
        inotify_event event{};
        std::memcpy(&event, buffer.data() + offset, sizeof event);
        offset += sizeof event;
        names_.emplace_back(buffer.data() + offset);  // padded with zeros to event.len
        offset += event.len;
    }
    return length > 0;
}

std::optional<stored_card_t> arrivals_t::next(const base::end_signals_t& signals, std::chrono::seconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    for (;;) {
        while (!names_.empty()) {
            const std::string name = names_.front();
            names_.erase(names_.begin());
            std::string unreadable;
            if (auto card = inbox_.load(name, &unreadable)) {
                return card;
            }
        }
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        std::array<pollfd, 2> ready{pollfd{events_.get(), POLLIN, 0}, {signals.descriptor(), POLLIN, 0}};
        const int count = left.count() > 0 ? poll(ready.data(), ready.size(), static_cast<int>(left.count())) : 0;
        if (count == 0 || ready[1].revents != 0) {
            return std::nullopt;
        }
        if (count > 0) {
            read_events();
        }
    }
}
