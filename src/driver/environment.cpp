// The installation directory and v.env, v.config with the site root for the
// host, the fixed variables, and the confinement of the page and error page.
#include "driver/environment.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

#include "base/directories.h"
#include "base/hot_data.h"
#include "base/owners.h"
#include "driver/diagnostics.h"
#include "form/urlencoded.h"
#include "values/arguments.h"
#include "values/response.h"
#include "values/variables.h"

V_HOT char *V_BASE;
V_HOT int V_BASE_hold;
V_HOT char *V_PAGE;
V_HOT char *V_ERROR;

namespace {

constexpr int ENV_LINE = 3000;
constexpr int ENV_BUFFER = 4096;
constexpr int CONFIG_LINE = 100;
constexpr int ROOT_SIZE = 200;
constexpr int BASE_SIZE = 40;
constexpr int PID_SIZE = 20;
constexpr int CHECK_SIZE = 500;
constexpr int STREAM_BUFFER = 4096;   // of v.env and v.config while they are read

// putenv keeps pointers into this buffer for the life of the process. A
// request writes its few settings at the start.
V_HOT_BUFFER char env_buffer[ENV_BUFFER];
V_HOT int env_used;

// A server that forks a process per request reads v.env once: the bytes
// are kept here and parsed again by each request, as the file would be.
constexpr int KEPT_ENV_MAX = 64 * 1024;
V_HOT bool keep_env;
V_HOT char *kept_env;
V_HOT size_t kept_size;
V_HOT char *kept_home;

V_HOT char site_root[ROOT_SIZE];
V_HOT char base_name[BASE_SIZE];
V_HOT char pid_text[PID_SIZE];

constexpr const char *DEFAULT_PAGE_SUFFIXES = ".html .htm";
constexpr const char *ALWAYS_PAGES[] = {"v.page", "v.error"};

bool ends_with(std::string_view text, std::string_view tail) {
    return text.size() >= tail.size() && text.substr(text.size() - tail.size()) == tail;
}

int env_store(const char *setting) {
    // A setting the environment holds as it is stays where it is: a
    // FastCGI request process inherits the settings its server read, and
    // putting them again would write (and so copy) the page of its array.
    // (A setting the server was started with, the same, therefore stays
    // when v.env is read again without it.)
    if (const char *eq = strchr(setting, '=')) {
        size_t name_len = (size_t)(eq - setting) + 1;
        for (char **e = environ; *e; e++) {
            if (strncmp(*e, setting, name_len)) continue;
            if (!strcmp(*e + name_len, eq + 1)) return 0;
            break;
        }
    }
    int len = (int)strlen(setting);
    if (len + 1 > ENV_BUFFER - env_used) return -1;
    char *slot = env_buffer + env_used;
    memcpy(slot, setting, len + 1);
    env_used += len + 1;
    putenv(slot);
    return 0;
}

int file_exists(const char *dir, const char *name) {
    char path[1024];
    int n = snprintf(path, sizeof path, "%s/%s", dir, name);
    return n > 0 && n < (int)sizeof path && access(path, F_OK) == 0;
}

int is_regular(const char *path, struct stat *seen = nullptr) {
    struct stat st;
    if (!seen) seen = &st;
    return stat(path, seen) == 0 && S_ISREG(seen->st_mode);
}

// What stat said of the page V_values has checked, and its path: the
// page's first reading takes it rather than asking the file again.
V_HOT struct stat page_seen;
V_HOT char *page_seen_path;

bool check_name(const char *root, const char *name, bool pages_only, struct stat *seen);

void forget_page_seen() {
    free(page_seen_path);
    page_seen_path = nullptr;
}

// Opens path for reading through buf (STREAM_BUFFER bytes, to outlive the
// stream; null: the stream's own): given a buffer, the stream does not ask
// the file for its block size first.
FILE *open_buffered(const char *path, char *buf) {
    FILE *fp = fopen(path, "r");
    if (fp && buf) setvbuf(fp, buf, _IOFBF, STREAM_BUFFER);
    return fp;
}

char *keep(const char *text) {
    return strdup(text ? text : "");
}

void find_home() {
    const char *home = getenv("V_HOME");
    if (home) {
        V_HOME = keep(home);
        return;
    }
    static const char *const candidates[] = {"/Vorn", "/etc/Vorn", "/opt/Vorn", "/apps/Vorn"};
    for (const char *dir : candidates) {
        if (file_exists(dir, "v.config")) {
            V_HOME = keep(dir);
            return;
        }
    }
    V_HOME = keep(".");
}

// Reads v.env whole into kept_env, or leaves it unset when the file is
// missing or larger than KEPT_ENV_MAX (then each request reads the file).
void keep_env_file(const char *path) {
    File fp(fopen(path, "r"));
    if (!fp) return;
    char *text = (char *)malloc(KEPT_ENV_MAX + 1);
    if (!text) return;
    size_t got = fread(text, 1, KEPT_ENV_MAX + 1, fp.get());
    if (got > (size_t)KEPT_ENV_MAX) {
        free(text);
        return;
    }
    kept_env = text;
    kept_size = got;
    kept_home = keep(V_HOME);
}

// The kept copy is parsed from the start of env_buffer again: its lines land
// where they did in the process that read the file, byte for byte.
FILE *open_env_file(const char *path, char *buf) {
    if (keep_env && !kept_home) keep_env_file(path);
    if (!kept_env || strcmp(kept_home, V_HOME)) return open_buffered(path, buf);
    env_used = 0;
    return kept_size ? fmemopen(kept_env, kept_size, "r") : nullptr;
}

void load_env_file() {
    char path[1024];
    int n = snprintf(path, sizeof path, "%s/v.env", V_HOME);
    if (n < 0 || n >= (int)sizeof path) return;
    // on the stack, declared before the stream that it outlives: from the
    // heap it would push what the request allocates next onto a page of
    // its own, for the few bytes read into it
    char buf[STREAM_BUFFER];
    File fp(open_env_file(path, buf));
    if (!fp) return;
    char line[ENV_LINE];
    while (fgets(line, sizeof line, fp.get())) {
        if (line[0] == '#' || !strchr(line, '=')) continue;
        size_t len = strlen(line);
        if (len && line[len - 1] == '\n') line[len - 1] = 0;
        env_store(line);   // a line that no longer fits is skipped
    }
}

// Splits line into up to four words, each cut to CONFIG_LINE - 1 bytes, as
// sscanf's "%99s %99s %99s %99s" does (the rest of a cut word is the next
// word), without the scanf machinery, which is the largest function a
// request would otherwise run.
void scan_words(const char *line, char *const (&words)[4]) {
    const unsigned char *p = (const unsigned char *)line;
    for (char *word : words) {
        while (isspace(*p)) p++;
        if (!*p) return;
        int n = 0;
        while (*p && !isspace(*p) && n < CONFIG_LINE - 1) word[n++] = (char)*p++;
        word[n] = '\0';
    }
}

void host_key(char *key, int size) {
    const char *host = getenv("HTTP_HOST");
    if (host) {
        snprintf(key, size, strchr(host, ':') ? "%s" : "%s:80", host);
        return;
    }
    const char *name = getenv("SERVER_NAME");
    const char *port = getenv("SERVER_PORT");
    snprintf(key, size, "%s:%s", name ? name : "shell", port ? port : "00");
}

// Fills site_root, base_name and hold from the first line for key; each
// word is scanned into a line-sized buffer and cut to its own field after.
void read_config(const char *key, int *hold) {
    char path[1024];
    int n = snprintf(path, sizeof path, "%s/v.config", V_HOME);
    site_root[0] = 0;
    base_name[0] = 0;
    *hold = 0;
    // a path cut to fit would name another file: then there is no v.config
    char buf[STREAM_BUFFER];   // as in load_env_file
    File fp(n > 0 && n < (int)sizeof path ? open_buffered(path, buf) : nullptr);
    if (!fp) {
        if (strcmp(key, "shell:00")) {
            ERRMSG("Cannot open V_HOME config file: %s", path);
            return;
        }
        if (!getcwd(site_root, sizeof site_root)) snprintf(site_root, sizeof site_root, ".");
        return;
    }
    char line[CONFIG_LINE];
    while (fgets(line, sizeof line, fp.get())) {
        char w1[CONFIG_LINE] = "", w2[CONFIG_LINE] = "", w3[CONFIG_LINE] = "", w4[CONFIG_LINE] = "";
        char *words[] = {w1, w2, w3, w4};
        scan_words(line, words);
        V_copy_cut(site_root, w2, (int)sizeof site_root);
        V_copy_cut(base_name, w3, (int)sizeof base_name);
        *hold = !strcmp(w4, "hold");
        if (!strcmp(w1, key)) break;
        site_root[0] = 0;
        base_name[0] = 0;
        *hold = 0;
    }
}

void put_fixed_values(const char *prog) {
    V_put_value("V_ROOT", site_root, 1, 0);
    V_put_value("V_HOME", V_HOME, 1, 0);
    snprintf(pid_text, sizeof pid_text, "%d", (int)getpid());
    V_put_value("V_PID", pid_text, 1, 0);
    const char *slash = strrchr(prog, '/');
    V_put_value("V_PROG", slash ? slash + 1 : prog, 1, 0);
}

void form_to_variables() {
    for (int i = 0; i < V_ENT_MAX && ent[i].name; i++) {
        if (ent[i].val && ent[i].val[0] && V_request_may_set(ent[i].name))
            V_add_value(ent[i].name, ent[i].val);
    }
}

// The globals keep their own copies, so a page that later assigns the
// variables cannot pull the text from under them.
char *checked_value(const char *root, const char *name, bool pages_only) {
    if (!V_get_user(name)) return nullptr;
    V_check_name(root, name, pages_only);
    char *value = V_get_value(name);
    return value ? keep(value) : nullptr;
}

void collapse_slashes(char *path) {
    for (int changed = 1; changed;) {
        changed = 0;
        char *p;
        while ((p = strstr(path, "//"))) {
            memmove(p, p + 1, strlen(p + 1) + 1);
            changed = 1;
        }
        while ((p = strstr(path, "/./"))) {
            memmove(p, p + 2, strlen(p + 2) + 1);
            changed = 1;
        }
    }
    // a final "." step names the directory before it, as "x/." does "x/"
    size_t len = strlen(path);
    if (len > 2 && !strcmp(path + len - 2, "/.")) path[len - 1] = 0;
}

// A value lies under root only when root is followed by a "/" or ends the
// value: "/site2/x" is not under "/site".
int under_root(const char *root, const char *value) {
    size_t n = strlen(root);
    if (strncmp(value, root, n)) return 0;
    return n == 0 || root[n - 1] == '/' || value[n] == '/' || value[n] == 0;
}

int climbs_out(const char *rest) {
    int depth = 0;
    while (*rest) {
        const char *end = strchr(rest, '/');
        size_t len = end ? (size_t)(end - rest) : strlen(rest);
        if (len == 2 && !strncmp(rest, "..", 2)) {
            if (--depth < 0) return 1;
        } else if (len && !(len == 1 && rest[0] == '.')) {
            depth++;
        }
        rest += len;
        if (*rest == '/') rest++;
    }
    return 0;
}

}   // namespace

bool V_serving_request() {
    return getenv("REQUEST_METHOD") != nullptr;
}

// The database login belongs to the site (v.env, v.config, the page): a
// visitor who could send V_USER and V_PASSWD would choose the role the
// page runs under. VORN_REQUEST_LOGIN=on lets a site take them from forms.
bool V_request_may_set(const char *name) {
    if (strcmp(name, "V_USER") && strcmp(name, "V_PASSWD")) return true;
    const char *setting = getenv("VORN_REQUEST_LOGIN");
    if (setting && !strcmp(setting, "on")) return true;
    V_TRACE("V_values: request value of %s dropped\n", name);
    return false;
}

void V_env() {
    // A "Proxy:" request header reaches a CGI program as HTTP_PROXY, where
    // it would send the requests of every command a page starts through the
    // visitor's proxy. It goes before v.env, which may set the site's own.
    if (getenv("REQUEST_METHOD")) unsetenv("HTTP_PROXY");
    // V_HOME is settled before v.env, which therefore cannot move it.
    find_home();
    load_env_file();
    const char *tmp = getenv("TMP_DIR");
    if (tmp) {
        TMP_DIR = keep(tmp);
        return;
    }
    TMP_DIR = keep("/tmp");
    env_store("TMP_DIR=/tmp");
}

void V_env_keep() {
    keep_env = true;
}

void V_env_reread() {
    // the settings the last reading made go, so a line taken out of the
    // file no longer applies
    for (int at = 0; at < env_used;) {
        const char *setting = env_buffer + at;
        const char *eq = strchr(setting, '=');
        if (eq && eq - setting < ENV_LINE) {
            char name[ENV_LINE];
            snprintf(name, sizeof name, "%.*s", (int)(eq - setting), setting);
            unsetenv(name);
        }
        at += (int)strlen(setting) + 1;
    }
    env_used = 0;
    free(kept_env);
    free(kept_home);
    kept_env = nullptr;
    kept_home = nullptr;
    kept_size = 0;
    free(V_HOME);
    free(TMP_DIR);
    V_HOME = TMP_DIR = nullptr;
    V_env();
}

void V_values(const char *prog) {
    V_TRACE("V_values: entry \n");
    char key[256];
    host_key(key, sizeof key);

    read_config(key, &V_BASE_hold);
    if (!site_root[0]) {
        ERRMSG("No V_ROOT configuration for SERVER: %s\n", key);
        return;
    }
    V_TRACE("V_ROOT ===> {%s} \n", site_root);
    if (chdir(site_root)) {
        // the pages are still looked up by their full paths
    }

    put_fixed_values(prog);
    if (!base_name[0]) snprintf(base_name, sizeof base_name, "Vorn");
    V_BASE = base_name;
    V_put_value("V_BASE", V_BASE, V_BASE_hold, 0);
    V_TRACE("==> Server: %s  Root: %s   Base: %s   Hold: %d \n", key, site_root, V_BASE,
            V_BASE_hold);

    form_to_variables();
    // Under a web server the names came from the visitor, who may name only
    // pages: any other file under the root (a database, an include, an
    // upload) would run as one. A name given at a shell is the caller's own.
    bool from_request = V_serving_request();
    forget_page_seen();
    if (V_get_user("V_PAGE")) {
        struct stat seen;
        bool passed = check_name(site_root, "V_PAGE", from_request, &seen);
        const char *value = V_get_value("V_PAGE");
        V_PAGE = value ? keep(value) : nullptr;
        if (passed && V_PAGE) {
            page_seen = seen;
            page_seen_path = keep(V_PAGE);
        }
    } else {
        V_PAGE = nullptr;
    }
    V_ERROR = checked_value(site_root, "V_ERROR", from_request);
    V_default_names(site_root);
    if (!V_PAGE) {
        V_response_not_found();
        ERRMSG("### Not found V_PAGE value...");
    }
}

int V_confine_path(const char *root, const char *value, char *out, int size) {
    char clean_root[CHECK_SIZE];
    int n = snprintf(clean_root, sizeof clean_root, "%s", root);
    if (n < 0 || n >= (int)sizeof clean_root) return -1;
    collapse_slashes(clean_root);

    // A root spelt with "//" or "/./" still holds a value that names it the
    // plain way, as a page path made whole from the working directory does.
    bool whole = under_root(root, value) || under_root(clean_root, value);
    n = whole ? snprintf(out, size, "%s", value) : snprintf(out, size, "%s/%s", root, value);
    if (n < 0 || n >= size) return -1;
    collapse_slashes(out);
    size_t root_len = strlen(clean_root);
    if (strncmp(out, clean_root, root_len)) return -1;
    return climbs_out(out + root_len) ? -1 : 0;
}

bool V_is_page_name(const char *path) {
    std::string_view name = path;
    size_t slash = name.rfind('/');
    if (slash != std::string_view::npos) name = name.substr(slash + 1);
    for (const char *page : ALWAYS_PAGES) {
        if (name == page) return true;
    }
    const char *setting = getenv("VORN_PAGE_SUFFIXES");
    std::string_view list = setting ? setting : DEFAULT_PAGE_SUFFIXES;
    static constexpr std::string_view BLANKS = " \t";
    while (!list.empty()) {
        size_t start = list.find_first_not_of(BLANKS);
        if (start == std::string_view::npos) break;
        list = list.substr(start);
        size_t end = std::min(list.find_first_of(BLANKS), list.size());
        if (ends_with(name, list.substr(0, end))) return true;
        list = list.substr(end);
    }
    return false;
}

namespace {

// V_check_name, with what stat said of the checked file in *seen when
// it passes.
bool check_name(const char *root, const char *name, bool pages_only, struct stat *seen) {
    V_USER *user = V_get_user(name);
    if (!user || !user->var.value) return false;
    const char *value = user->var.value;
    char path[CHECK_SIZE];
    // every refusal here means the request named no page that may run
    if (strlen(value) > CHECK_SIZE || V_confine_path(root, value, path, sizeof path)) {
        V_response_not_found();
        ERRMSG("Invalid %s value: %s \n", name, value);
        return false;
    }
    V_TRACE("regular_file: %s ==> ? \n", path);
    if (!is_regular(path, seen)) {
        V_response_not_found();
        ERRMSG("Invalid %s value: %s \n", name, value);
        return false;
    }
    V_TRACE("regular_file: %s ==> OK.\n", path);
    // The confined path, not the value: a decoded %00 has already cut the
    // value, and only the path is what gets opened.
    if (pages_only && !V_is_page_name(path)) {
        V_response_not_found();
        ERRMSG("Invalid %s value: %s \n", name, value);
        return false;
    }
    if (!strcmp(path, value)) return true;

    size_t len = strlen(path) + 1;
    char *copy = user->hp ? (char *)V_heap_alloc(user->hp, (int)len) : nullptr;
    if (!copy) {
        V_put_value(name, path, user->fixed, user->cookie);
        return true;
    }
    memcpy(copy, path, len);
    user->var.value = copy;
    return true;
}

}   // namespace

void V_check_name(const char *root, const char *name, bool pages_only) {
    struct stat seen;
    check_name(root, name, pages_only, &seen);
}

const struct stat *V_page_seen(const char *page) {
    return page && page_seen_path && !strcmp(page, page_seen_path) ? &page_seen : nullptr;
}

void V_default_names(const char *root) {
    char candidate[CHECK_SIZE + 16];
    if (!V_PAGE) {
        V_TRACE("def: V_PAGE");
        snprintf(candidate, sizeof candidate, "%s/v.page", root);
        if (!is_regular(candidate)) return;
        V_put_value("V_PAGE", candidate, 0, 0);
        const char *stored = V_get_value("V_PAGE");
        V_PAGE = keep(stored ? stored : candidate);
        V_TRACE("def: V_PAGE: %s", V_PAGE);
    }
    if (V_ERROR) return;
    const char *slash = strrchr(V_PAGE, '/');
    int dir_len = slash ? (int)(slash - V_PAGE) : 1;
    int n = snprintf(candidate, sizeof candidate, "%.*s/v.error", dir_len, slash ? V_PAGE : ".");
    if (n < 0 || n >= (int)sizeof candidate || !is_regular(candidate)) return;
    V_put_value("V_ERROR", candidate, 0, 0);
    V_ERROR = keep(candidate);
    V_TRACE("def: V_ERROR: %s", V_ERROR);
}
