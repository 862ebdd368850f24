/// The logging facility: one process-wide object_t passes each message to the registered sinks whose thresholds admit
/// it.
///
/// Call sites use the macros QM_INTERNAL_ERROR … QM_DEBUG (format, arguments…). With the logging switch off such a call
/// costs one relaxed load and a branch, and its arguments are not evaluated; a message that no sink would write costs
/// another such load.
///
/// A line that memory is missing for is lost, and that is all: no log call throws.
///
/// Threads: any may log at any time, and no lock is taken. What is cached for a message belongs to the logging thread's
/// call; the set of sinks is read from a snapshot that is replaced, never changed. Thresholds, flags and sinks may
/// change under running calls, by one thread at a time.
#pragma once

#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <exception>
#include <forward_list>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "com/qmlog/place.h"

namespace qmlog {

/// A message passes a threshold when its level does not exceed it: a lower number is more severe.
enum level_t : int32_t {
    level_internal_error = 1,
    level_critical_error = 2,
    level_error = 3,
    level_warning = 4,
    level_notice = 5,
    level_info = 6,
    level_debug = 7,
};

/// What a line shows, and how the file sink handles its file.
enum flags_t : uint32_t {
    flag_header_line = 0x1,  // header and message on lines of their own
    flag_message = 0x2,
    flag_location = 0x4,
    flag_function = 0x8,
    flag_thread_number = 0x10,
    flag_thread = 0x20,
    flag_monotonic = 0x40,
    flag_monotonic_milliseconds = 0x80,
    flag_monotonic_microseconds = 0x100,
    flag_monotonic_nanoseconds = 0x200,
    flag_date = 0x400,
    flag_time = 0x800,
    flag_time_milliseconds = 0x1000,
    flag_time_microseconds = 0x2000,
    flags_reserved = 0x84000,  // in the default set, without effect
    flag_process_name = 0x8000,
    flag_time_zone = 0x10000,
    flag_gmt_offset = 0x20000,
    flag_level = 0x40000,
    flag_file_close_each_line = 0x100000,
    flag_file_keep_backlog = 0x200000,
    flag_file_wait_for_permission = 0x800000,
};

/// Groups of a line.
inline constexpr uint32_t flags_monotonic =
    flag_monotonic | flag_monotonic_milliseconds | flag_monotonic_microseconds | flag_monotonic_nanoseconds;
inline constexpr uint32_t flags_zone = flag_time_zone | flag_gmt_offset;
inline constexpr uint32_t flags_time = flag_time | flag_time_milliseconds | flag_time_microseconds;
inline constexpr uint32_t flags_first_group = flags_monotonic | flags_zone | flag_date | flags_time | flag_process_name;
static_assert(flags_first_group == 0x3BFC0);

inline constexpr uint32_t default_flags = flag_header_line | flag_message | flag_location | flag_function |
                                          flag_thread_number | flag_thread | flag_monotonic | flag_date | flag_time |
                                          flag_process_name | flags_zone | flag_level | flags_reserved;
static_assert(default_flags == 0x000FCC7F);

/// The logging switch. Every call site tests it before it does anything else.
extern std::atomic<bool> logging_enabled;
/// The highest threshold of the sinks that write anything; 0 where none does.
extern std::atomic<int32_t> highest_threshold;

/// Whether a message of this level gets anywhere. What is no message has level 0, and does whenever logging is on.
inline bool is_wanted(int32_t level) {
    return logging_enabled.load(std::memory_order_relaxed) &&
           level <= highest_threshold.load(std::memory_order_relaxed);
}

class object_t;
class dispatcher_t;

/// One message on its way to the sinks, on the stack of the logging thread. It takes the time when it is first asked
/// for, once for all sinks.
class record_t {
  public:
    record_t(const object_t& object, int32_t level, const place_t& place, const char* format, va_list arguments);
    ~record_t();
    record_t(const record_t&) = delete;
    record_t& operator=(const record_t&) = delete;

    int32_t level() const { return level_; }
    const place_t& place() const { return place_; }
    bool has_message() const { return *format_ != '\0'; }
    const std::string& process_name() const;

    // Each appends to a line.
    void message(std::string& line);
    void date(std::string& line);
    void time(std::string& line);

  private:
    int32_t seconds();  // since 1970-01-01 UTC, 31 bits

    const object_t& object_;
    int32_t level_;
    place_t place_;
    const char* format_;
    va_list arguments_;
    std::optional<int32_t> captured_;
};

/// Base of the sinks. A final class registers itself as the last act of its constructor and leaves as the first of its
/// destructor; when leave() returns, no log call is inside the sink any more.
class abstract_log_t {
  public:
    virtual ~abstract_log_t() = default;
    /// Formats one message and passes the line, or its header line and its message line, to write.
    virtual void log(record_t& record);
    /// Emits one finished line, which has no line end.
    virtual void write(const std::string& line) = 0;
    /// A header line and the message line after it; by default one by one.
    virtual void write_pair(const std::string& header, const std::string& line);

    int32_t threshold() const { return threshold_.load(std::memory_order_relaxed); }
    /// A threshold above the sink's maximum changes nothing.
    void set_threshold(int32_t threshold);
    /// Of what is written.
    int32_t threshold_of_output() const { return writes_ ? threshold() : 0; }
    uint32_t flags() const { return flags_.load(std::memory_order_relaxed); }
    void set_flags(uint32_t flags) { flags_.store(flags, std::memory_order_relaxed); }

  protected:
    /// For a sink whose `write` does nothing, `writes` is false: nothing is formatted for it.
    abstract_log_t(uint32_t flags, int32_t maximum, bool writes = true)
        : flags_(flags), maximum_(maximum), writes_(writes), threshold_(maximum) {}
    abstract_log_t(const abstract_log_t&) = delete;
    abstract_log_t& operator=(const abstract_log_t&) = delete;
    void enter(dispatcher_t& dispatcher);
    void leave();

  private:
    std::atomic<uint32_t> flags_;
    const int32_t maximum_;
    const bool writes_;
    std::atomic<int32_t> threshold_;
    dispatcher_t* dispatcher_ = nullptr;
};

/// The debug-output sink. In this build it deliberately writes nothing.
class log_retail final : public abstract_log_t {
  public:
    static constexpr uint32_t retail_flags =
        default_flags &
        ~uint32_t{flag_header_line | flag_thread_number | flags_monotonic | flag_process_name | flags_zone};
    static_assert(retail_flags == 0x000C4C2E);
    explicit log_retail(object_t& object);
    ~log_retail() override;
    log_retail(const log_retail&) = delete;
    log_retail& operator=(const log_retail&) = delete;
    void write(const std::string& line) override;

  private:
    object_t& object_;
};

/// The set of sinks. Readers see a snapshot; a change publishes a new one and waits until no reader holds the old one.
class dispatcher_t {
  public:
    dispatcher_t() : sinks_(new sinks_t) {}
    ~dispatcher_t();  // destroys the sinks that are left
    dispatcher_t(const dispatcher_t&) = delete;
    dispatcher_t& operator=(const dispatcher_t&) = delete;

    void add(abstract_log_t* sink);
    void remove(abstract_log_t* sink) noexcept;
    /// After a sink's threshold has changed.
    void find_highest_threshold() const;
    /// To each sink whose threshold admits the record, in the set's order.
    void dispatch(record_t& record);

  private:
    using sinks_t = std::set<abstract_log_t*>;
    const sinks_t* exchange(const sinks_t* sinks);

    std::atomic<const sinks_t*> sinks_;
    // Readers count themselves under the epoch that they found; a change turns the epoch twice and waits for each
    // count, so that readers that keep coming cannot hold it up.
    std::atomic<uint32_t> epoch_{0};
    std::atomic<uint32_t> readers_[2] = {};
};

/// Told of a new process name.
class named_t {
  public:
    virtual void process_name_changed(const std::string& name) = 0;
    virtual ~named_t() = default;
};

/// The process-wide log object. Use process_log(); constructing another one logs that and makes an object without
/// sinks.
class object_t {
  public:
    object_t();
    ~object_t();
    object_t(const object_t&) = delete;
    object_t& operator=(const object_t&) = delete;

    /// Compared before anything is formatted.
    int32_t threshold() const { return threshold_.load(std::memory_order_relaxed); }
    void set_threshold(int32_t threshold) { threshold_.store(threshold, std::memory_order_relaxed); }

    dispatcher_t& dispatcher() { return dispatcher_; }
    const dispatcher_t& dispatcher() const { return dispatcher_; }
    /// Null once the retail sink is destroyed. Owned by the dispatcher.
    log_retail* retail() { return retail_.load(std::memory_order_acquire); }
    void forget_retail(const log_retail* sink);

    /// From /proc/self/cmdline at construction, "<unknown>" where there is none.
    const std::string& process_name() const { return *process_name_.load(std::memory_order_acquire); }
    /// Also tells the registered objects, in the order of registration.
    void set_process_name(const std::string& name);
    /// `object` stays the caller's and outlives the log object.
    void register_named(named_t& object) { named_.push_back(&object); }

  private:
    std::atomic<int32_t> threshold_{level_debug};
    std::atomic<log_retail*> retail_{nullptr};
    std::forward_list<std::string> names_;  // former names stay: a log call may be printing one
    std::atomic<const std::string*> process_name_;
    std::vector<named_t*> named_;
    dispatcher_t dispatcher_;  // destroyed first: its sinks look at the rest
};

/// The one log object: built on first use, and destroyed with its sinks when the module is unloaded. Threads of the
/// driver may log until the process ends: an object that a thread stays with is left to the process.
object_t& process_log();

/// A stay of the calling thread with the log object: each log call is one, and so is the life of a thread that may
/// outlast the program's main. False when the object is gone.
class log_stay_t {
  public:
    explicit log_stay_t(bool wanted = true) : granted(wanted && begin()) {}
    ~log_stay_t() {
        if (granted) {
            end();
        }
    }
    log_stay_t(const log_stay_t&) = delete;
    log_stay_t& operator=(const log_stay_t&) = delete;

    explicit operator bool() const { return granted; }

  private:
    static bool begin();
    static void end();

    const bool granted;
};

/// The log call.
void log(object_t& object, int32_t level, const place_t& place, const char* format, ...)
    __attribute__((format(printf, 4, 5)));
/// Without a location; `text` is printed as it stands.
void log_plain(object_t& object, int32_t level, const std::string& text);
/// Reports a failed condition at level 1, and returns whatever `abort_program` says: the words are all that it does.
/// `format` may be empty.
void assertion_failed(object_t& object, bool abort_program, const char* condition, const place_t& place,
                      const char* format, ...) __attribute__((format(printf, 5, 6)));

}  // namespace qmlog

#define QM_PLACE                               \
    qmlog::place_t {                           \
        __LINE__, __FILE__, qm_function.data() \
    }

/// Runs a statement that may name QM_PLACE, if a message of this level gets anywhere.
#define QM_TRACE(level, statement)                                                            \
    do {                                                                                      \
        if (const qmlog::log_stay_t qm_stay(qmlog::is_wanted(level)); qm_stay) [[unlikely]] { \
            [[maybe_unused]] static constexpr auto qm_function =                              \
                qmlog::function_text(static_cast<const char*>(__PRETTY_FUNCTION__));          \
            try {                                                                             \
                statement;                                                                    \
            } catch (const std::exception&) { /* the line is lost */                          \
            }                                                                                 \
        }                                                                                     \
    } while (false)

#define QM_LOG(level, ...) QM_TRACE(level, qmlog::log(qmlog::process_log(), level, QM_PLACE, __VA_ARGS__))

#define QM_INTERNAL_ERROR(...) QM_LOG(qmlog::level_internal_error, __VA_ARGS__)
#define QM_CRITICAL_ERROR(...) QM_LOG(qmlog::level_critical_error, __VA_ARGS__)
#define QM_ERROR(...) QM_LOG(qmlog::level_error, __VA_ARGS__)
#define QM_WARNING(...) QM_LOG(qmlog::level_warning, __VA_ARGS__)
#define QM_NOTICE(...) QM_LOG(qmlog::level_notice, __VA_ARGS__)
#define QM_INFO(...) QM_LOG(qmlog::level_info, __VA_ARGS__)
#define QM_DEBUG(...) QM_LOG(qmlog::level_debug, __VA_ARGS__)

/// Reports a condition that does not hold, in the words of `text`; execution goes on.
#define QM_ASSERT(condition, text)                                                              \
    do {                                                                                        \
        if (!(condition)) {                                                                     \
            QM_TRACE(qmlog::level_internal_error,                                               \
                     qmlog::assertion_failed(qmlog::process_log(), false, text, QM_PLACE, "")); \
        }                                                                                       \
    } while (false)
