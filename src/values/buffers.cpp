// The interpreter's process-wide record; the driver's start-up sets it up.
#include "values/buffers.h"

V_BUFFERS v_BUFFERS;
