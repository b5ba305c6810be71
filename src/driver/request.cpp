// The request driver: start-up, decoding of the request or the command
// line, the response header, the page run, exit.
#include "driver/request.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <strings.h>
#include <unistd.h>

#include "base/directories.h"
#include "db/session.h"
#include "driver/diagnostics.h"
#include "driver/environment.h"
#include "form/form_data.h"
#include "form/urlencoded.h"
#include "interp/cookies.h"
#include "interp/headers.h"
#include "interp/page_file.h"
#include "interp/page_reader.h"
#include "interp/value_names.h"
#include "values/buffers.h"
#include "values/output.h"
#include "values/response.h"
#include "values/variables.h"

namespace {

enum { METHOD_OTHER = -1, METHOD_POST = 1, METHOD_GET = 2 };

// A HEAD request that a web server passed on: the server says who it is in
// GATEWAY_INTERFACE or SERVER_SOFTWARE. A bare REQUEST_METHOD=HEAD (a
// script, a test) still runs as from a shell, as it always did.
bool head_from_server() {
    const char *method = getenv("REQUEST_METHOD");
    return method && !strcmp(method, "HEAD") &&
           (getenv("GATEWAY_INTERFACE") || getenv("SERVER_SOFTWARE"));
}

// The type of the Content-Type line: VORN_CHARSET names the site's
// character set, and a UTF-8 site writes its bytes as they are, with no
// Latin-1 entities. A value that is no token is ignored, with a log line.
void site_charset(char *type, int size) {
    snprintf(type, size, "text/html");
    const char *charset = getenv("VORN_CHARSET");
    if (!charset || !*charset) return;
    if (!V_is_token(charset) || (int)strlen(charset) > size / 2) {
        V_log_error("VORN_CHARSET is not a character set name: ignored");
        return;
    }
    snprintf(type, size, "text/html; charset=%s", charset);
    if (!strcasecmp(charset, "utf-8") || !strcasecmp(charset, "utf8")) HTML = 0;
}

// Whether the header block stays open while the page runs: the site says
// so for every page with VORN_PAGE_HEADERS=on, or the page itself holds a
// header command. Otherwise it ends before the page's first line, as it
// always did.
bool page_sends_headers(const char *page) {
    const char *setting = getenv("VORN_PAGE_HEADERS");
    if (setting && !strcmp(setting, "on")) return true;
    const char *text = V_page_text(page, V_page_seen(page));
    return text && V_holds_header_command(text);
}

// Only a url-encoded body goes to the url-encoded decoder; a content type
// with parameters (a charset) is compared exactly and so goes multipart.
void decode_post() {
    const char *type = getenv("CONTENT_TYPE");
    // the body may be slow to come: nothing held waits for it
    V_flush_output();
    int rc;
    if (type && !strcmp(type, "application/x-www-form-urlencoded"))
        rc = POST_parser(ent);
    else
        rc = E_POST_parser(ent);
    if (rc) ERRMSG("%s", POST_errmsg ? POST_errmsg : "");
}

void decode_get() {
    if (GET_parser(ent, "V_PAGE")) {
        ERRMSG("%s", POST_errmsg ? POST_errmsg : "");
        return;
    }
    GET_path(ent, "V_PAGE");
}

// The command line takes the place of the form: "-Var Value" pairs, "-V"
// for the banner, and the first existing file as the page. Under a web
// server (a HEAD request, say) the arguments may be the visitor's query
// string and are held to the form's rules.
void shell_arguments(int argc, char **argv) {
    bool from_request = V_serving_request();
    int page_found = 0;
    for (int i = 1; i < argc; i++) {
        const char *arg = argv[i];
        if (arg[0] == '-' && i < argc - 1) {
            if (!strcmp(arg, "-V")) {
                V_header();
                continue;
            }
            if (!strcmp(arg, "-V_PAGE") && V_checkpage(argv[i + 1]) == 0) {
                page_found = 1;
                i++;
                continue;
            }
            if (!from_request || V_request_may_set(arg + 1)) V_add_value(arg + 1, argv[i + 1]);
            i++;
            continue;
        }
        if (!page_found && V_checkpage(arg) == 0) page_found = 1;
    }
}

// The closing table tags end up to three tables the page had opened, so
// that the message shows whatever came before. The message often carries
// request text (a page name, the Host header): it is written as text.
void write_error_box(const char *message) {
    fputs("</table></table></table><hr><h3><pre>\n ", stdout);
    V_write_escaped(stdout, message);
    fputs(" \n</pre></h3><hr>", stdout);
}

// The error routine's page: the site's error page when there is one, else
// the message in a box (under a web server) or after the usage text.
void show_error_page(const char *message) {
    // While the header block is open the status can still say what
    // happened: 404 or 500.
    V_response_error();
    V_header();
    if (!V_ERROR) {
        if (!getenv("REQUEST_METHOD"))
            printf("Usage:\n\tVorn script [-Var Value [-Var2 Value2 [..]]]\n\nERROR: %s\n",
                   message);
        else
            write_error_box(message);
        return;
    }

    // The error page always goes to the response, whatever the page had
    // redirected its output to.
    V_stdout = nullptr;
    V_printfile(V_ERROR, 1);
}

// What ends with the request: the database session commits, and the
// request's temporary file goes.
void end_request() {
    V_finish();
    // a deferred block whose page wrote nothing (a redirect) ends here
    if (V_response_pending()) V_header();
    char path[1024];
    int n = snprintf(path, sizeof path, "%s/V.%d", TMP_DIR ? TMP_DIR : "/tmp", (int)getpid());
    if (n > 0 && n < (int)sizeof path) unlink(path);
}

}   // namespace

void V_start() {
    v_BUFFERS.hp = V_heap_new();
    v_BUFFERS.freelist = nullptr;
    v_BUFFERS.vtree = {nullptr, V_avlcmp};
    v_BUFFERS.ftree = {nullptr, V_avlcmp};
    v_BUFFERS.ctree = {nullptr, V_avlcmp};
    V_env();
}

void V_header() {
    V_response_end();
}

int V_checkpage(const char *page) {
    char work[300];
    char cwd[200];
    if (!getcwd(cwd, sizeof cwd)) snprintf(cwd, sizeof cwd, ".");

    if (access(page, F_OK) == 0) {
        if (page[0] == '/')
            snprintf(work, sizeof work, "%s", page);
        else
            snprintf(work, sizeof work, "%s/%s", cwd, page);
        V_add_value("V_PAGE", work);
        return 0;
    }
    // For a relative name this repeats the test above; kept as it is.
    snprintf(work, sizeof work, "%s/%s", cwd, page);
    if (access(work, F_OK) == 0) {
        V_add_value("V_PAGE", work);
        return 0;
    }
    return -1;
}

int V_action() {
    if (!V_PAGE) return -1;
    return V_printfile(V_PAGE, 1);
}

namespace {

int page_position(const char **page, const char **file) {
    *page = V_PAGE;
    return V_reading_line(file);
}

void send_held_output() {
    V_flush_output();
}

}   // namespace

void V_install_hooks() {
    V_set_diag_hooks(
        {show_error_page, end_request, V_out, V_heap_figures, page_position, send_held_output});
    V_set_value_rows(v_INTERP_VALUES);
}

int V_main(int argc, char **argv) {
    V_page_forget();
    V_output_start();
    Trace = 0;
    V_start();
    V_TRACE("==> Vorn: started...");

    char type[128];
    site_charset(type, sizeof type);
    int method = GetMethod();
    bool head = method == METHOD_OTHER && head_from_server();
    if (head) method = METHOD_GET;   // decoded as a GET; the body goes nowhere
    if (method != METHOD_OTHER) {
        // Opened before the form is decoded: a decoder failure ends in the
        // error routine, whose V_header ends the block, and the block must
        // carry its Content-Type then. It stays open for the cookie lines.
        V_response_open(type, head);
    }
    if (method == METHOD_POST)
        decode_post();
    else if (method == METHOD_GET)
        decode_get();
    else
        V_TRACE("Unknown http method");

    if (method == METHOD_OTHER) shell_arguments(argc, argv);

    V_TRACE("\n==>  V_values(); \n");
    V_values(argc > 0 && argv[0] ? argv[0] : "Vorn");
    V_set_cookies();
    if (method != METHOD_OTHER) {
        if (page_sends_headers(V_PAGE))
            V_response_defer();
        else
            V_header();
    }

    V_TRACE("\n==>  V_action(); \n");
    V_action();
    V_TRACE("\n==>  EXIT; \n");
    V_exit(0);
}
