/// Runs the program of `zpd serve --on-card` (service/card_program.h) for every card that is stored from the first such
/// start on, in the order of their numbers, one at a time, on a thread of its own.
///
/// A run that does not end well (a status that is not 0, a signal, the end of the service) is repeated at the next
/// start of the service, until the third. A card that came while the service ran without the option has its run when it
/// has it again. A run is on the disk before it begins, so that a program may be run again although it had done its
/// work, and none is forgotten.
#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <thread>

#include "base/descriptor.h"
#include "service/card_program.h"
#include "service/inbox.h"
#include "service/on_card_marks.h"

class on_card_t {
  public:
    using tell_t = std::function<void(const std::string&)>;

    /// The inbox, of the home, outlives this. `tell` says on this object's thread what went wrong.
    on_card_t(inbox_t& inbox, const std::filesystem::path& program, const std::filesystem::path& home, tell_t tell);
    /// Ends the program that runs, see card_program_t.
    ~on_card_t();
    on_card_t(const on_card_t&) = delete;
    on_card_t& operator=(const on_card_t&) = delete;

    /// Once. Returns an empty text, or why it cannot.
    [[nodiscard]] std::string start();
    /// A card has been stored. Any thread, from `start` on.
    void look();

  private:
    enum class found_t { card, none, one_without_number };

    void run();
    bool begin_after_the_last();
    void run_unfinished();
    bool run_new();
    found_t next(received_card_t& card);
    bool run_for(const received_card_t& card);
    bool has_ended() const;
    void wait(int milliseconds) const;
    received_card_t received(uint64_t number, stored_card_t card) const;

    inbox_t& inbox_;
    const std::filesystem::path path_;
    const std::filesystem::path home_;
    const tell_t tell_;
    const card_program_t program_;
    base::descriptor_t end_;   // eventfds
    base::descriptor_t wake_;  // cards may have come
    on_card_marks_t marks_;    // of the thread, once it runs
    uint64_t last_ = 0;        // the same
    std::thread thread_;
};
