// Cursor ids: the ten names "c0".."c9" handed to SQL commands, and the
// lazy opening of the database session on the first request.
#include "db/cursor_ids.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "db/session.h"
#include "driver/diagnostics.h"
#include "values/variables.h"

namespace {

char cid[V_MAX_CURSORS][10];
int cid_free[V_MAX_CURSORS] = {-1, -1, -1, -1, -1,
                               -1, -1, -1, -1, -1};   // -1 never used, 0 in use, 1 released
char base_name[1024];
const char *base;   // the open session's database name, null before the first request

const char *non_empty(const char *s) {
    return s && *s ? s : nullptr;
}

int open_session() {
    const char *name = non_empty(V_get_value("V_BASE"));
    if (!name) {
        ERRMSG("### Database name was not specified...");
        return -1;
    }
    snprintf(base_name, sizeof base_name, "%s", name);
    // The page's own login wins; without one, the site's from v.env. The two
    // are taken as a pair so that a page's user never meets the site's password.
    const char *user = non_empty(V_get_value("V_USER"));
    const char *passwd = non_empty(V_get_value("V_PASSWD"));
    if (!user && !passwd) {
        user = non_empty(getenv("V_USER"));
        passwd = non_empty(getenv("V_PASSWD"));
    }
    int code = V_database(base_name, user, passwd);
    if (code != 0) {
        ERRMSG("### Cannot open database: %s SQLCODE: %d", base_name, code);
        return -1;
    }
    base = base_name;
    return 0;
}

}   // namespace

const char *V_get_cid() {
    if (!base && open_session() < 0) return nullptr;
    for (int i = 0; i < V_MAX_CURSORS; i++) {
        if (cid_free[i] == 1) {
            cid_free[i] = 0;
            return cid[i];
        }
    }
    for (int i = 0; i < V_MAX_CURSORS; i++) {
        if (cid_free[i] == -1) {
            snprintf(cid[i], sizeof cid[i], "c%d", i);
            cid_free[i] = 0;
            return cid[i];
        }
    }
    ERRMSG("### SYSTEM ERROR: more than 10 DB Session in proccess!");
    return nullptr;
}

void V_free_cid(const char *name) {
    if (!name) return;
    for (int i = 0; i < V_MAX_CURSORS; i++) {
        if (strcmp(cid[i], name) == 0) {
            cid_free[i] = 1;
            return;
        }
    }
}

void V_free_all() {
    for (int &state : cid_free) state = -1;
    base = nullptr;
}

const char *V_get_base() {
    return base;
}
