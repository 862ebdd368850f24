/// The user data header of a short message and its information elements (3GPP TS 23.040 9.2.3.24): parsed from and
/// encoded to octets, printed for the log. Nothing fails loudly: what cannot be parsed yields nothing, what is out of
/// range is replaced, and both are logged. No state is shared.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "com/miscio/octets.h"

/// Information element identifiers, 3GPP TS 23.040 9.2.3.24.
enum udh_ie_type_t : uint32_t {
    udh_ie_concat8 = 0x00,
    udh_ie_appport8 = 0x04,
    udh_ie_appport16 = 0x05,
    udh_ie_concat16 = 0x08,
};

class sms_udh_ie_t {
  public:
    virtual ~sms_udh_ie_t() = default;
    /// The identifier.
    virtual uint32_t ie_type() const = 0;
    /// Octets of the payload.
    virtual uint32_t payload_length() const = 0;
    virtual octet_string_t payload() const = 0;
    /// The whole element on the wire: identifier, payload length, payload.
    virtual octet_string_t str() const;
    /// One line for the log.
    virtual std::string text() const = 0;

    sms_udh_ie_t(const sms_udh_ie_t&) = delete;
    sms_udh_ie_t& operator=(const sms_udh_ie_t&) = delete;

  protected:
    sms_udh_ie_t() = default;
};

/// Concatenated short message (9.2.3.24.1, 9.2.3.24.8). Each setter has a replacement of its own for what is out of
/// range.
class sms_udh_ie_concat_t : public sms_udh_ie_t {
  public:
    /// With a 16-bit reference when `wide`, else with an 8-bit one.
    static std::unique_ptr<sms_udh_ie_concat_t> make(bool wide);
    octet_string_t payload() const override;
    std::string text() const override;
    /// The reference as octets, big-endian.
    virtual octet_string_t id_payload() const = 0;
    /// The largest reference that fits.
    virtual uint32_t max_id() const = 0;

    uint32_t amount() const { return amount_; }
    uint32_t ordinal() const { return ordinal_; }
    uint32_t id() const { return id_; }
    /// Masked to the width of the reference.
    void set_id(uint32_t value);
    /// 255 at most; 0 stays 0.
    void set_amount(uint32_t value);
    /// 0 becomes 1, and 255 is the most. Not compared with the amount.
    void set_ordinal(uint32_t value);

  private:
    uint32_t amount_ = 0;   // datagrams of the message
    uint32_t ordinal_ = 0;  // this datagram's number, from 1
    uint32_t id_ = 0;       // the message reference
};

class sms_udh_ie_concat8_t final : public sms_udh_ie_concat_t {
  public:
    uint32_t ie_type() const override { return udh_ie_concat8; }
    uint32_t payload_length() const override { return 3; }
    octet_string_t id_payload() const override;
    uint32_t max_id() const override { return 255; }
};

class sms_udh_ie_concat16_t final : public sms_udh_ie_concat_t {
  public:
    uint32_t ie_type() const override { return udh_ie_concat16; }
    uint32_t payload_length() const override { return 4; }
    octet_string_t id_payload() const override;
    uint32_t max_id() const override { return 65535; }
};

/// Application port addressing (9.2.3.24.3, 9.2.3.24.4). A port that does not fit becomes the largest that does.
class sms_udh_ie_appport_t : public sms_udh_ie_t {
  public:
    octet_string_t payload() const override;
    std::string text() const override;
    virtual uint32_t max_port_id() const = 0;
    /// A port as octets, big-endian.
    virtual octet_string_t port_payload(uint32_t port) const = 0;

    uint32_t dst() const { return dst_; }
    uint32_t src() const { return src_; }
    void set_dst(uint32_t value);
    void set_src(uint32_t value);

  private:
    uint32_t dst_ = 0;
    uint32_t src_ = 0;
};

class sms_udh_ie_appport8_t final : public sms_udh_ie_appport_t {
  public:
    uint32_t ie_type() const override { return udh_ie_appport8; }
    uint32_t payload_length() const override { return 2; }
    uint32_t max_port_id() const override;
    octet_string_t port_payload(uint32_t port) const override;
};

class sms_udh_ie_appport16_t final : public sms_udh_ie_appport_t {
  public:
    uint32_t ie_type() const override { return udh_ie_appport16; }
    uint32_t payload_length() const override { return 4; }
    uint32_t max_port_id() const override;
    octet_string_t port_payload(uint32_t port) const override;
};

/// Any other element, kept as it came.
class sms_udh_ie_unknown_t final : public sms_udh_ie_t {
  public:
    sms_udh_ie_unknown_t(uint32_t type, octet_view_t data) : data_(data), type_(type) {}
    uint32_t ie_type() const override { return type_; }
    uint32_t payload_length() const override { return static_cast<uint32_t>(data_.size()); }
    octet_string_t payload() const override { return data_; }
    std::string text() const override;

  private:
    octet_string_t data_;
    uint32_t type_;
};

/// A header: its elements in order.
class sms_udh_t {
  public:
    /// Fills `ies` from a received header, which has no length octet in front. False, and `valid` cleared, at the first
    /// element that cannot be parsed; those before it stay.
    bool parse_udh(octet_view_t octets);
    /// The element at the front of `octets`, or none.
    static std::unique_ptr<sms_udh_ie_t> parse_udh_ie(octet_view_t octets);

    /// The elements on the wire behind a length octet that counts itself too; empty without elements. On the air goes
    /// the rest, with a length octet of one less: both the sender of datagrams and its radio rely on that.
    octet_string_t str() const;

    /// The first concatenation and the first port addressing element, or null.
    const sms_udh_ie_concat_t* concatenation() const {
        return first<sms_udh_ie_concat_t>(udh_ie_concat8, udh_ie_concat16);
    }
    const sms_udh_ie_appport_t* application_port() const {
        return first<sms_udh_ie_appport_t>(udh_ie_appport8, udh_ie_appport16);
    }

    bool valid = true;
    std::vector<std::unique_ptr<sms_udh_ie_t>> ies;

  private:
    /// An element of an identifier that has a class of its own is of that class: sms_udh_ie_unknown_t is for the
    /// others.
    template <class ie_t>
    const ie_t* first(udh_ie_type_t narrow, udh_ie_type_t wide) const {
        for (const auto& ie : ies) {
            if (const uint32_t type = ie->ie_type(); type == narrow || type == wide) {
                return static_cast<const ie_t*>(ie.get());
            }
        }
        return nullptr;
    }
};
