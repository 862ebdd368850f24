// libzpd-client before services that go away, refuse, are of another version, or are none; both of its headers.
#include <fcntl.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <mutex>
#include <thread>
#include <zpd/client.hpp>

#include "device/service_requests.h"
#include "tests/client/fake_service.h"

namespace {

using std::chrono::steady_clock;
using testing::ElementsAre;
using namespace std::chrono_literals;

std::optional<device::reply_t> nothing_known(const device::request_t&) {
    return json("{}");
}

/// What a service answers from now on.
class changing_t {
  public:
    void become(std::string text) {
        const std::lock_guard lock(mutex_);
        text_ = std::move(text);
    }
    device::reply_t reply() {
        const std::lock_guard lock(mutex_);
        return json(text_);
    }

  private:
    std::mutex mutex_;
    std::string text_;
};

TEST(client_library, what_is_no_argument_is_told_and_nothing_is_asked) {
    const device_path_t device;
    const fake_service_t service(device, nothing_known);
    zpd_client_t* client = zpd_client_new(device.c_str());
    uint64_t id = 7;
    uint32_t datagrams = 7;
    zpd_message_t* message = nullptr;
    const std::string large(32641, 'x');
    const zpd_options_t sizeless{};
    EXPECT_EQ(zpd_send(client, nullptr, 3, "1", nullptr, &id), ZPD_BAD_ARGUMENT);
    EXPECT_EQ(id, 0U);
    EXPECT_STREQ(zpd_client_error(client), "the card is empty");
    EXPECT_EQ(zpd_send(client, "x", 0, "1", nullptr, &id), ZPD_BAD_ARGUMENT);
    EXPECT_EQ(zpd_count(client, large.data(), large.size(), nullptr, &datagrams), ZPD_BAD_ARGUMENT);
    EXPECT_STREQ(zpd_client_error(client), "the card has 32641 octets; 255 datagrams hold 32640");
    EXPECT_EQ(zpd_count(client, "x", 1, &sizeless, &datagrams), ZPD_BAD_ARGUMENT);
    EXPECT_EQ(service.connections(), 0);
    EXPECT_EQ(zpd_status(nullptr, nullptr), ZPD_BAD_ARGUMENT);
    EXPECT_EQ(zpd_wait(nullptr, 1, 1, &message), ZPD_BAD_ARGUMENT);
    EXPECT_EQ(zpd_events_next(nullptr, nullptr), ZPD_BAD_ARGUMENT);
    EXPECT_EQ(zpd_events_descriptor(nullptr), -1);
    EXPECT_STREQ(zpd_client_error(nullptr), "");
    EXPECT_STREQ(zpd_message_reason(nullptr), "");
    EXPECT_EQ(zpd_messages_at(nullptr, 0), nullptr);
    zpd_client_free(nullptr);
    // What is not wanted need not be taken.
    EXPECT_EQ(zpd_outbox_find(client, 1, nullptr), ZPD_OK);
    EXPECT_EQ(zpd_inbox(client, 0, nullptr), ZPD_OK);
    EXPECT_STREQ(zpd_client_error(client), "");
    zpd_client_free(client);
    // A packet that no socket takes is told, and not waited for.
    zpd::client_t another(device.path());
    const auto begun = steady_clock::now();
    const auto sent = another.send("card", std::string(1 << 20, '1'));
    EXPECT_EQ(sent.failure().result, ZPD_BAD_ARGUMENT) << sent.failure().text;
    EXPECT_LT(steady_clock::now() - begun, 10s);
}

TEST(client_library, each_obstacle_has_its_result_and_words) {
    const device_path_t device;
    zpd::client_t client(device.path());
    EXPECT_EQ(client.outbox().failure().result, ZPD_NO_SERVICE);
    std::atomic<uint32_t> error = 0;
    fake_service_t service(device, [&](const device::request_t&) { return refusal(error, "in words"); });
    const std::pair<uint32_t, int> refusals[] = {
        {device::error_value, ZPD_BAD_ARGUMENT},      {device::error_not_found, ZPD_NOT_FOUND},
        {device::error_not_now, ZPD_NOT_NOW},         {device::error_full, ZPD_FULL},
        {device::error_not_written, ZPD_NOT_WRITTEN}, {1, ZPD_REFUSED},
    };
    for (const auto& [code, result] : refusals) {
        error = code;
        const auto answer = client.cancel(1);
        EXPECT_EQ(answer.failure().result, result) << code;
        EXPECT_EQ(answer.failure().text, "in words");
    }
    EXPECT_EQ(service.connections(), 1) << "a refusal costs no connection";
    for (const auto& [code, result] : {std::pair(5U, ZPD_NO_ACCESS), std::pair(170U, ZPD_BUSY)}) {
        service.turn_away(code);
        EXPECT_EQ(zpd::client_t(device.path()).status().failure().result, result);
        zpd::events_t events(device.path());
        zpd::answer_t<std::optional<zpd::event_t>> next = events.next();
        for (pollfd ready{events.descriptor(), POLLIN, 0}; next && poll(&ready, 1, 5000) == 1;) {
            next = events.next();
        }
        EXPECT_EQ(next.failure().result, result) << next.failure().text;
    }
    for (int result = ZPD_OK; result <= ZPD_NO_MEMORY + 1; ++result) {
        EXPECT_STRNE(zpd_result_text(result), "");
    }
}

TEST(client_library, a_service_that_goes_is_found_again) {
    const device_path_t device;
    zpd::client_t client(device.path());
    const auto counted = [](const device::request_t&) { return json(R"({"datagrams":{"total":3}})"); };
    {
        const fake_service_t first(device, counted);
        EXPECT_EQ(client.find(1)->datagrams, 3U);
    }
    EXPECT_EQ(client.find(1).failure().result, ZPD_NO_SERVICE);
    {
        const fake_service_t second(device, counted);
        EXPECT_TRUE(client.find(1));
    }
    const fake_service_t third(device, [calls = 0](const device::request_t& request) mutable {
        const bool ends = calls++ == 0;
        return ends ? std::nullopt : nothing_known(request);
    });
    EXPECT_EQ(client.find(1).failure().result, ZPD_NO_ANSWER) << "one that ended while nobody asked is not noticed; "
                                                                 "one that ends in the middle is told";
    EXPECT_TRUE(client.find(1));
}

TEST(client_library, a_wait_bears_with_a_restart) {
    const device_path_t device;
    auto first = std::make_unique<fake_service_t>(
        device, [](const device::request_t&) { return json(R"({"id":1,"state":"sending","version":9})"); });
    std::thread restart([&] {
        std::this_thread::sleep_for(300ms);
        first.reset();
        std::this_thread::sleep_for(500ms);
        first = std::make_unique<fake_service_t>(
            device, [](const device::request_t&) { return json(R"({"id":1,"state":"sent","version":9})"); });
    });
    zpd::client_t client(device.path());
    const auto message = client.wait(1, 20s);
    restart.join();
    ASSERT_TRUE(message) << message.failure().text;
    EXPECT_EQ(message->state, zpd::state_t::sent);
    EXPECT_TRUE(message->is_over);
    first = std::make_unique<fake_service_t>(
        device, [](const device::request_t&) { return json(R"({"id":1,"state":"sending","version":9})"); });
    const auto still = client.wait(1, 300ms);
    ASSERT_TRUE(still) << "its time is over, it is not";
    EXPECT_FALSE(still->is_over);
    EXPECT_EQ(client.watch(1, 8, 20s)->version, 9U);
}

TEST(client_library, a_service_of_another_version_is_understood_as_far_as_it_goes) {
    const device_path_t device;
    changing_t answer;
    const fake_service_t service(device, [&](const device::request_t&) { return answer.reply(); });
    zpd::client_t client(device.path());
    const std::string pondering =
        R"({"id":5,"state":"pondering","number":17,"file":null,"datagrams":[1,2],"reason":"none","new":{"a":[]}})";
    answer.become(pondering);
    const auto message = client.find(5);
    ASSERT_TRUE(message) << message.failure().text;
    EXPECT_EQ(message->id, 5U);
    EXPECT_EQ(message->state, zpd::state_t::other);
    EXPECT_EQ(message->state_text, "pondering");
    EXPECT_EQ(message->number + message->file + message->reason, "");
    EXPECT_EQ(message->datagrams, 0U);
    EXPECT_EQ(message->json, pondering);
    answer.become(R"({"cards":[{"number":1,"contacts":[{"name":"Zoë"},7,{"name":"Ann"}]},3],"more":"perhaps"})");
    const auto cards = client.inbox();
    ASSERT_TRUE(cards) << cards.failure().text;
    EXPECT_EQ(cards->at(0).name, "Zoë, Ann");
    EXPECT_EQ(cards->size(), 2U);
    for (const char* none : {"", "[]", "7", "{\"id\":", "\xFF\xFE", "\"text\""}) {
        answer.become(none);
        EXPECT_EQ(client.find(5).failure().result, ZPD_NO_ANSWER) << none;
        EXPECT_EQ(client.outbox().failure().result, ZPD_NO_ANSWER) << none;
    }
    answer.become(R"({"messages":[{"id":1}],"more":true})");
    EXPECT_EQ(client.outbox()->size(), 2U) << "a list that does not go on ends";
}

TEST(client_library, an_older_program_s_options_are_shorter) {
    const device_path_t device;
    std::mutex mutex;
    device::octets_t input;
    const fake_service_t service(device, [&](const device::request_t& request) {
        const std::lock_guard lock(mutex);
        input.assign(request.input.begin(), request.input.end());
        return json(R"({"id":4})");
    });
    zpd_options_t options{};
    options.size = offsetof(zpd_options_t, token);
    options.expires = ZPD_NEVER;
    options.token = reinterpret_cast<const char*>(1);  // is not there
    zpd_client_t* client = zpd_client_new(device.c_str());
    uint64_t id = 0;
    EXPECT_EQ(zpd_send(client, "a\0b", 3, "+12", &options, &id), ZPD_OK) << zpd_client_error(client);
    EXPECT_EQ(id, 4U);
    base::writer_t expected;
    expected.string({"a\0b", 3}).flag(true).flag(false).string("+12").string("").u64(0).string("");
    {
        const std::lock_guard lock(mutex);
        EXPECT_EQ(input, expected.octets());
    }
    EXPECT_EQ(zpd_send(client, "\xE4", 1, "+12", nullptr, &id), ZPD_OK);
    const std::lock_guard lock(mutex);
    EXPECT_EQ(input.at(5), 0) << "no UTF-8: it is cut anywhere";
    zpd_client_free(client);
}

TEST(client_library, parent_and_child_read_answers_of_their_own) {
    const device_path_t device;
    const fake_service_t service(device, [](const device::request_t& request) {
        base::reader_t input(request.input);
        return json(fmt::format(R"({{"id":{}}})", *input.u64()));
    });
    zpd::client_t client(device.path());
    zpd::events_t events(device.path());
    ASSERT_TRUE(client.find(1));
    const pid_t child = fork();
    const uint64_t begin = child == 0 ? 1000 : 2000;
    bool own = true;
    for (uint64_t id = begin; id < begin + 200; ++id) {
        const auto message = client.find(id);
        own = own && message && message->id == id;
    }
    if (child == 0) {
        own = own && events.next().failure().result == ZPD_BAD_ARGUMENT;
        _exit(own ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(own);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(fcntl(events.descriptor(), F_GETFD), FD_CLOEXEC);
}

TEST(client_library, handles_are_apart_and_so_may_be_their_threads) {
    const device_path_t device;
    const fake_service_t service(device, nothing_known);
    std::vector<std::thread> threads;
    std::atomic<int> done = 0;
    for (int i = 0; i < 6; ++i) {
        threads.emplace_back([&] {
            zpd::client_t client(device.path());
            for (int call = 0; call < 50; ++call) {
                done += client.find(1) && client.outbox() ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(done, 300);
}

/// Has the events `first` to `last`, one answer of them at most `at_once`.
class events_service_t {
  public:
    std::optional<device::reply_t> operator()(const device::request_t& request) {
        base::reader_t input(request.input);
        const uint64_t after = *input.u64();
        const uint64_t last = std::min(last_.load(), after + 3);
        std::string events;
        for (uint64_t id = after + 1; id <= last; ++id) {
            events +=
                fmt::format(R"({}{{"id":{},"kind":"sneezed","text":"event {}"}})", events.empty() ? "" : ",", id, id);
        }
        ++requests;
        return json(fmt::format(R"({{"events":[{}],"more":{}}})", events, last < last_));
    }
    void happen(uint64_t last) { last_ = last; }

    std::atomic<int> requests = 0;

  private:
    std::atomic<uint64_t> last_ = 0;
};

/// Takes one event each time that the descriptor says so, and the results on the way, until this one came.
std::vector<uint64_t> ids_until(zpd::events_t& events, uint64_t last, std::vector<int>* results = nullptr) {
    std::vector<uint64_t> ids;
    const auto end = steady_clock::now() + 20s;
    while ((ids.empty() || ids.back() != last) && steady_clock::now() < end) {
        pollfd ready{events.descriptor(), POLLIN, 0};
        EXPECT_EQ(poll(&ready, 1, 15'000), 1) << "nothing tells that there is something to do";
        const auto event = events.next();
        const int result = event ? ZPD_OK : event.failure().result;
        if (results != nullptr && (results->empty() || results->back() != result)) {
            results->push_back(result);
        }
        if (event && *event) {
            EXPECT_EQ((*event)->kind, zpd::kind_t::other);
            EXPECT_EQ((*event)->text, fmt::format("event {}", (*event)->id));
            ids.push_back((*event)->id);
        }
    }
    return ids;
}

TEST(client_events, come_once_each_over_a_restart_by_one_descriptor) {
    const device_path_t device;
    zpd::events_t events(device.path(), 2);
    const int descriptor = events.descriptor();
    events_service_t answers;
    const auto answer = [&](const device::request_t& request) { return answers(request); };
    std::vector<int> results;
    std::thread life([&] {
        std::this_thread::sleep_for(200ms);
        std::optional<fake_service_t> service(std::in_place, device, answer);
        answers.happen(9);
        std::this_thread::sleep_for(2s);
        service.reset();
        answers.happen(12);
        std::this_thread::sleep_for(500ms);
        service.emplace(device, answer);
        std::this_thread::sleep_for(3s);
    });
    EXPECT_THAT(ids_until(events, 12, &results), ElementsAre(3, 4, 5, 6, 7, 8, 9, 10, 11, 12));
    life.join();
    EXPECT_THAT(results, testing::AnyOf(ElementsAre(ZPD_NO_SERVICE, ZPD_OK, ZPD_NO_ANSWER, ZPD_OK),
                                        ElementsAre(ZPD_NO_SERVICE, ZPD_OK, ZPD_NO_ANSWER, ZPD_NO_SERVICE, ZPD_OK)));
    EXPECT_EQ(events.descriptor(), descriptor);
    EXPECT_LT(answers.requests, 60) << "a service that has nothing to tell is not asked without end";
}

TEST(client_events, are_never_waited_for) {
    const device_path_t device;
    const base::descriptor_t deaf(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    device.path().copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(deaf.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(listen(deaf.get(), 0), 0);
    std::vector<zpd::events_t> several;
    const auto begun = steady_clock::now();
    int busy = 0;
    for (int i = 0; i < 5; ++i) {
        several.emplace_back(device.path());
        const auto event = several.back().next();
        busy += !event && event.failure().result == ZPD_BUSY ? 1 : 0;
        EXPECT_TRUE(!event || !*event);
    }
    EXPECT_LT(steady_clock::now() - begun, 5s);
    EXPECT_GE(busy, 3) << "nobody takes these connections";
}

TEST(client_events, that_are_none_are_told_and_asked_for_again) {
    const device_path_t device;
    const char* const answers[] = {"nothing", R"({"events":[{"kind":"stored"}]})", R"({"events":[{"id":3},{"id":2}]})",
                                   "{}", R"({"events":{"id":9}})"};
    for (const char* const answer : answers) {
        const fake_service_t service(device, [&](const device::request_t&) { return json(answer); });
        zpd::events_t events(device.path());
        std::vector<uint64_t> ids;
        int result = ZPD_OK;
        for (int i = 0; i < 6; ++i) {
            pollfd ready{events.descriptor(), POLLIN, 0};
            poll(&ready, 1, 200);
            const auto event = events.next();
            result = event ? result : event.failure().result;
            if (event && *event) {
                ids.push_back((*event)->id);
            }
        }
        const bool is_list = std::string_view(answer).find("[{") == std::string_view::npos && answer[0] == '{';
        EXPECT_EQ(result, is_list ? ZPD_OK : ZPD_NO_ANSWER) << answer;
        EXPECT_TRUE(std::ranges::is_sorted(ids)) << answer;
    }
}

}  // namespace
