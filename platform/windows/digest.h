#include "platform/include/digest.h"
