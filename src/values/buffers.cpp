// The interpreter's process-wide record, which the driver's start-up sets
// up, and the figures of its request heap for the trace.
#include "values/buffers.h"

#include <cstdint>

#include "base/hot_data.h"

V_HOT V_BUFFERS v_BUFFERS;

void V_heap_figures(FILE *fp) {
    V_heap *hp = v_BUFFERS.hp;
    heapblock_t *mb = hp ? hp->smallreq : nullptr;
    fprintf(fp, " hp: %d ", (int)(intptr_t)hp);
    fflush(fp);
    fprintf(fp, " mb: %d ", (int)(intptr_t)mb);
    fflush(fp);
    fprintf(fp, "m_used: %d =====\n", mb ? (int)mb->m_used : -1);
    fflush(fp);
}
