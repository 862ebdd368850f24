#include "platform/linux/testing.h"

#include <map>
#include <mutex>
#include <string>

#include "platform/linux/injection.h"

namespace platform {

std::atomic<bool> failures_set{false};

namespace {

struct rule_t {
    DWORD error;
    int count;  // negative: every call
    int skip;
};

struct rules_t {
    std::mutex mutex;
    std::map<std::string, rule_t, std::less<>> by_function;
};

rules_t& rules() {
    static auto& instance = *new rules_t;  // threads that outlive main may still ask
    return instance;
}

}  // namespace

injected_t take_failure(std::string_view function) {
    const std::lock_guard lock(rules().mutex);
    const auto at = rules().by_function.find(function);
    if (at == rules().by_function.end()) {
        return {};
    }
    rule_t& rule = at->second;
    if (rule.skip > 0) {
        --rule.skip;
        return {};
    }
    if (rule.count == 0) {
        return {};
    }
    if (rule.count > 0) {
        --rule.count;
    }
    return {rule.error, 1};
}

namespace testing {

void fail_calls(std::string_view function, DWORD error, int count, int skip) {
    const std::lock_guard lock(rules().mutex);
    rules().by_function.insert_or_assign(std::string(function), rule_t{error, count, skip});
    failures_set.store(true, std::memory_order_relaxed);
}

void no_failures() {
    const std::lock_guard lock(rules().mutex);
    rules().by_function.clear();
    failures_set.store(false, std::memory_order_relaxed);
}

}  // namespace testing
}  // namespace platform
