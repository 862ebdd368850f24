#include "platform/include/ril.h"
