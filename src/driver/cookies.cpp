// Cookies: <@cookie> copies one request cookie into a variable, and the
// start-up writes the Set-Cookie lines of the two cookie lists.
#include "driver/cookies.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "driver/diagnostics.h"
#include "form/url_codec.h"
#include "values/arguments.h"
#include "values/substitution.h"
#include "values/variables.h"

constexpr int COOKIE_NAME_MAX = 200;

// The value of cookie `name` in HTTP_COOKIE, URL-decoded, into value (size
// V_LINE_MAX). A plain substring search: the first "name=" anywhere wins.
static void find_cookie(const char *name, char *value)
{
    value[0] = '\0';
    const char *jar = getenv("HTTP_COOKIE");
    if (!jar)
        return;
    char search[COOKIE_NAME_MAX + 2];
    snprintf(search, sizeof search, "%s=", name);
    const char *at = strstr(jar, search);
    if (!at)
        return;
    at += strlen(search);
    size_t n = strcspn(at, ";");
    if (n > V_LINE_MAX - 1)
        n = V_LINE_MAX - 1;
    memcpy(value, at, n);
    value[n] = '\0';
    unescape_url(value);
}

int V_cookie(char *buff, int compile, int ignore)
{
    static const char tag[] = "<@cookie>";
    if (strncmp(buff, tag, sizeof tag - 1) != 0)
        return -1;
    V_TRACE("V_cookie: {%s} compile: %d  ignore: %d \n", buff, compile, ignore);
    if (ignore)
        return 0;
    char text[V_LINE_MAX];
    V_transline(buff + sizeof tag - 1, text, compile);
    V_DEBUG("%s // %s \n", buff, text);
    char word[V_LINE_MAX];
    V_arg_string(text, word);
    char name[COOKIE_NAME_MAX];
    size_t n = strnlen(word, sizeof name - 1);
    memcpy(name, word, n);
    name[n] = '\0';
    char value[V_LINE_MAX];
    find_cookie(name, value);
    return V_put_value(name, value, 0, 0);
}

static void delete_cookie(const char *name)
{
    printf("Set-Cookie: %s=NULL; path=/; expires=Wednesday, 21-Aug-1996 01:21:36 GMT \n", name);
    V_DEBUG("Del-Cookie: %s\n", name);
}

// One Set-Cookie line per name in the list variable; persistent cookies
// carry the far expiry date, session cookies none.
static void emit_list(const char *list_name, bool persistent)
{
    const char *raw = V_get_value(list_name);
    if (!raw)
        return;
    // a form value may be far longer than a line; the names are read from a
    // copy cut at the line size so that no name outgrows its buffer
    char text[V_LINE_MAX];
    V_copy_cut(text, raw, sizeof text);
    const char *list = text;
    char name[V_LINE_MAX];
    for (int pos; (pos = V_arg_string(list, name)) != 0; list += pos) {
        const char *value = V_get_value(name);
        if (!value || !*value) {
            delete_cookie(name);
            continue;
        }
        // the name and its encoded value share one line buffer
        char line[V_LINE_MAX];
        size_t room = sizeof line - strlen(name) - 1;
        // only the head of a value can fit the line, so only the head is encoded
        char head[V_LINE_MAX];
        V_copy_cut(head, value, sizeof head);
        char encoded[3 * V_LINE_MAX + 1];
        escape_url(head, encoded);
        if (strlen(encoded) > room)
            encoded[room] = '\0';
        if (persistent) {
            printf("Set-Cookie: %s=%s; path=/; expires=31-Dec-2037 23:55:00 GMT \n", name, encoded);
            V_DEBUG("Set-Cookie: %s=%s\n", name, encoded);
        } else {
            printf("Set-Cookie: %s=%s; path=/; \n", name, encoded);
        }
    }
}

void V_set_cookies()
{
    emit_list("V_ServerCOOKIES", true);
    emit_list("V_SessionCOOKIES", false);
}
