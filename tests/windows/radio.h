/// ril.dll of the tests passes each call on to the program that uses it: to its scripted radio.
#pragma once

#include <ril.h>

#include <atomic>

struct radio_calls_t {
    decltype(&RIL_Initialize) initialize;
    decltype(&RIL_Deinitialize) deinitialize;
    decltype(&RIL_SendMsg) send;
    decltype(&RIL_GetCurrentSystemType) ask;
};
/// What ril.dll exports besides the radio's calls, to be told whom to ask.
using ril_answer_by_t = void (*)(const radio_calls_t& radio);

/// The thread that asked last for the network's type: the driver's sender.
extern std::atomic<DWORD> asking_thread;
