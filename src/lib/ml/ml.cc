// Process priority: see ml.h.
#include "ml/ml.h"

#include <sys/resource.h>

#include "cust/cust.h"

void ml_SetSSNiceValue(int) {
    const int nice_value = cust_GetInteger("UX_NICE", 0);
    if (nice_value != 0) ::setpriority(PRIO_PROCESS, 0, nice_value);
}
