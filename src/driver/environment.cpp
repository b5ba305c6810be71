// Placeholder bodies until this module is written.
#include "driver/environment.h"

char *V_HOME;
char *TMP_DIR;
char *V_BASE;
int V_BASE_hold;
char *V_PAGE;
char *V_ERROR;
void V_env() {}
void V_values(const char *prog) {}
void V_check_name(const char *root, const char *name) {}
void V_default_names(const char *root) {}
