/// What `zpd doctor` tells of a modem that no service runs on.
#pragma once

#include <string>

#include "radio/diagnosis.h"

/// Examines the modem on a tty, which must be free. SIGINT, SIGTERM and SIGHUP end it early, with what was changed on
/// the modem put back. To be called before the process has other threads.
radio::diagnosis_t examine_modem(const std::string& tty);
