// Cookies: <@cookie> copies one request cookie, matched by its exact name,
// into a variable; the start-up writes the Set-Cookie lines of the two cookie
// lists. The lists come from the request, so only token names pass, and the
// site's VORN_COOKIE_NAMES and VORN_COOKIE_ATTRIBUTES bound what a link sets.
#include "interp/cookies.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "driver/diagnostics.h"
#include "form/url_codec.h"
#include "values/arguments.h"
#include "values/command_entry.h"
#include "values/response.h"
#include "values/substitution.h"
#include "values/variables.h"

namespace {

constexpr int COOKIE_NAME_MAX = 200;         // name of <@cookie>, with its terminator
constexpr int TRACE_NAME_MAX = 64;           // head of a refused name shown in the trace
constexpr int COOKIE_ATTRIBUTES_MAX = 512;   // the site's attribute text
constexpr char BLANKS[] = " \t";

// The value of cookie name in HTTP_COOKIE, URL-decoded, into value (size
// bytes). Names match exactly, so that a cookie of another name or a value
// holding "name=" cannot shadow the one asked for: a pair's name runs from
// the start or a ';' (blanks after it skipped) to its '='. The first pair of
// that name wins; its value, up to the next ';', is cut to the buffer before
// it is decoded, so an escape cut in two stays as it stands.
void find_cookie(std::string_view name, char *value, size_t size) {
    value[0] = '\0';
    const char *jar = getenv("HTTP_COOKIE");
    if (!jar) return;
    std::string_view rest(jar);
    while (!rest.empty()) {
        size_t start = rest.find_first_not_of(BLANKS);
        if (start == std::string_view::npos) return;
        rest.remove_prefix(start);
        size_t end = std::min(rest.find(';'), rest.size());
        std::string_view pair = rest.substr(0, end);
        size_t eq = pair.find('=');
        if (eq != std::string_view::npos && pair.substr(0, eq) == name) {
            std::string_view found = pair.substr(eq + 1);
            size_t n = std::min(found.size(), size - 1);
            snprintf(value, size, "%.*s", (int)n, found.data());
            unescape_url(value);
            return;
        }
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
}

// The fixed texts after "path=/; " that end the three kinds of line.
constexpr char PERSISTENT_END[] = "expires=31-Dec-2037 23:55:00 GMT ";
constexpr char DELETED_END[] = "expires=Wednesday, 21-Aug-1996 01:21:36 GMT ";
constexpr char SESSION_END[] = "";

// Traces a refused cookie name. The name is shown URL-encoded and cut, so
// the trace never carries the bytes that got it refused.
void trace_refused(const char *why, const char *name) {
    char head[TRACE_NAME_MAX];
    V_copy_cut(head, name, sizeof head);
    char shown[3 * TRACE_NAME_MAX];
    escape_url(head, shown);
    V_TRACE("V_set_cookies: %s: [%s]\n", why, shown);
}

// Cuts the URL-encoded text to at most room bytes, stepping back over an
// escape the cut would split; hex digits are never '%', so a '%' in the last
// two places starts the escape.
void cut_encoded(char *encoded, size_t room) {
    size_t n = strlen(encoded);
    if (n <= room) return;
    if (room >= 1 && encoded[room - 1] == '%')
        room -= 1;
    else if (room >= 2 && encoded[room - 2] == '%')
        room -= 2;
    encoded[room] = '\0';
}

// The site's cookie settings, read once from the environment that v.env
// has filled.
struct CookiePolicy {
    const char *names;                        // VORN_COOKIE_NAMES; null allows every name
    char attributes[COOKIE_ATTRIBUTES_MAX];   // VORN_COOKIE_ATTRIBUTES trimmed; "" for none
    bool refused;                             // unusable attributes: no cookie line at all
};

// Reads the settings into policy. The attribute text loses blanks and ';'
// at both ends; a text with CR or LF, or too long for its buffer, refuses
// every cookie line rather than sending cookies without the attributes the
// site asked for.
void read_policy(CookiePolicy &policy) {
    policy.names = getenv("VORN_COOKIE_NAMES");
    policy.attributes[0] = '\0';
    policy.refused = false;
    const char *raw = getenv("VORN_COOKIE_ATTRIBUTES");
    if (!raw) return;
    if (strpbrk(raw, "\r\n")) {
        V_TRACE("V_set_cookies: VORN_COOKIE_ATTRIBUTES holds a line end, no cookies\n");
        policy.refused = true;
        return;
    }
    static const char trim[] = " \t;";
    std::string_view text(raw);
    size_t first = text.find_first_not_of(trim);
    if (first == std::string_view::npos) return;
    text = text.substr(first, text.find_last_not_of(trim) + 1 - first);
    int n = snprintf(policy.attributes, sizeof policy.attributes, "%.*s", (int)text.size(),
                     text.data());
    if (n < 0 || n >= (int)sizeof policy.attributes) {
        V_TRACE("V_set_cookies: VORN_COOKIE_ATTRIBUTES too long, no cookies\n");
        policy.refused = true;
    }
}

// True when the site lets a request set cookie name: always without
// VORN_COOKIE_NAMES, else when name is one of its blank-separated words.
bool allowed(const CookiePolicy &policy, std::string_view name) {
    if (!policy.names) return true;
    std::string_view list(policy.names);
    while (!list.empty()) {
        size_t start = list.find_first_not_of(BLANKS);
        if (start == std::string_view::npos) break;
        list.remove_prefix(start);
        size_t len = std::min(list.find_first_of(BLANKS), list.size());
        if (list.substr(0, len) == name) return true;
        list.remove_prefix(len);
    }
    return false;
}

// Writes one Set-Cookie line "NAME=VALUE; path=/; [ATTRIBUTES; ]END\n": the
// site's attributes go after the path, before the fixed expiry text. The
// line is built whole first and refused when it does not fit or holds a CR
// or LF, so no cut or split header line ever reaches the output.
void write_line(const CookiePolicy &policy, const char *name, const char *value, const char *end) {
    // the name and its encoded value share V_LINE_MAX; the rest is the
    // attributes and fixed text
    char line[2 * V_LINE_MAX + COOKIE_ATTRIBUTES_MAX];
    const char *attributes = policy.attributes;
    int n = snprintf(line, sizeof line, "Set-Cookie: %s=%s; path=/; %s%s%s", name, value,
                     attributes, *attributes ? "; " : "", end);
    if (n < 0 || n >= (int)sizeof line - 1 || strpbrk(line, "\r\n")) {
        trace_refused("line refused", name);
        return;
    }
    strcat(line, "\n");   // the test above left room for it
    V_response_line(line);
}

void delete_cookie(const CookiePolicy &policy, const char *name) {
    write_line(policy, name, "NULL", DELETED_END);
    V_DEBUG("Del-Cookie: %s\n", name);
}

// One Set-Cookie line per name in the list variable; persistent cookies
// carry the far expiry date, session cookies none. The names come from the
// request: one that is not a token, not allowed by the site, or a fixed
// variable is dropped.
// The lines of one list's names. Its line buffers make a frame of some
// 50 KB, which only a request with the list pays for: a stack page touched
// for the first time costs the process a page fault.
[[gnu::noinline]] void emit_names(const CookiePolicy &policy, const char *raw, bool persistent) {
    // a form value may be far longer than a line; the names are read from a
    // copy cut at the line size so that no name outgrows its buffer
    char text[V_LINE_MAX];
    V_copy_cut(text, raw, sizeof text);
    const char *list = text;
    char name[V_LINE_MAX];
    for (int pos; (pos = V_arg_string(list, name)) != 0; list += pos) {
        // only a token can neither end nor split the header line
        if (!V_is_token(name)) {
            trace_refused("not a token", name);
            continue;
        }
        if (!allowed(policy, name)) {
            trace_refused("not in VORN_COOKIE_NAMES", name);
            continue;
        }
        // the fixed variables hold the site's own settings (its root, home
        // and base): a link must not have them sent out as cookies
        const V_USER *user = V_get_user(name);
        if (user && user->fixed == 1) {
            trace_refused("a fixed variable", name);
            continue;
        }
        const char *value = V_get_value(name);
        if (!value || !*value) {
            delete_cookie(policy, name);
            continue;
        }
        // the name and its encoded value share one line buffer
        size_t room = V_LINE_MAX - strlen(name) - 1;
        // only the head of a value can fit the line, so only the head is encoded
        char head[V_LINE_MAX];
        V_copy_cut(head, value, sizeof head);
        char encoded[3 * V_LINE_MAX + 1];
        escape_url(head, encoded);
        cut_encoded(encoded, room);
        write_line(policy, name, encoded, persistent ? PERSISTENT_END : SESSION_END);
        if (persistent) V_DEBUG("Set-Cookie: %s=%s\n", name, encoded);
    }
}

void emit_list(const CookiePolicy &policy, const char *list_name, bool persistent) {
    const char *raw = V_get_value(list_name);
    if (raw) emit_names(policy, raw, persistent);
}

}   // namespace

int V_cookie(char *buff, int compile, int ignore) {
    char text[V_LINE_MAX];
    int go = command_entry(buff, "<@cookie>", compile, ignore, text);
    if (go <= 0) return go;
    char word[V_LINE_MAX];
    V_arg_string(text, word);
    char name[COOKIE_NAME_MAX];
    V_copy_cut(name, word, sizeof name);
    char value[V_LINE_MAX];
    find_cookie(name, value, sizeof value);
    return V_put_value(name, value, 0, 0);
}

void V_set_cookies() {
    CookiePolicy policy;
    read_policy(policy);
    if (policy.refused) return;
    emit_list(policy, "V_ServerCOOKIES", true);
    emit_list(policy, "V_SessionCOOKIES", false);
}
