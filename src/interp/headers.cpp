// The header commands. Their words were free before, and pages use them as
// variables ("<@status>= 0" after a stream command): a line whose tag is
// followed by an assignment operator is left to the assignments.
#include "interp/headers.h"

#include <cstring>
#include <string_view>

#include "driver/diagnostics.h"
#include "values/command_entry.h"
#include "values/response.h"
#include "values/substitution.h"

namespace {

constexpr const char *HEADER_TAGS[] = {"<@header>", "<@status>", "<@redirect>"};
constexpr int REDIRECT_DEFAULT = 303;   // the browser follows with a GET
constexpr int CODE_MAX = 999;

std::string_view trimmed(std::string_view text) {
    size_t first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t") + 1 - first);
}

// What follows a tag when the line is an assignment (">=", ">+=", ">++" ...).
bool assigns(const char *after_tag) {
    return *after_tag && strchr("=+-*/%$;", *after_tag);
}

// The command entry, except that a line whose tag is followed by an
// assignment operator is not ours. -1 not ours, 0 done, 1 go on.
int header_entry(char *buff, std::string_view tag, int compile, int ignore, char *text) {
    if (has_tag(buff, tag) && assigns(buff + tag.size())) return -1;
    return command_entry(buff, tag, compile, ignore, text);
}

// The code of a redirect, or -1 when the text is no number.
int redirect_code(std::string_view text) {
    if (text.empty()) return REDIRECT_DEFAULT;
    int code = 0;
    for (char c : text) {
        if (c < '0' || c > '9' || code > CODE_MAX) return -1;
        code = code * 10 + (c - '0');
    }
    return code;
}

}   // namespace

int V_add_header(char *buff, int compile, int ignore) {
    char text[V_LINE_MAX];
    int go = header_entry(buff, "<@header>", compile, ignore, text);
    if (go <= 0) return go;
    std::string_view line = trimmed(text);
    size_t colon = line.find(':');
    const char *why = "no \"NAME: VALUE\"";
    if (colon != std::string_view::npos)
        why = V_response_header(line.substr(0, colon), trimmed(line.substr(colon + 1)));
    if (why) ERRMSG("<@header> %s: %.*s", why, (int)line.size(), line.data());
    return 0;
}

int V_status(char *buff, int compile, int ignore) {
    char text[V_LINE_MAX];
    int go = header_entry(buff, "<@status>", compile, ignore, text);
    if (go <= 0) return go;
    std::string_view code = trimmed(text);
    const char *why = V_response_header("Status", code);
    if (why) ERRMSG("<@status> %s: %.*s", why, (int)code.size(), code.data());
    return 0;
}

int V_redirect(char *buff, int compile, int ignore) {
    char text[V_LINE_MAX];
    int go = header_entry(buff, "<@redirect>", compile, ignore, text);
    if (go <= 0) return go;
    std::string_view words = trimmed(text);
    size_t blank = words.find_first_of(" \t");
    std::string_view url = words.substr(0, blank);
    std::string_view rest = blank == std::string_view::npos ? "" : trimmed(words.substr(blank));
    const char *why = V_response_redirect(url, redirect_code(rest));
    if (why) ERRMSG("<@redirect> %s: %.*s", why, (int)words.size(), words.data());
    return 0;
}

bool V_holds_header_command(const char *text) {
    for (const char *tag : HEADER_TAGS) {
        size_t len = strlen(tag);
        for (const char *p = strstr(text, tag); p; p = strstr(p + len, tag)) {
            if (p[len] == ' ' || p[len] == '\t') return true;
        }
    }
    return false;
}
