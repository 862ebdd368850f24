#include "com/qmlog/api2.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <new>
#include <thread>

namespace qmlog {

std::atomic<bool> logging_enabled{false};
std::atomic<int32_t> highest_threshold{0};

namespace {

std::atomic<object_t*> the_object{nullptr};

std::atomic<uint32_t> stays{0};
std::atomic<bool> is_over{false};  // who comes from now on finds no object

/// The object of the module. The order of `stays` and `is_over` decides: whoever stays has come before the end, which
/// then does not take place, or finds that it is over.
struct owner_t {
    owner_t() : object(new object_t) {}
    ~owner_t() {
        is_over = true;
        if (stays == 0) {
            delete object;
        } else {
            is_over = false;
        }
    }
    owner_t(const owner_t&) = delete;
    owner_t& operator=(const owner_t&) = delete;

    object_t* const object;
};

std::string process_name_of_system() {
    std::string name;
    if (FILE* file = fopen("/proc/self/cmdline", "r")) {
        char buffer[256 + 1];
        const size_t length = fread(buffer, 1, sizeof buffer - 1, file);
        (void)fclose(file);
        buffer[length] = '\0';
        name = buffer;  // up to the first argument's terminator
    }
    return name.empty() ? "<unknown>" : name;
}

void log_arguments(object_t& object, int32_t level, const place_t& place, const char* format, va_list arguments) {
    if (level > object.threshold()) {
        return;
    }
    record_t record(object, level, place, format, arguments);
    object.dispatcher().dispatch(record);
}

constexpr place_t no_place{-1, "", ""};

}  // namespace

dispatcher_t::~dispatcher_t() {
    while (!sinks_.load()->empty()) {
        delete *sinks_.load()->begin();  // leaves the set
    }
    delete sinks_.load();
}

void dispatcher_t::add(abstract_log_t* sink) {
    auto sinks = std::make_unique<sinks_t>(*sinks_.load());
    sinks->insert(sink);
    delete exchange(sinks.release());
}

void dispatcher_t::remove(abstract_log_t* sink) noexcept {
    static const sinks_t none;
    try {
        auto sinks = std::make_unique<sinks_t>(*sinks_.load());
        sinks->erase(sink);
        delete exchange(sinks.release());
    } catch (const std::bad_alloc&) {  // what is logged until the set is back is lost
        auto* const sinks = const_cast<sinks_t*>(exchange(&none));
        sinks->erase(sink);
        (void)exchange(sinks);
    }
}

/// Returns the former set, which no reader holds any more.
const dispatcher_t::sinks_t* dispatcher_t::exchange(const sinks_t* sinks) {
    const sinks_t* old = sinks_.exchange(sinks);
    for (int turn = 0; turn < 2; ++turn) {
        const uint32_t left = epoch_.fetch_xor(1);
        while (readers_[left].load() != 0) {
            // Not yield(): where the highest priority alone runs, it would keep a reader from ever leaving.
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
    find_highest_threshold();
    return old;
}

/// Call sites log to the process's object alone.
void dispatcher_t::find_highest_threshold() const {
    const object_t* const object = the_object.load();
    if (object != nullptr && &object->dispatcher() != this) {
        return;
    }
    int32_t highest = 0;
    for (const abstract_log_t* sink : *sinks_.load()) {
        highest = std::max(highest, sink->threshold_of_output());
    }
    highest_threshold.store(highest, std::memory_order_relaxed);
}

void dispatcher_t::dispatch(record_t& record) {
    std::atomic<uint32_t>& readers = readers_[epoch_.load()];
    readers.fetch_add(1);
    for (abstract_log_t* sink : *sinks_.load()) {
        if (sink->threshold_of_output() >= record.level()) {
            try {
                sink->log(record);
            } catch (const std::exception&) {  // the line is lost
            }
        }
    }
    readers.fetch_sub(1);
}

object_t::object_t() {
    names_.push_front(process_name_of_system());
    process_name_ = &names_.front();
    object_t* none = nullptr;
    if (!the_object.compare_exchange_strong(none, this)) {
        QM_INTERNAL_ERROR("singleton initializer called again");
        return;
    }
    retail_ = new log_retail(*this);
}

object_t::~object_t() {
    object_t* self = this;
    the_object.compare_exchange_strong(self, nullptr);
}

void object_t::forget_retail(const log_retail* sink) {
    if (retail() == sink) {
        retail_ = nullptr;
    }
}

void object_t::set_process_name(const std::string& name) {
    if (name != process_name()) {
        names_.push_front(name);
        process_name_ = &names_.front();
    }
    for (named_t* object : named_) {
        object->process_name_changed(process_name());
    }
}

object_t& process_log() {
    if (object_t* object = the_object.load()) {
        return *object;
    }
    static const owner_t owner;
    return *owner.object;
}

bool log_stay_t::begin() {
    ++stays;
    if (is_over) {
        --stays;
        return false;
    }
    return true;
}

void log_stay_t::end() {
    --stays;
}

void log(object_t& object, int32_t level, const place_t& place, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    log_arguments(object, level, place, format, arguments);
    va_end(arguments);
}

void log_plain(object_t& object, int32_t level, const std::string& text) {
    log(object, level, no_place, "%s", text.c_str());
}

void assertion_failed(object_t& object, bool abort_program, const char* condition, const place_t& place,
                      const char* format, ...) {
    const bool detailed = *format != '\0';
    log(object, level_internal_error, place, "Assertion '%s' failed%s", condition,
        detailed ? "; detailed info follows:" : ".");
    if (detailed) {
        va_list arguments;
        va_start(arguments, format);
        log_arguments(object, level_internal_error, place_t{-1, "", place.function}, format, arguments);
        va_end(arguments);
    }
    log_plain(object, level_internal_error,
              abort_program ? "the program will terminate due to internal error above"
                            : "the program execution will be continued as abortion was disabled at compile time");
}

}  // namespace qmlog
