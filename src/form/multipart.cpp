// Placeholder bodies until this module is written.
#include "form/multipart.h"

int E_POST_parser(entry *ent) { return -1; }
