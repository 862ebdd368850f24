/// A radio for measurements of the driver alone: it never finds a network, so that what is sent piles up in the queue,
/// and keeps the driver's callback, for what comes in.
#pragma once

#include <ril.h>

extern RILNOTIFYCALLBACK notify;
