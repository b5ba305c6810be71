// The installation directory, v.env and v.config: the site root for the
// host, the base name, the page to run and the error page.
#pragma once
#include <sys/stat.h>

extern char *V_BASE;
extern int V_BASE_hold;
extern char *V_PAGE;
extern char *V_ERROR;

void V_env();
// Makes V_env keep the bytes of v.env at its first reading and parse them
// again at later ones, in this process and the children it forks, as long
// as the home directory is the same; a server of many requests reads the
// file once. V_env_reread drops the copy and the settings it made, and
// reads the file again.
void V_env_keep();
void V_env_reread();
void V_values(const char *prog);
// Confines the variable's path to root and requires a regular file; with
// pages_only the path must also name a page (see V_is_page_name). A refusal
// is fatal: "Invalid NAME value: VALUE".
void V_check_name(const char *root, const char *name, bool pages_only = false);
// What stat said of page when V_values checked it as V_PAGE, or null for
// another path or none checked.
const struct stat *V_page_seen(const char *page);
// True when the last component of path is v.page or v.error or ends in one
// of the suffixes of VORN_PAGE_SUFFIXES (blank-separated; ".html .htm" when
// the setting is unset).
bool V_is_page_name(const char *path);
void V_default_names(const char *root);
// True under a web server (REQUEST_METHOD set, whatever the method): then
// the form and also the arguments of a method run as from a shell (some
// servers make them from the query string) come from the visitor.
bool V_serving_request();
// False, with a trace line, for a name a visitor may not set: V_USER and
// V_PASSWD unless the site sets VORN_REQUEST_LOGIN=on.
bool V_request_may_set(const char *name);

// Joins value onto root unless it already lies under it, collapses "//"
// and "/./", and refuses a path that climbs out of root. 0 with the path
// in out, -1 when the value is refused or does not fit into size bytes.
int V_confine_path(const char *root, const char *value, char *out, int size);
