// The mode commands: <@option>, <@compile> and <@html>, and the settings
// they switch.
#include "interp/options.h"

#include <cctype>
#include <cstring>

#include "db/sql_commands.h"
#include "driver/diagnostics.h"
#include "values/arguments.h"
#include "values/command_entry.h"
#include "values/output.h"
#include "values/substitution.h"

namespace {

constexpr int TRAP_NAME_MAX = 62;

void lower(char *s) {
    for (; *s; s++) *s = (char)tolower((unsigned char)*s);
}

// "OFF" first, then "ON": a text holding both ends switched on.
void switch_flag(const char *text, int *flag) {
    if (strstr(text, "OFF")) *flag = 0;
    if (strstr(text, "ON")) *flag = 1;
}

// Sets *flag from "off"/"on"; false for any other value.
bool on_off(const char *value, int *flag) {
    if (strcmp(value, "off") == 0) {
        *flag = 0;
        return true;
    }
    if (strcmp(value, "on") == 0) {
        *flag = 1;
        return true;
    }
    return false;
}

void set_trap_function(const char *name) {
    V_sqlFUNC = 0;
    if (!name[0]) return;
    V_copy_cut(TRAPfunc, name, TRAP_NAME_MAX + 1);
    V_sqlFUNC = 1;
}

bool sql_trap(const char *value, const char *rest) {
    if (on_off(value, &V_sqlTRAP)) return true;
    if (strcmp(value, "off_transactions") == 0) {
        V_sqlTRANS = 0;
        return true;
    }
    if (strcmp(value, "on_transactions") == 0) {
        V_sqlTRANS = 1;
        return true;
    }
    if (strcmp(value, "function") != 0) return false;
    char func[V_LINE_MAX];
    func[0] = 0;
    V_arg_string(rest, func);
    set_trap_function(func);
    return true;
}

bool sql_names(const char *value) {
    if (strcmp(value, "lowercase") == 0) {
        V_sqlcase = 0;
        return true;
    }
    if (strcmp(value, "uppercase") == 0) {
        V_sqlcase = 1;
        return true;
    }
    return false;
}

bool apply_option(const char *name, const char *value, const char *rest, int *compile) {
    if (strcmp(name, "sql_names") == 0) return sql_names(value);
    if (strcmp(name, "sql_transactions") == 0) return on_off(value, &V_sqlTRANS);
    if (strcmp(name, "sql_trap") == 0) return sql_trap(value, rest);
    if (strcmp(name, "latin_html") == 0) return on_off(value, &HTML);
    if (strcmp(name, "ignore_empty_lines") == 0) return on_off(value, &IgnoreEmpty);
    if (strcmp(name, "translate") == 0) return on_off(value, compile);
    if (strcmp(name, "debug") == 0) return on_off(value, &Debug);
    return false;
}

// Length of the argument taken from text, 0 when there was none.
int next_arg(const char *text, char *out) {
    int n = V_arg_string(text, out);
    return n > 0 ? n : 0;
}

// The mode commands trace their line in the "buff=" form.
constexpr Entry MODE_ENTRY = {.form = ENTRY_BUFF};

}   // namespace

int V_option(char *buff, int *compile, int ignore) {
    char buf[V_LINE_MAX];
    int go = command_entry(buff, "<@option>", *compile, ignore, buf, MODE_ENTRY);
    if (go <= 0) return go;
    char name[V_LINE_MAX];
    char value[V_LINE_MAX];
    name[0] = value[0] = 0;
    const char *p = buf;
    p += next_arg(p, name);
    p += next_arg(p, value);
    lower(name);
    lower(value);
    if (!apply_option(name, value, p, compile)) ERRMSG("Unknown option: %s", buf);
    return 0;
}

int V_compile(char *buff, int *compile, int ignore) {
    char buf[V_LINE_MAX];
    int go = command_entry(buff, "<@compile>", *compile, ignore, buf, MODE_ENTRY);
    if (go <= 0) return go;
    switch_flag(buf, compile);
    return 0;
}

int V_html(char *buff, int compile, int ignore) {
    char buf[V_LINE_MAX];
    int go = command_entry(buff, "<@html>", compile, ignore, buf, MODE_ENTRY);
    if (go <= 0) return go;
    switch_flag(buf, &HTML);
    return 0;
}
