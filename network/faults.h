/// What can be done to one modem of the emulated network on demand: where it is registered, and how it misbehaves.
/// Plain values; network.h hands them over.
#pragma once

#include <cstdint>

namespace network {

/// <stat> of +CREG, 3GPP TS 27.007 7.2.
enum class registration_t : uint8_t { idle = 0, home = 1, searching = 2, denied = 3, unknown = 4, roaming = 5 };

/// <AcT> of +CREG and +COPS, 3GPP TS 27.007 7.2.
enum class access_technology_t : uint8_t {
    gsm = 0,
    utran = 2,
    gsm_egprs = 3,
    utran_hsdpa = 4,
    utran_hsupa = 5,
    utran_hspa = 6,
    e_utran = 7,
};

/// What the modem has of the network. Without a registration at home or roaming it neither sends nor receives.
struct coverage_t {
    registration_t registration = registration_t::home;
    access_technology_t technology = access_technology_t::gsm;

    bool in_service() const { return registration == registration_t::home || registration == registration_t::roaming; }
};

struct faults_t {
    /// So many of the next submissions are refused with this +CMS ERROR (3GPP TS 27.005 3.2.5).
    unsigned refusals = 0;
    unsigned refusal_code = 500;
    /// So many of the next submissions reach the network, but their result never reaches the host.
    unsigned lost_results = 0;
    /// The modem takes everything and says nothing at all.
    bool silent = false;
};

}  // namespace network
