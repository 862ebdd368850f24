// The life of `zpd serve`: what it refuses to start on, what it takes over from one that was killed, and what it leaves
// alone on the modem.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <functional>
#include <nlohmann/json.hpp>

#include "client/client.h"
#include "client/connection.h"
#include "tests/incoming.h"
#include "tests/network/at_host.h"
#include "tests/system/phones.h"

namespace {

using testing::HasSubstr;

TEST(service, takes_over_after_a_kill_with_its_settings_and_ends_cleanly) {
    const folder_t folder;
    const network_t network(folder);
    phone_t phone(folder, "alice", network.modem(alice));
    // Applications that are not installed would be dropped at the next start, and the activation with them.
    std::filesystem::create_directories(phone.home() + "/Applications/Install/contacts");
    phone.start();
    ASSERT_TRUE(phone.ready()) << phone.serve().errors();
    for (const arguments_t& change : std::vector<arguments_t>{{"settings", "capacity", "3"},
                                                              {"settings", "inbox-size", "70000"},
                                                              {"settings", "log", "on", "notice"},
                                                              {"activation", "on"},
                                                              {"apps", "add", "contacts"}}) {
        const outcome_t outcome = phone.zpd(change);
        EXPECT_EQ(outcome.status, 0) << change[0] << outcome.errors;
    }
    phone.serve().signal(SIGKILL);
    EXPECT_EQ(phone.serve().wait(), 128 + SIGKILL);

    phone.start();
    ASSERT_TRUE(phone.ready()) << phone.serve().errors();
    auto device = client::client_t::connect(phone.device());
    ASSERT_TRUE(device) << device.failure().text;
    EXPECT_EQ(phone.zpd({"settings", "log", "on", "--json"}).output,
              R"({"log":{"enabled":true,"output":7,"file":5},"capacity":3,"inbox_size":70000})"
              "\n");
    EXPECT_TRUE(*device->activation());
    EXPECT_EQ(*device->applications(), std::vector<std::string>{"contacts"});

    phone.serve().signal(SIGTERM);
    EXPECT_EQ(phone.serve().wait(), 0) << phone.serve().errors();
    EXPECT_FALSE(std::filesystem::exists(phone.device()));
}

/// A variable of the environment, for the processes that are started meanwhile.
class variable_t {
  public:
    variable_t(const char* name, const std::string& value) : name_(name) {
        setenv(name, value.c_str(), 1);  // NOLINT(concurrency-mt-unsafe): no other thread
    }
    ~variable_t() { unsetenv(name_); }  // NOLINT(concurrency-mt-unsafe)
    variable_t(const variable_t&) = delete;
    variable_t& operator=(const variable_t&) = delete;

  private:
    const char* name_;
};

/// A terminal that nobody answers on.
class silent_tty_t {
  public:
    silent_tty_t() : terminal_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
        EXPECT_EQ(grantpt(terminal_) | unlockpt(terminal_), 0);
    }
    ~silent_tty_t() { close(terminal_); }
    silent_tty_t(const silent_tty_t&) = delete;
    silent_tty_t& operator=(const silent_tty_t&) = delete;

    std::string path() const { return ptsname(terminal_); }

  private:
    int terminal_;
};

TEST(service, can_be_ended_while_it_waits_for_the_modem) {
    const folder_t folder;
    const silent_tty_t tty;
    phone_t phone(folder, "alice", tty.path());
    phone.start();
    ASSERT_TRUE(eventually([&] { return std::filesystem::exists(phone.device()); }));
    const auto before = std::chrono::steady_clock::now();
    phone.serve().signal(SIGTERM);
    EXPECT_EQ(phone.serve().wait(), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(3));
    EXPECT_EQ(phone.serve().errors(), "");
    EXPECT_FALSE(std::filesystem::exists(phone.device()));
}

TEST(service, refuses_to_start_on_what_is_taken_or_missing) {
    const folder_t folder;
    const network_t network(folder);
    phone_t running(folder, "alice", network.modem(alice));
    running.start();
    ASSERT_TRUE(running.ready()) << running.serve().errors();
    const silent_tty_t silent;
    const std::string no_modem = silent.path();

    const std::string damaged = folder / "damaged";
    const std::string blocked = folder / "blocked\x1b";
    std::filesystem::create_directories(damaged);
    std::filesystem::create_directories(blocked + "/registry.sqlite");
    const std::string damaged_file = write_file(damaged + "/registry.sqlite", std::string(8192, 'z'));

    const std::string id = std::to_string(running.serve().id());
    const std::string home = folder / "other";
    const std::string device = folder / "other.device";
    const std::string second_phone = "; a second phone needs a --home and a --device of its own";
    const std::tuple<std::string, std::string, std::string, std::string, std::string> cases[] = {
        {"home in use", network.modem(bob), running.home(), device,
         "home " + running.home() + " is already in use by process " + id + second_phone},
        {"socket in use", network.modem(bob), home, running.device(),
         "device " + running.device() + " is already served by process " + id + second_phone},
        {"tty in use", network.modem(alice), home, device, id},
        {"no tty", folder / "nowhere", home, device, "No such file"},
        {"a file", ZPD_EXAMPLES "/one-datagram.vcf", home, device, "one-datagram.vcf"},
        {"no modem", no_modem, home, device, no_modem},
        {"damaged registry", network.modem(bob), damaged, device, damaged_file + " cannot be used: file is not a"},
        {"registry a folder", network.modem(bob), blocked, device, "is a folder"},
    };
    std::vector<std::string> errors;
    for (const auto& [what, modem, home_of_it, device_of_it, error] : cases) {
        const outcome_t outcome = zpd({"serve", "--modem", modem, "--home", home_of_it, "--device", device_of_it});
        EXPECT_EQ(outcome.status, 1) << what;
        EXPECT_EQ(outcome.output, "") << what;
        EXPECT_THAT(outcome.errors, HasSubstr(error)) << what;
        EXPECT_THAT(outcome.errors, testing::Not(HasSubstr("\x1b"))) << what;
        EXPECT_THAT(errors, testing::Not(testing::Contains(outcome.errors))) << what;
        errors.push_back(outcome.errors);
    }
    EXPECT_EQ(running.zpd({"version"}).status, 0);
}

TEST(service, refuses_a_pin_that_cannot_be_had_before_it_looks_for_the_modem) {
    const folder_t folder;
    const std::string file = folder / "pin";
    const arguments_t serve{"serve", "--modem", "/nowhere", "--home", folder / "home", "--pin-file", file};
    const auto write = [&](const std::string& text, mode_t mode) {
        write_file(file, text);
        chmod(file.c_str(), mode);
    };
    const std::pair<std::string, std::function<void()>> cases[] = {
        {file + ": No such file", [] {}},
        {"chmod 600 " + file, [&] { write("4711", 0644); }},
        {"4 to 8 digits", [&] { write("47", 0600); }},
        {"/nowhere: No such file", [&] { write("4711", 0600); }},
    };
    for (const auto& [problem, make] : cases) {
        make();
        const outcome_t outcome = zpd(serve);
        EXPECT_EQ(outcome.status, 1);
        EXPECT_THAT(outcome.errors, HasSubstr(problem));
    }
}

/// Each problem is told with the command that mends it; then the service gets as far as the missing modem.
void expect_refusal_and_cure(const std::string& problem, const arguments_t& where) {
    const arguments_t serve = joined({"serve", "--modem", "/nowhere"}, where);
    const outcome_t refused = zpd(serve);
    EXPECT_EQ(refused.status, 1) << problem;
    ASSERT_THAT(refused.errors, HasSubstr(problem));
    const std::string cure = refused.errors.substr(refused.errors.rfind(": ") + 2);
    EXPECT_EQ(std::system(cure.substr(0, cure.find("; or ")).c_str()), 0) << cure;
    EXPECT_THAT(zpd(serve).errors, HasSubstr("/nowhere: No such file")) << "after " << cure;
}

TEST(service, refuses_a_home_that_is_not_its_users_alone) {
    const folder_t folder;
    const std::string box = folder / "it's a box";
    const std::string home = box + "/home";
    const std::string log = "Application Data/PUBLIC/VARKON/ZPD/LOG";
    std::filesystem::create_directories(home + "/" + log);
    std::filesystem::create_symlink(home, folder / "link");
    const std::string elsewhere = write_file(folder / "elsewhere", "precious");
    const auto instead_of = [&](const std::string& name) {
        std::filesystem::remove_all(home + "/" + name);
        return home + "/" + name;
    };
    const auto link = [&](const std::string& name) { return symlink(elsewhere.c_str(), instead_of(name).c_str()); };
    const std::tuple<std::string, std::function<int()>> cases[] = {
        {"home' can be written by others: chmod go-w", [&] { return chmod(home.c_str(), 0770); }},
        {"home' can be written by others", [&] { return chmod(home.c_str(), 0702); }},
        {"home' lies in a folder in which others", [&] { return chmod(box.c_str(), 0777); }},
        {"registry.sqlite' is a link", [&] { return link("registry.sqlite"); }},
        {"lock' is a link", [&] { return link("lock"); }},
        {"zpd.log' is a link", [&] { return link(log + "/zpd.log"); }},
        {"journal.sqlite-wal' is a link", [&] { return symlink("nowhere", instead_of("journal.sqlite-wal").c_str()); }},
        {"journal.sqlite' is a FIFO", [&] { return mkfifo(instead_of("journal.sqlite").c_str(), 0600); }},
        {"lock' is a FIFO", [&] { return mkfifo(instead_of("lock").c_str(), 0600); }},
        {"rejected-pin' is a folder", [&] { return mkdir(instead_of("rejected-pin").c_str(), 0700); }},
        {"registry.sqlite' can be written by others", [&] { return chmod((home + "/registry.sqlite").c_str(), 0620); }},
        {"home' belongs to another user (65534): chown", [&] { return chown(home.c_str(), 65534, 65534); }},
        {"journal.sqlite' belongs to another", [&] { return chown((home + "/journal.sqlite").c_str(), 65534, 0); }},
    };
    for (const auto& [problem, make] : cases) {
        if (problem.find("another") == std::string::npos || geteuid() == 0) {  // only root can give a file away
            ASSERT_EQ(make(), 0) << problem;
            expect_refusal_and_cure(problem, {"--home", folder / "link", "--device", folder / "device"});
        }
    }
    EXPECT_EQ(read_file(elsewhere), "precious");
}

TEST(service, refuses_a_folder_of_its_socket_that_is_not_its_users_alone) {
    const folder_t folder;
    const std::string runtime = folder / "run";
    const std::string home = folder / "home";
    std::filesystem::create_directories(runtime + "/zpd");
    const variable_t folders("RUNTIME_DIRECTORY", runtime + "/zpd:/nowhere");
    const std::tuple<std::string, std::string, mode_t> cases[] = {{"the device's folder", "/zpd", 0770},
                                                                  {"can put another in its place", "", 0707}};
    for (const auto& [problem, name, mode] : cases) {
        ASSERT_EQ(chmod((runtime + name).c_str(), mode), 0);
        expect_refusal_and_cure(problem, {"--home", home});
    }
    std::filesystem::remove(runtime + "/zpd");
    std::filesystem::create_symlink(home, runtime + "/zpd");
    EXPECT_THAT(zpd({"serve", "--modem", "/nowhere", "--home", home}).errors, HasSubstr("zpd' is a link"));
}

TEST(service, is_found_by_its_name_the_users_own_before_the_systems) {
    const folder_t folder;
    const network_t network(folder);
    const variable_t runtime("XDG_RUNTIME_DIR", folder / "user");
    const std::string system = folder / "system";
    const auto found = [&] {
        const auto connection = client::connect("ZPD1", system);
        return connection ? connection->path : connection.failure().text;
    };
    std::filesystem::create_directories(folder / "user/zpd");
    EXPECT_THAT(found(), HasSubstr("no service runs on device ZPD1 (" + (folder / "user/zpd/ZPD1") + " or " + system));

    const auto serve = [&](const std::string& in, const std::string& number) {
        const variable_t made_by_systemd("RUNTIME_DIRECTORY", in);
        return std::make_unique<process_t>(
            arguments_t{"serve", "--modem", network.modem(number), "--home", folder / number});
    };
    const auto of_system = serve(system + ":/nowhere", alice);
    ASSERT_TRUE(of_system->wait_for_line("ready")) << of_system->errors();
    EXPECT_EQ(found(), system + "/ZPD1");
    ASSERT_EQ(chmod(system.c_str(), 0770), 0);
    EXPECT_THAT(found(), HasSubstr("lies in a folder that others can write; name its path if you trust"));
    auto of_user = serve(folder / "user/zpd", bob);
    ASSERT_TRUE(of_user->wait_for_line("ready")) << of_user->errors();
    EXPECT_EQ(found(), folder / "user/zpd/ZPD1");
    of_user.reset();  // killed: its socket stays
    ASSERT_EQ(chmod(system.c_str(), 0755), 0);
    EXPECT_EQ(found(), system + "/ZPD1");

    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(system);
    process_t in_current_folder(
        {"serve", "--modem", network.modem(bob), "--home", folder / "b", "--device", "b.device"});
    EXPECT_TRUE(in_current_folder.wait_for_line("ready")) << in_current_folder.errors();
    EXPECT_EQ(zpd({"activation", "--device", "b.device"}).status, 0);
    EXPECT_TRUE(std::filesystem::is_socket(system + "/b.device"));
    std::filesystem::current_path(before);
    if (geteuid() == 0) {  // only root can give a folder away, or take one for the system's name
        ASSERT_EQ(chown(system.c_str(), 65534, 65534), 0);
        EXPECT_EQ(found(), system + "/ZPD1") << "root serves there";
    }
}

TEST(service, doctor_tells_what_the_modem_is_and_who_has_it) {
    const folder_t folder;
    const network_t network(folder);
    const arguments_t question{"doctor", "--modem", network.modem(alice)};
    const outcome_t text = zpd(question);
    EXPECT_EQ(text.status, 0) << text.errors;
    EXPECT_EQ(text.errors, "");
    for (const char* line : {"ZPD, Emulated modem", "...1010", "ready", "at home, Test Network, GSM, -71 dBm",
                             "ME holds 0 of 100 (new", "SM holds 0 of 20", "+999000001", "stored and announced"}) {
        EXPECT_THAT(text.output, HasSubstr(line));
    }
    const auto json = nlohmann::json::parse(zpd({"doctor", "--json", "--modem", network.modem(alice)}).output);
    EXPECT_EQ(json["serial_number"].get<std::string>().size(), 15U);
    EXPECT_EQ(json["memories"][1], nlohmann::json({{"name", "SM"}, {"used", 0}, {"total", 20}, {"receives", false}}));
    EXPECT_TRUE(json["usable"]);

    const arguments_t fault{"fault", "--dir", folder / "modems", alice};
    const std::pair<const char*, const char*> faults[] = {
        {"pin=1234", "the SIM cannot be used: PIN wanted, 3 tries left"},
        {"storage=0", "0 of 0 messages: nothing more can be received"},
        {"registration=denied", "registered with a network: denied"}};
    for (const auto& [name, finding] : faults) {
        EXPECT_EQ(zpd(joined(fault, {name})).status, 0);
        const outcome_t found = zpd(question);
        EXPECT_EQ(found.status, 1) << name;
        EXPECT_THAT(found.output, HasSubstr(finding));
        EXPECT_EQ(nlohmann::json::parse(zpd(joined(question, {"--json"})).output)["pin_tries"].is_number(),
                  std::string(name).starts_with("pin"));
        EXPECT_EQ(zpd(joined(fault, {"clear"})).status, 0);
    }

    phone_t running(folder, "alice", network.modem(alice));
    running.start();
    ASSERT_TRUE(running.ready()) << running.serve().errors();
    const outcome_t held = zpd(question);
    EXPECT_EQ(held.status, 1);
    EXPECT_THAT(held.output, HasSubstr("in use by process " + std::to_string(running.serve().id()) + " (zpd)"));
}

TEST(service, leaves_ordinary_messages_on_the_modem) {
    const folder_t folder;
    const network_t network(folder);
    phone_t phone(folder, "bob", network.modem(bob));
    phone.start({"--activate"});
    ASSERT_TRUE(phone.ready()) << phone.serve().errors();

    // SMS-SUBMIT to bob, 3GPP TS 23.040 9.2.2.2: the text "hello"; then the card "A" for port 9204.
    network::host_t other(network.modem(carol));
    EXPECT_THAT(other.submit("01000C91447700091020000005E8329BFD06"), HasSubstr("+CMGS:"));
    EXPECT_THAT(other.submit("41000C9144770009102000040806050423F4000041"), HasSubstr("+CMGS:"));
    ASSERT_TRUE(eventually([&] { return phone.stored().size() == 1; }));
    EXPECT_TRUE(read_file(phone.stored()[0]).ends_with(carol + "\nA"));
    phone.serve().signal(SIGTERM);
    EXPECT_EQ(phone.serve().wait(), 0);

    network::host_t modem(network.modem(bob));
    modem.send("AT+CMGL=4\r");
    const std::string left = modem.read_until("OK\r\n");
    EXPECT_THAT(left, HasSubstr("05E8329BFD06"));
    EXPECT_EQ(left.find("+CMGL:"), left.rfind("+CMGL:")) << "the card is still there: " << left;
}

// Only what the commands themselves do; each fault is tried in tests/network.
TEST(service, a_running_network_takes_faults) {
    const folder_t folder;
    const network_t network(folder);
    const std::string directory = std::filesystem::path(network.modem(bob)).parent_path();
    network::host_t host(network.modem(bob));
    EXPECT_EQ(zpd({"fault", "--dir", directory, bob, "refuse=38", "registration=roaming"}).status, 0);
    EXPECT_THAT(host.submit("01000C91447700091020000005E8329BFD06"), HasSubstr("+CMS ERROR: 38"));
    host.send("AT+CREG?\r");
    EXPECT_THAT(host.read_until("OK\r\n"), HasSubstr("+CREG: 0,5"));

    const std::tuple<int, arguments_t, std::string> wrong[] = {
        {1, {"fault", "--dir", directory, "+1", "silent"}, "the network has no phone +1"},
        {2, {"fault", "--dir", directory, bob, "silence"}, "there is no fault \"silence\""},
        {2, {"fault", "--dir", directory, bob, "delay=x"}, "\"delay=x\" is no delay=MS"},
        {1, {"fault", "--dir", folder / "none", bob, "silent"}, "no network runs in"},
        {2, {"network", "--phones", bob, "--dir", folder / "other", "--fault", bob + ":pin=1"}, "is no pin=DIGITS"},
    };
    for (const auto& [status, arguments, error] : wrong) {
        const outcome_t outcome = zpd(arguments);
        EXPECT_EQ(outcome.status, status) << error;
        EXPECT_THAT(outcome.errors, HasSubstr(error));
    }
    const auto listed = nlohmann::json::parse(zpd({"fault", "--list", "--json"}).output, nullptr, false);
    EXPECT_EQ(listed.value("/faults/0/name"_json_pointer, ""), "refuse");
}

TEST(service, tells_what_its_modem_is_and_what_stands_against_cards) {
    const folder_t folder;
    const network_t network(folder);
    phone_t phone(folder, "alice", network.modem(alice));
    phone.start();
    ASSERT_TRUE(phone.ready()) << phone.serve().errors();
    const auto fault = [&](const char* what) { return zpd({"fault", "--dir", folder / "modems", alice, what}).status; };
    const auto doctor_tells = [&](int status, const std::string& words) {
        outcome_t told;
        EXPECT_TRUE(eventually([&] {
            told = phone.zpd({"doctor"});
            return told.status == status && told.output.find(words) != std::string::npos;
        })) << told.output
            << told.errors;
    };
    doctor_tells(0, "network    at home, GSM (+CREG), system type GSM");
    const outcome_t status = phone.zpd({"status"});
    for (const char* line : {"...1010", "SIM        ready", "ME holds 0 of 100 (new", "stored and announced"}) {
        EXPECT_THAT(status.output, HasSubstr(line));
    }

    EXPECT_EQ(fault("registration=denied"), 0);
    doctor_tells(1, "registered with a network: denied\n    the network refuses this SIM");
    EXPECT_EQ(phone.zpd({"send", ZPD_EXAMPLES "/one-datagram.vcf", "--to", bob, "--no-wait"}).status, 0);
    EXPECT_THAT(phone.zpd({"outbox"}).output, HasSubstr("; the modem is not registered with a network: denied"));

    EXPECT_EQ(fault("refuse=8x1000") | fault("registration=home"), 0);
    doctor_tells(1, "a datagram was refused, Operator determined barring (+CMS ERROR: 8): ask the operator");
    EXPECT_EQ(fault("refuse=8x0") | fault("lose-results=1"), 0);
    EXPECT_TRUE(eventually([&] { return phone.zpd({"outbox", "retry", "1"}).status == 0; }));
    doctor_tells(1, "warning: the modem owes a result for datagram 1, at most 1");
    EXPECT_EQ(fault("hang-up"), 0);
    doctor_tells(1, "hindrance: the modem on " + phone.modem() + " has hung up");
    const auto told = nlohmann::json::parse(phone.zpd({"doctor", "--json"}).output);
    EXPECT_EQ(told["usable"], false);
    EXPECT_EQ(told["loss"], "has hung up");
}

bool told(phone_t& phone, const std::string& words) {
    return eventually(
        [&] { return (phone.serve().output() + phone.serve().errors()).find(words) != std::string::npos; });
}

TEST(service, a_card_that_is_not_stored_is_told_and_kept_where_it_can_be) {
    const folder_t folder;
    const network_t network(folder);
    network::host_t sender(network.modem(alice));
    phone_t phone(folder, "bob", network.modem(bob));
    phone.start({"--set", "storing-again=1"});
    ASSERT_TRUE(phone.ready()) << phone.serve().errors();
    EXPECT_TRUE(told(phone, "activation is off, received cards are dropped; zpd activation on"));
    sender.submit(submissions("first", 0, 100)[0]);
    EXPECT_TRUE(told(phone, "dropped a card from " + alice + ": activation is off"));

    ASSERT_EQ(phone.zpd({"activation", "on"}).status, 0);
    const std::filesystem::path incoming = incoming_folder(phone.home());
    std::filesystem::create_directories(incoming.parent_path());
    write_file(incoming, "a file in its place");
    sender.submit(submissions("second", 0, 100)[0]);
    EXPECT_TRUE(told(phone, "INCOMING': File exists; it is kept"));
    EXPECT_THAT(phone.zpd({"status"}).output, HasSubstr("0 stored, 1 dropped, 1 to be stored"));
    phone.serve().signal(SIGKILL);
    phone.serve().wait();
    std::filesystem::remove(incoming);
    phone.start({"--set", "storing-again=1"});
    ASSERT_TRUE(phone.ready()) << phone.serve().errors();
    EXPECT_TRUE(eventually([&] { return phone.stored().size() == 1; }));
    EXPECT_THAT(read_file(phone.stored()[0]), testing::EndsWith("\nsecond"));

    ASSERT_EQ(phone.zpd({"settings", "inbox-size", "1"}).status, 0);
    sender.submit(submissions("third", 0, 100)[0]);
    EXPECT_TRUE(eventually([&] { return phone.stored().size() == 2; }));
    sender.submit(submissions("fourth", 0, 100)[0]);
    EXPECT_TRUE(told(phone, "the inbox holds more than 1 files; zpd inbox remove"));
    const auto status = nlohmann::json::parse(phone.zpd({"status", "--json"}).output);
    EXPECT_EQ(status["cards"], nlohmann::json::parse(R"({"stored": 2, "dropped": 1, "kept": 0})"));
}

}  // namespace
