// Placeholder bodies until this module is written.
#include "db/cursor_ids.h"

const char *V_get_cid() { return {}; }
void V_free_cid(const char *cid) {}
void V_free_all() {}
const char *V_get_base() { return {}; }
