// The installation directory, v.env and v.config: the site root for the
// host, the base name, the page to run and the error page.
#pragma once

extern char *V_HOME;
extern char *TMP_DIR;
extern char *V_BASE;
extern int V_BASE_hold;
extern char *V_PAGE;
extern char *V_ERROR;

void V_env();
void V_values(const char *prog);
void V_check_name(const char *root, const char *name);
void V_default_names(const char *root);

// Joins value onto root unless it already lies under it, collapses "//"
// and "/./", and refuses a path that climbs out of root. 0 with the path
// in out, -1 when the value is refused or does not fit into size bytes.
int V_confine_path(const char *root, const char *value, char *out, int size);
