// The response's header block: held in memory from the start of a web
// request until its end, then written whole. Holding it is what lets a
// fatal error before any output turn the status into 500, and lets a page
// that defers the end add lines after it has started to run.
#include "values/response.h"

#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <strings.h>
#include <unistd.h>

#include "base/hot_data.h"
#include "form/url_codec.h"

namespace {

constexpr int STATUS_MIN = 200;   // a CGI program answers; 1xx is the server's
constexpr int STATUS_MAX = 599;
constexpr int STATUS_DIGITS = 3;
constexpr int ERROR_STATUS = 500;
constexpr int NOT_FOUND_STATUS = 404;
constexpr int REDIRECT_MIN = 300;
constexpr int REDIRECT_MAX = 399;

V_HOT bool opened;      // a web request: the block exists
V_HOT bool ended;       // its end has been written
V_HOT bool deferred;    // the end waits for the first output
V_HOT bool no_body;     // a HEAD request
V_HOT bool not_found;   // the next fatal error means "no such page"

V_HOT std::string content_type;
V_HOT int status;   // 0: none given, the server's 200
V_HOT std::string reason;
V_HOT std::string lines;      // Set-Cookie and page lines in order, with their ends
V_HOT std::string location;   // one Location line at most: a later one replaces it

struct Phrase {
    int code;
    const char *text;
};

constexpr Phrase PHRASES[] = {
    {200, "OK"},
    {201, "Created"},
    {202, "Accepted"},
    {204, "No Content"},
    {301, "Moved Permanently"},
    {302, "Found"},
    {303, "See Other"},
    {304, "Not Modified"},
    {307, "Temporary Redirect"},
    {308, "Permanent Redirect"},
    {400, "Bad Request"},
    {401, "Unauthorized"},
    {403, "Forbidden"},
    {404, "Not Found"},
    {405, "Method Not Allowed"},
    {409, "Conflict"},
    {410, "Gone"},
    {429, "Too Many Requests"},
    {500, "Internal Server Error"},
    {501, "Not Implemented"},
    {503, "Service Unavailable"},
};

const char *usual_phrase(int code) {
    for (const Phrase &p : PHRASES)
        if (p.code == code) return p.text;
    return "";
}

// Bytes that would end, split or garble a header line: every control byte
// but the tab.
bool has_control(std::string_view text) {
    for (char c : text) {
        unsigned char b = (unsigned char)c;
        if ((b < 0x20 && b != '\t') || b == 0x7f) return true;
    }
    return false;
}

bool same_name(std::string_view a, std::string_view b) {
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

std::string_view trimmed(std::string_view text) {
    size_t first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t") + 1 - first);
}

// "Status: 303 See Other" given as a header line: the code, then the reason.
const char *status_line(std::string_view value) {
    if (value.size() < STATUS_DIGITS) return "not a status code";
    int code = 0;
    for (int i = 0; i < STATUS_DIGITS; i++) {
        if (value[i] < '0' || value[i] > '9') return "not a status code";
        code = code * 10 + (value[i] - '0');
    }
    std::string_view rest = value.substr(STATUS_DIGITS);
    if (!rest.empty() && rest[0] != ' ' && rest[0] != '\t') return "not a status code";
    return V_response_status(code, trimmed(rest));
}

// Everything written after the block of a HEAD request goes nowhere, also
// what a child process writes to the descriptor it inherits.
void discard_body() {
    fflush(stdout);
    int fd = open("/dev/null", O_WRONLY);
    if (fd < 0) return;   // the server drops a HEAD response's body in any case
    dup2(fd, STDOUT_FILENO);
    close(fd);
}

void write_block() {
    printf("Content-Type: %s\r\n", content_type.c_str());
    if (status) printf("Status: %d %s\r\n", status, reason.c_str());
    fputs(lines.c_str(), stdout);
    if (!location.empty()) printf("Location: %s\r\n", location.c_str());
}

}   // namespace

bool V_is_token(std::string_view text) {
    static const char extra[] = "!#$%&'*+-.^_`|~";
    if (text.empty()) return false;
    for (char c : text) {
        unsigned char b = (unsigned char)c;
        bool alnum = (b >= 'A' && b <= 'Z') || (b >= 'a' && b <= 'z') || (b >= '0' && b <= '9');
        if (!alnum && (!c || !strchr(extra, c))) return false;
    }
    return true;
}

void V_response_open(const char *type, bool head) {
    opened = true;
    no_body = head;
    content_type = type;
}

bool V_response_pending() {
    return opened && !ended;
}

void V_response_defer() {
    deferred = V_response_pending();
}

void V_response_settle() {
    if (deferred && !ended) V_response_end();
}

void V_response_end() {
    if (ended) return;
    ended = true;
    if (opened) write_block();
    if (no_body) {
        // the empty line that ends the block; the banner would be body
        fputs("\r\n", stdout);
        discard_body();
        return;
    }
    printf("\r\n\r\n<!-- %s page interpreter -->\n\n", V_BANNER);
    // A field cut while the body was decoded is reported only here, in the
    // page: earlier text would have broken the header block. The block is
    // held with the page output and sent with it.
    fmakeword_warning(stdout);
}

void V_response_line(const char *line) {
    if (V_response_pending())
        lines += line;
    else
        fputs(line, stdout);
}

const char *V_response_header(std::string_view name, std::string_view value) {
    if (!V_is_token(name)) return "not a header name";
    if (has_control(value)) return "a control character in the value";
    if (opened && ended) return "the header block has been sent";
    if (same_name(name, "Status")) return status_line(value);
    if (!opened) return nullptr;
    if (same_name(name, "Content-Type")) {
        content_type = value;
        return nullptr;
    }
    if (same_name(name, "Location")) {
        location = value;
        return nullptr;
    }
    lines.append(name).append(": ").append(value).append("\r\n");
    return nullptr;
}

const char *V_response_status(int code, std::string_view text) {
    if (code < STATUS_MIN || code > STATUS_MAX) return "not a status code";
    if (has_control(text)) return "a control character in the reason";
    if (opened && ended) return "the header block has been sent";
    if (!opened) return nullptr;
    status = code;
    reason = text.empty() ? usual_phrase(code) : text;
    return nullptr;
}

const char *V_response_redirect(std::string_view url, int code) {
    if (url.empty()) return "no URL";
    if (has_control(url)) return "a control character in the URL";
    if (code < REDIRECT_MIN || code > REDIRECT_MAX) return "not a redirect status";
    const char *why = V_response_status(code, "");
    if (!why && opened) location = url;
    return why;
}

void V_response_not_found() {
    not_found = true;
}

void V_response_error() {
    if (!V_response_pending()) return;
    status = not_found ? NOT_FOUND_STATUS : ERROR_STATUS;
    reason = usual_phrase(status);
}
