/// SMS-DELIVER-REPORT, 3GPP TS 23.040 9.2.2.1a: what a phone may add to its acknowledgement of a delivery, or to its
/// refusal. Nobody here reads what it says, only whether it is one. A pure function.
#pragma once

#include "air/octets.h"

namespace air {

enum class deliver_report_t { of_acknowledgement, of_error };

/// Whether the octets are such a report, whole and without surplus. That of an error has a cause, TP-FCS.
bool is_deliver_report(octets_view_t octets, deliver_report_t kind);

}  // namespace air
