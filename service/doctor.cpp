#include "service/doctor.h"

#include "base/end_signals.h"

radio::diagnosis_t examine_modem(const std::string& tty) {
    const base::end_signals_t signals;
    return radio::diagnose(tty, [&signals] { return signals.wait(0); });
}
