/// Typed settings in one registry key. Each value loads itself when it is registered, falls back to its default when
/// the registry is unusable or holds something unacceptable, and writes itself back whenever it is changed. Every
/// problem is logged, and the value in memory stays usable. No locking: the owner serialises.
#pragma once

#include <windows.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>

class reg_t;

/// Base of all values.
class reg_value_t {
  public:
    virtual ~reg_value_t() = default;
    reg_value_t(const reg_value_t&) = delete;
    reg_value_t& operator=(const reg_value_t&) = delete;

  protected:
    reg_value_t(reg_t& reg, std::string value_name);
    bool reg_read_raw(std::string& bytes, uint32_t& type) const;
    bool reg_write_raw(const std::string& bytes, uint32_t type) const;
    bool registry_available() const;

    reg_t& owner;
    const std::string name;
};

/// An unsigned 32-bit value within an interval, stored as REG_DWORD.
class reg_value_uint32_t final : public reg_value_t {
  public:
    reg_value_uint32_t(reg_t& reg, const std::string& value_name, uint32_t least, uint32_t most, uint32_t initial);
    uint32_t value() const { return current; }
    /// False, and nothing changes, for a value outside the interval. A value that cannot be stored is taken all the
    /// same.
    [[nodiscard]] bool set(uint32_t value);

  private:
    bool in_interval(uint32_t value) const { return value >= minimum && value <= maximum; }
    bool reg_read_uint32(uint32_t& value) const;
    bool reg_write_uint32() const;

    const uint32_t maximum, minimum, default_value;
    uint32_t current;
};

/// A text, stored as REG_BINARY.
class reg_value_string_t final : public reg_value_t {
  public:
    reg_value_string_t(reg_t& reg, const std::string& value_name, std::string initial);
    const std::string& value() const { return current; }
    void set(const std::string& value);

  private:
    bool reg_read_string(std::string& value) const;
    bool reg_write_string() const;

    const std::string default_value;
    std::string current;
};

/// One key, opened or created at construction and closed at destruction, and its registered values, which it owns.
class reg_t {
  public:
    reg_t(HKEY root_key, std::string path);
    ~reg_t();
    reg_t(const reg_t&) = delete;
    reg_t& operator=(const reg_t&) = delete;

    /// The key, or null when it could not be opened.
    HKEY key() const { return handle; }

    /// The value of this name, or null. A miss is logged when `report_missing`, a hit when not.
    reg_value_t* find(const std::string& name, bool report_missing) const;

    /// Registers a value. Null, and nothing is registered, for a name that is taken, an empty interval, and a default
    /// outside it.
    reg_value_uint32_t* add_uint32(const std::string& name, uint32_t minimum, uint32_t maximum, uint32_t default_value);
    reg_value_string_t* add_string(const std::string& name, const std::string& default_value);

    /// Typed access by name. False when there is no such value of that type, and for a set, when it refuses the value.
    [[nodiscard]] bool get_uint32(const std::string& name, uint32_t& value) const;
    [[nodiscard]] bool set_uint32(const std::string& name, uint32_t value);

  private:
    void init();
    reg_value_uint32_t* typed_uint32(const std::string& name) const;

    HKEY root;
    const std::string key_path;
    HKEY handle = nullptr;
    std::map<std::string, std::unique_ptr<reg_value_t>> cache;
};
