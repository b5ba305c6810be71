// The two directories the whole process works from: the installation
// directory (marker files, v.env, v.config, relative SQLite files) and the
// temporary directory. They live at the bottom so that diagnostics and the
// database session can read them; the driver settles both at start-up.
#pragma once

extern char *V_HOME;    // null until start-up has found it
extern char *TMP_DIR;   // null until start-up; readers then take /tmp
