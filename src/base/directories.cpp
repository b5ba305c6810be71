// The installation and temporary directories; driver/environment fills them.
#include "base/directories.h"

char *V_HOME;
char *TMP_DIR;
