/// The one object behind the device: it serves control requests, sends cards and stores received ones. A file of this
/// folder for each of its concerns.
///
/// Threads: clients come through iocontrol, the sender thread through its rounds, the radio layer through the two
/// callbacks. Each enters by a daemon_visit_t and takes the control lock; all members are touched under it alone, save
/// during construction and destruction, when nobody else is inside.
#pragma once

#include <ril.h>
#include <windows.h>

#include <atomic>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "com/miscio/buffer-server.h"
#include "com/miscio/mkdir.h"
#include "com/miscio/octets.h"
#include "com/miscio/reg.h"
#include "com/miscio/signal.h"
#include "com/qmlog/log_file.h"
#include "com/sms/sms.h"
#include "com/zpd/activation.h"
#include "com/zpd/daemon/gate.h"
#include "com/zpd/daemon/message.h"
#include "com/zpd/machine.h"

/// The record of a sender thread. It outlives its daemon, so that a thread that still sleeps finds its own state.
struct sender_thread_t {
    uint32_t id = 0xFFFFFFFF;
    HANDLE handle = nullptr;
    signal_plain_t* signal = nullptr;
    bool stop = false;  // read under the control lock; nobody sets it, deliberately: a sender ends with its daemon
    // Back-off. Ticks have 64 bits: GetTickCount's 32, and what its wraps have carried.
    bool deadline_armed = false;
    uint64_t deadline = 0;
    uint64_t carry = 0;
    uint32_t last_tick = 0;

    uint64_t now();
    void arm(uint32_t milliseconds);
    /// Milliseconds to the deadline, at most 0x1000000.
    uint32_t time_left();
};

class daemon_t {
  public:
    /// What ZPD_Init and ZPD_Deinit do.
    static void init();
    static void deinit();
    /// Serves a request; false, with the thread's last error set, when it failed.
    static bool iocontrol(uint32_t code, request_t& request);

    daemon_t();
    /// Leaves the sender thread, the radio session, the state machine, the activation state, the wake-up event and the
    /// log file as they are, deliberately.
    ~daemon_t();
    daemon_t(const daemon_t&) = delete;
    daemon_t& operator=(const daemon_t&) = delete;

    // For the state machine, see machine_owner.
    bool request_ril(datagram_t* datagram);
    void wake_sender() { wakes_sender = true; }
    void set_last_send_failed(bool failed) { last_send_failed = failed; }
    void delete_message(uint32_t id);

    /// The base of pending radio requests. Owned by the table of the daemon until the result has been processed.
    class abstract_ril_request_t {
      public:
        virtual ~abstract_ril_request_t();
        /// Acts on the result fields that the result callback has stored.
        virtual void process_result() = 0;
        abstract_ril_request_t(const abstract_ril_request_t&) = delete;
        abstract_ril_request_t& operator=(const abstract_ril_request_t&) = delete;

        daemon_t* const daemon;
        const uint32_t req_id;
        uint32_t ril_result_code = unset;
        uint32_t data32 = unset;
        uint32_t param = unset;
        octet_string_t data;

      protected:
        abstract_ril_request_t(daemon_t* owner, uint32_t id);
        void log_result() const;

      private:
        static constexpr uint32_t unset = 0xDEADBEEF;
    };
    class ril_request_send_message_t;
    class ril_request_get_current_system_type_t;

  private:
    /// A stay under the control lock. What wakes the sender does so when the lock is free, and once: before, the sender
    /// would wake to wait for the lock.
    class control_guard_t {
      public:
        control_guard_t(daemon_t& daemon, const char* place) : waker{daemon}, guard(daemon.control_lock.get(), place) {}

      private:
        struct waker_t {
            daemon_t& daemon;
            ~waker_t();
        };
        const waker_t waker;
        const lock_guard_t guard;
    };
    struct control_t;
    friend void foo_two(daemon_t& daemon, request_t& request);

    // lifecycle.cpp
    static daemon_t* make();
    void restore_logging_switch();
    void start_sender_thread();

    // control.cpp
    void version(request_t& request);

    // settings.cpp
    void open_settings();
    void read_settings();
    void apply_log_options(uint32_t enabled, uint32_t retail_level, uint32_t file_level);
    void update_file_sink(bool wanted);
    void set_log_options(request_t& request);
    void set_ril_capacity(request_t& request);
    void set_incoming_dir_size(request_t& request);
    void get_pim_contacts_var(request_t& request);

    // messages.cpp
    void message_list(request_t& request);
    void message_status(request_t& request);
    void message_close(request_t& request);
    message_t* find_message(uint32_t id) const;
    std::unique_ptr<message_t> take_finished(uint32_t id);

    // splitting.cpp
    void send_or_count_datagrams(request_t& request, bool count_only);
    void send(request_t& request, wide_string_t phone, octet_string_t vcard, bool use_long_ie,
              const std::vector<uint32_t>& chunks);
    uint32_t enqueue_multi_part_sms(wide_string_t phone, octet_string_t vcard, bool use_long_ie,
                                    const std::vector<uint32_t>& chunks);
    uint32_t take_message_id();
    message_t* create_message(uint32_t id, wide_string_t phone, octet_string_t vcard);

    // ril_session.cpp
    void start_ril();
    bool ensure_ril_session();
    static void CALLBACK ril_result_cb(DWORD result_code, HRESULT request, const void* data, DWORD data_size,
                                       DWORD parameter);
    bool route_result(uint32_t result_code, uint32_t req_id, octet_string_t& data, uint32_t data32, uint32_t parameter);

    // submission.cpp
    bool send_datagram_request_gsm(datagram_t* datagram);
    bool send_datagram_request_cdma(datagram_t* datagram);
    bool submit(const RILMESSAGE& message, datagram_t* datagram);

    // sender.cpp
    static DWORD WINAPI sender_thread_start(LPVOID parameter);
    static void sender_thread(sender_thread_t& sender);
    uint32_t sender_round();
    bool can_dispatch() const;
    void send_network_type_request();
    void update_system_type(uint32_t system_type);

    // receiving.cpp
    static void CALLBACK ril_notify_cb(DWORD code, const void* data, DWORD data_size, DWORD parameter);
    static void process_gsm_or_cdma_message(const std::string& address, octet_view_t header, octet_view_t user_data);
    bool process_incoming_sms_datagram(std::unique_ptr<incoming_datagram>& record);

    // storing.cpp
    bool save_complete_message(const sms_message_t& message);
    bool check_incoming_directrory_size();

    // applications.cpp
    void activation(request_t& request);
    void application(request_t& request);
    void launch_application(request_t& request);

    qmlog::log_file* file_log = nullptr;
    uint32_t log_enabled = 1;
    uint32_t log_level_retail = 7;
    uint32_t log_level_file = 0;
    uint32_t incoming_dir_size = 0;  // 0: no limit
    critical_section_t control_lock;
    std::unique_ptr<machine_t> machine;
    std::unique_ptr<sender_thread_t> sender;
    std::unique_ptr<reg_t> settings;
    uint32_t next_message_id = 0;
    std::unique_ptr<activation_state_t> activation_state;
    HRIL hril = nullptr;
    uint32_t ril_start_result = 0;
    std::map<uint32_t, std::unique_ptr<message_t>> messages;
    // Messages whose ids went to newer ones after a wrap: out of the clients' reach, here until their datagrams are
    // done.
    std::list<std::unique_ptr<message_t>> displaced_messages;
    std::map<uint32_t, abstract_ril_request_t*> pending_ril_requests;
    // Those whose identifiers the radio gave out again before their results came.
    std::vector<std::unique_ptr<abstract_ril_request_t>> displaced_ril_requests;
    std::map<std::string, sms_message_t> incoming_messages;
    path_components_t incoming_directory = nullptr;
    bool gsm_available = false;
    bool cdma_available = false;
    std::unique_ptr<signal_plain_t> sender_signal;
    std::atomic<bool> wakes_sender = false;
    bool last_send_failed = false;
};
