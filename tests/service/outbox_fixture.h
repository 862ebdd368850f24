/// An outbox on a file in a folder of its own, which another program may open too.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/sqlite.h"
#include "base/sqlite_file.h"
#include "service/outbox.h"

class outbox_home_t {
  public:
    /// In memory where there is room for it.
    outbox_home_t() {
        std::string name =
            (std::filesystem::exists("/dev/shm") ? "/dev/shm" : testing::TempDir()) + "/zpd-outbox-XXXXXX";
        folder_ = mkdtemp(name.data());
        reopen();
    }
    ~outbox_home_t() {
        other_.reset();
        box_.reset();
        std::filesystem::remove_all(folder_);
    }
    outbox_home_t(const outbox_home_t&) = delete;
    outbox_home_t& operator=(const outbox_home_t&) = delete;

    /// As after the end of a service, however it ended.
    void reopen() {
        box_.reset();
        box_.emplace([this](base::priority_t /*priority*/, const std::string& line) { told.push_back(line); });
        EXPECT_EQ(box_->open(folder_), "");
    }
    outbox_t& operator*() { return *box_; }
    outbox_t* operator->() { return &*box_; }
    std::filesystem::path file() const { return outbox_file::path(folder_); }

    /// The id; 0 when it is refused.
    int64_t add(const std::string& number, const std::string& octets = "card", int64_t expires = 0,
                const std::string& token = {}, uint32_t lease = 0) {
        const auto view = box_->add({.number = number,
                                     .file = "ann.vcf",
                                     .contacts = R"([{"name":"Ann"}])",
                                     .size = static_cast<int64_t>(octets.size()),
                                     .datagrams = 7,
                                     .expires = expires,
                                     .reason = {},
                                     .token = token,
                                     .octets = octets},
                                    lease, &problem);
        const auto ahead = [](const outbox_t::view_t& of) {
            return of.ahead ? std::pair(of.ahead->messages, of.ahead->datagrams) : std::pair<int64_t, int64_t>(-1, -1);
        };
        EXPECT_TRUE(!view || ahead(*view) == ahead(this->view(view->message.id))) << "by totals, and card by card";
        return view ? view->message.id : 0;
    }
    /// The id; 0 for none.
    int64_t take() {
        const auto message = box_->take_next();
        return message ? message->id : 0;
    }
    outbox_t::view_t view(int64_t id) {
        problem_t none;
        return box_->watch(id, 0, 0, &none).value_or(outbox_t::view_t{});
    }
    /// Of all events: KIND ID.
    std::vector<std::string> events() {
        std::vector<std::string> kinds;
        const auto page = box_->events(0, 0, 0, 1'000'000);
        for (const auto& event : page["events"]) {
            kinds.push_back(event["kind"].get<std::string>() + " " + event["message"]["id"].dump());
        }
        return kinds;
    }

    sqlite3* other() {
        if (!other_) {
            sqlite3* opened = nullptr;
            sqlite3_open(file().c_str(), &opened);
            other_.reset(opened);
        }
        return other_.get();
    }
    /// Another program writes: nothing else can.
    void lock() { EXPECT_TRUE(base::sqlite::run_all(other(), "BEGIN IMMEDIATE")); }
    void unlock() { EXPECT_TRUE(base::sqlite::run_all(other(), "ROLLBACK")); }

    problem_t problem;
    std::vector<std::string> told;

  private:
    std::filesystem::path folder_;
    std::optional<outbox_t> box_;
    base::sqlite::connection_t other_;
};
