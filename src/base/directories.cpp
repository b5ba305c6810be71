// The installation and temporary directories; driver/environment fills them.
#include "base/directories.h"

#include "base/hot_data.h"

V_HOT char *V_HOME;
V_HOT char *TMP_DIR;
