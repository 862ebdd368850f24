#include "platform/include/aygshell.h"
