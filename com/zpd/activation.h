/// Whether received cards are stored, and the applications that use the service; both persist in the registry. No
/// locking: the owner serialises.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "com/miscio/reg.h"

class activation_state_t {
  public:
    /// Registers its two values under the key, which stays the caller's and outlives every call but the destructor.
    explicit activation_state_t(reg_t& settings);

    /// What was set, 0 or 1.
    uint32_t status() const { return active; }
    void set_status(bool on);

    /// The active-state query. With applications registered the service is active only while one of them is installed:
    /// those found missing are removed, and when all are, the service switches itself off.
    bool is_active();

    /// The names in ascending byte order, joined with ";".
    std::string list_apps() const;
    /// Registering a name twice keeps one entry. Returns the list as it was stored.
    std::string register_app(const std::string& name);
    void unregister_all();

  private:
    void read_apps();
    std::string store_apps();

    uint32_t active = 0;
    std::map<std::string, bool> apps;
    reg_value_uint32_t* const activated;
    reg_value_string_t* const applications;
};
