// The FastCGI server. The interpreter keeps its one-process-per-request
// design (process-wide tables never released, commands that fork, a fault
// that ends the request): the parent does the start-up once (libraries
// loaded, v.env read, the sites' pages loaded) and keeps a fixed number
// of connection processes, each of which reads a request's records and
// forks the request process. That process gets the parameters as its environment, the body as
// its standard input and a pipe as its standard output, and runs V_main as
// a CGI run would; the connection process relays the pipe into STDOUT
// records, so everything written to descriptor 1 (by the page, a shell
// command or a forked child) arrives in the order it was written. The
// request's standard error is the server's: it goes to the parent's log.
#include "driver/fastcgi.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <netinet/in.h>
#include <new>
#include <poll.h>
#include <string>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/coverage.h"
#include "base/directories.h"
#include "base/owners.h"
#include "driver/diagnostics.h"
#include "driver/environment.h"
#include "driver/request.h"
#include "fcgi/records.h"
#include "fcgi/request_env.h"
#include "interp/page_file.h"
#include "interp/page_reader.h"
#include "values/buffers.h"

extern char **environ;

namespace {

constexpr int DEFAULT_TIMEOUT = 60;   // seconds a request may run
constexpr int MIN_CHILDREN = 8;       // default limit: 2 per core, at least this
constexpr int MAX_CHILDREN = 1024;
constexpr int BACKLOG = 128;
constexpr size_t RELAY_CHUNK = 65528;   // a multiple of 8: no padding
constexpr int PRELOAD_FILES = 2000;     // page files loaded by the parent
constexpr int PRELOAD_DEPTH = 8;
constexpr off_t PRELOAD_SIZE = 1 << 20;   // bytes of one preloaded page
constexpr int LOG_NAME = 200;             // bytes of a request name in a log line
constexpr int CONFIG_LINE = 1024;
constexpr const char *BOUND_MARK = "VORN_FASTCGI_BOUND";
constexpr const char *TUNED_MARK = "VORN_FASTCGI_TUNED";
constexpr const char *NO_RSEQ = "glibc.pthread.rseq=0";

struct Options {
    const char *address = nullptr;
    int children = 0;
    int timeout = DEFAULT_TIMEOUT;
};

Options options;
const char *program = "vorn";
sigset_t wait_mask;   // the mask ppoll waits with: the server's signals let in
volatile sig_atomic_t stop_wanted;
volatile sig_atomic_t reread_wanted;

void on_stop(int) {
    stop_wanted = 1;
}
void on_reread(int) {
    reread_wanted = 1;
}
void on_child(int) {}

void set_handler(int sig, void (*handler)(int)) {
    struct sigaction sa {};
    sa.sa_handler = handler;
    sigemptyset(&sa.sa_mask);
    sigaction(sig, &sa, nullptr);   // no SA_RESTART: a signal ends the wait
}

// "TEXT" for the log, with the bytes a line must not hold written as "?".
void log_line(const char *fmt, ...) __attribute__((format(printf, 1, 2)));
void log_line(const char *fmt, ...) {
    char message[512];
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(message, sizeof message, fmt, ap);
    va_end(ap);
    V_log_error(message);
}

long long now_ms() {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return (long long)ts.tv_sec * 1000 + ts.tv_nsec / 1000000;
}

// Waits for events on fds until deadline_ms (-1: no deadline) or a signal.
// Returns ppoll's count: 0 at the deadline, -1 on a signal.
int wait_for(struct pollfd *fds, int n, long long deadline_ms) {
    struct timespec ts, *limit = nullptr;
    if (deadline_ms >= 0) {
        long long left = deadline_ms - now_ms();
        if (left < 0) left = 0;
        ts.tv_sec = left / 1000;
        ts.tv_nsec = (left % 1000) * 1000000;
        limit = &ts;
    }
    return ppoll(fds, n, limit, &wait_mask);
}

bool write_all(int fd, const unsigned char *data, size_t n) {
    while (n) {
        ssize_t w = write(fd, data, n);
        if (w < 0 && errno == EINTR) continue;
        if (w <= 0) return false;
        data += w;
        n -= (size_t)w;
    }
    return true;
}

// ---- options and the listening socket

int parse_options(int argc, char **argv) {
    for (int i = 2; i < argc; i++) {
        const char *arg = argv[i];
        auto number = [&](int low, int high, int *out) {
            if (i + 1 >= argc) return -1;
            char *end;
            long v = strtol(argv[++i], &end, 10);
            if (*end || v < low || v > high) return -1;
            *out = (int)v;
            return 0;
        };
        if (!strcmp(arg, "--children")) {
            if (number(1, MAX_CHILDREN, &options.children)) return -1;
        } else if (!strcmp(arg, "--timeout")) {
            if (number(1, INT_MAX / 1000, &options.timeout)) return -1;
        } else if (arg[0] != '-' && !options.address) {
            options.address = arg;
        } else {
            return -1;
        }
    }
    if (!options.children) {
        long cores = sysconf(_SC_NPROCESSORS_ONLN);
        options.children =
            cores > MIN_CHILDREN / 2 ? (int)std::min(cores * 2, (long)MAX_CHILDREN) : MIN_CHILDREN;
    }
    return 0;
}

int listen_unix(const char *path) {
    struct sockaddr_un sa {};
    sa.sun_family = AF_UNIX;
    if (strlen(path) >= sizeof sa.sun_path) {
        fprintf(stderr, "vorn: socket path too long: %s\n", path);
        return -1;
    }
    snprintf(sa.sun_path, sizeof sa.sun_path, "%s", path);
    struct stat st;
    // a socket left by an earlier server goes; any other file stays
    if (lstat(path, &st) == 0) {
        if (!S_ISSOCK(st.st_mode)) {
            fprintf(stderr, "vorn: %s exists and is no socket\n", path);
            return -1;
        }
        unlink(path);
    }
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0 || bind(fd, (struct sockaddr *)&sa, sizeof sa) || listen(fd, BACKLOG)) {
        fprintf(stderr, "vorn: cannot listen on %s: %s\n", path, strerror(errno));
        if (fd >= 0) close(fd);
        return -1;
    }
    // the web server's own user connects; the directory guards the socket
    chmod(path, 0666);
    return fd;
}

int listen_inet(const char *address) {
    const char *colon = strrchr(address, ':');
    if (!colon || colon == address || !colon[1]) {
        fprintf(stderr, "vorn: address is neither HOST:PORT nor a socket path: %s\n", address);
        return -1;
    }
    std::string host(address, (size_t)(colon - address));
    if (host.size() > 2 && host.front() == '[' && host.back() == ']')
        host = host.substr(1, host.size() - 2);
    // numeric addresses only, parsed here: the name service functions do
    // not work in a static binary (and a port past 65535 would wrap)
    const char *port = colon + 1;
    size_t digits = strspn(port, "0123456789");
    bool port_ok = !port[digits] && digits <= 5 && atol(port) <= 65535;
    struct sockaddr_storage sa {};
    socklen_t sa_len = 0;
    auto *in4 = reinterpret_cast<struct sockaddr_in *>(&sa);
    auto *in6 = reinterpret_cast<struct sockaddr_in6 *>(&sa);
    if (port_ok && inet_pton(AF_INET, host.c_str(), &in4->sin_addr) == 1) {
        in4->sin_family = AF_INET;
        in4->sin_port = htons((uint16_t)atol(port));
        sa_len = sizeof *in4;
    } else if (port_ok && inet_pton(AF_INET6, host.c_str(), &in6->sin6_addr) == 1) {
        in6->sin6_family = AF_INET6;
        in6->sin6_port = htons((uint16_t)atol(port));
        sa_len = sizeof *in6;
    } else {
        fprintf(stderr, "vorn: not a numeric HOST:PORT: %s\n", address);
        return -1;
    }
    int fd = socket(sa.ss_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    int on = 1;
    if (fd >= 0) setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (fd < 0 || bind(fd, reinterpret_cast<struct sockaddr *>(&sa), sa_len) ||
        listen(fd, BACKLOG)) {
        fprintf(stderr, "vorn: cannot listen on %s: %s\n", address, strerror(errno));
        if (fd >= 0) close(fd);
        return -1;
    }
    return fd;
}

bool is_listening(int fd) {
    int on = 0;
    socklen_t len = sizeof on;
    return getsockopt(fd, SOL_SOCKET, SO_ACCEPTCONN, &on, &len) == 0 && on;
}

// ---- the warm parent: pages loaded before any request forks

// Symbolic links to directories are not followed, so a loop cannot hold the
// walk; files that cannot be read are passed over.
void preload_dir(const char *dir, int *budget) {
    namespace fs = std::filesystem;
    std::error_code ec;
    fs::recursive_directory_iterator it(dir, fs::directory_options::skip_permission_denied, ec);
    for (; !ec && it != fs::recursive_directory_iterator() && *budget > 0; it.increment(ec)) {
        if (it.depth() >= PRELOAD_DEPTH) it.disable_recursion_pending();
        const std::string path = it->path().string();
        struct stat st;
        if (lstat(path.c_str(), &st) || !S_ISREG(st.st_mode) || st.st_size > PRELOAD_SIZE ||
            !V_is_page_name(path.c_str()))
            continue;
        V_page_text(path.c_str());
        --*budget;
    }
}

// Loads the page files under every site root of v.config into the page
// list that each request process inherits; a request still checks each
// file's size and time and reads a changed one again.
void preload_pages() {
    char path[PATH_MAX];
    int n = snprintf(path, sizeof path, "%s/v.config", V_HOME);
    if (n < 0 || n >= (int)sizeof path) return;
    File fp(fopen(path, "r"));
    if (!fp) return;
    int budget = PRELOAD_FILES;
    char line[CONFIG_LINE];
    while (fgets(line, sizeof line, fp.get())) {
        char key[CONFIG_LINE] = "", root[CONFIG_LINE] = "";
        if (sscanf(line, "%1023s %1023s", key, root) == 2 && root[0] == '/')
            preload_dir(root, &budget);
    }
}

// The server entries each request inherits, picked from the environment
// once v.env is read.
char *server_env[FCGI_SERVER_ENV_MAX];
int server_env_count;

// The parent makes no request heap: the pages it loads are allocated one
// by one, so that they stay reachable from the page list in every request
// process (and a leak check there finds nothing it cannot account for).
void start_warm() {
    V_env_keep();
    V_env();
    server_env_count = fcgi_server_entries(environ, server_env, FCGI_SERVER_ENV_MAX);
    preload_pages();
}

void drop_pages() {
    while (V_FILE *f = v_BUFFERS.files) {
        v_BUFFERS.files = f->next;
        free(f->text);
        free(const_cast<char *>(f->name));
        free(f);
    }
}

void reread() {
    drop_pages();
    V_env_reread();
    server_env_count = fcgi_server_entries(environ, server_env, FCGI_SERVER_ENV_MAX);
    preload_pages();
    log_line("fastcgi: v.env read again and the page files loaded again");
}

// ---- one connection

// After each fork the connection process's pages are shared with the
// request process, and the first write to each page copies it (a page
// fault, a few microseconds). So what a request writes is kept on as few
// pages as may be: the request's fields with its parameters, and the
// request's environment right after those parameters. The connection's
// state, its input and the relay of the output are not handed to request
// processes at all (none of them reads them): those pages are never shared.
constexpr size_t PAGE = 4096;

struct Conn {
    int fd;
    size_t start, have;   // unread bytes are in[start, have)
    bool broken;
    unsigned char in[FCGI_RECORD_MAX + RELAY_CHUNK];
    unsigned char relay[RELAY_CHUNK];   // the request process's output
};

Conn *conn;

// Reads what the peer has sent into conn->in (blocking until deadline_ms).
// 1 when bytes came, 0 at end of stream, -1 on an error, -2 at the
// deadline, -3 when a signal came first.
int fill(long long deadline_ms) {
    if (conn->start) {
        memmove(conn->in, conn->in + conn->start, conn->have - conn->start);
        conn->have -= conn->start;
        conn->start = 0;
    }
    struct pollfd p = {conn->fd, POLLIN, 0};
    int r = wait_for(&p, 1, deadline_ms);
    if (r < 0) return errno == EINTR ? -3 : -1;
    if (r == 0) return -2;
    ssize_t got = read(conn->fd, conn->in + conn->have, sizeof conn->in - conn->have);
    if (got < 0) return errno == EINTR ? -3 : -1;
    conn->have += (size_t)got;
    return got > 0;
}

// The next whole record already read: 1, 0 when there is none yet, -1 when
// the stream is broken (logged).
int take(FcgiRecord *rec) {
    const char *error = nullptr;
    int r = fcgi_next_record(conn->in + conn->start, conn->have - conn->start, rec, &error);
    if (r < 0) {
        log_line("fastcgi: %s: connection closed", error);
        conn->broken = true;
        return -1;
    }
    if (r) conn->start += rec->used;
    return r;
}

// One record (n <= FCGI_CONTENT_MAX) in one system call as a rule: the
// header, the content where it is, and the padding.
bool send_record(int type, int id, const unsigned char *data, size_t n) {
    static const unsigned char zeros[8] = {};
    unsigned char header[FCGI_HEADER_SIZE];
    size_t pad = fcgi_put_header(header, type, id, n);
    struct iovec iov[3] = {{header, sizeof header},
                           {const_cast<unsigned char *>(data), n},
                           {const_cast<unsigned char *>(zeros), pad}};
    struct iovec *v = iov;
    int count = 3;
    while (count) {
        ssize_t w = writev(conn->fd, v, count);
        if (w < 0 && errno == EINTR) continue;
        if (w <= 0) {
            conn->broken = true;
            return false;
        }
        while (count && (size_t)w >= v->iov_len) {
            w -= (ssize_t)v->iov_len;
            v++;
            count--;
        }
        if (count) {
            v->iov_base = (unsigned char *)v->iov_base + w;
            v->iov_len -= (size_t)w;
        }
    }
    return true;
}

bool send_stream(int type, int id, const char *text) {
    size_t n = strlen(text);
    while (n) {
        size_t part = std::min(n, RELAY_CHUNK);
        if (!send_record(type, id, (const unsigned char *)text, part)) return false;
        text += part;
        n -= part;
    }
    return true;
}

bool send_end(int id, int app_status, int protocol_status) {
    unsigned char body[8];
    fcgi_end_body(body, app_status, protocol_status);
    return send_record(FCGI_END_REQUEST, id, body, sizeof body);
}

// The end of a response: the empty STDOUT record and END_REQUEST, in one
// write.
bool send_finish(int id, int app_status) {
    unsigned char end[3 * FCGI_HEADER_SIZE];
    fcgi_put_header(end, FCGI_STDOUT, id, 0);
    fcgi_put_header(end + FCGI_HEADER_SIZE, FCGI_END_REQUEST, id, FCGI_HEADER_SIZE);
    fcgi_end_body(end + 2 * FCGI_HEADER_SIZE, app_status, FCGI_REQUEST_COMPLETE);
    if (write_all(conn->fd, end, sizeof end)) return true;
    conn->broken = true;
    return false;
}

struct ValuesAnswer {
    unsigned char reply[FCGI_CONTENT_MAX];
    size_t used;
};

void answer_value(const unsigned char *name, size_t nl, const unsigned char *, size_t, void *ctx) {
    auto *a = (ValuesAnswer *)ctx;
    std::string key((const char *)name, nl);
    char value[16];
    if (key == "FCGI_MAX_CONNS" || key == "FCGI_MAX_REQS")
        snprintf(value, sizeof value, "%d", options.children);
    else if (key == "FCGI_MPXS_CONNS")
        snprintf(value, sizeof value, "0");
    else
        return;   // unknown names are left out of the answer
    fcgi_put_pair(a->reply, sizeof a->reply, &a->used, key.c_str(), value);
}

// Records of request id 0 concern the connection: GET_VALUES is answered,
// any other type gets UNKNOWN_TYPE.
void answer_management(const FcgiRecord &rec) {
    if (rec.h.type == FCGI_GET_VALUES) {
        static ValuesAnswer answer;
        answer.used = 0;
        const char *error = nullptr;
        fcgi_pairs(rec.content, rec.h.content_length, answer_value, &answer, &error);
        send_record(FCGI_GET_VALUES_RESULT, 0, answer.reply, answer.used);
        return;
    }
    unsigned char body[8] = {(unsigned char)rec.h.type};
    send_record(FCGI_UNKNOWN_TYPE, 0, body, sizeof body);
}

struct alignas(PAGE) Request {
    int id;
    bool keep;
    size_t params_used;
    bool params_done, params_over;
    int body;   // the request body, a memory file
    bool body_failed;
    long long deadline;
    // the parameters (FCGI_PARAMS_MAX bytes), then, from the first pointer
    // boundary after them, the environment
    alignas(char *) unsigned char params[FCGI_PARAMS_MAX + FCGI_ENV_SPACE];
};

Request req;

enum { READ_ENDED = 0, READ_READY = 1, READ_BROKEN = -1 };

void store_body(const unsigned char *data, size_t n) {
    if (req.body_failed) return;
    if (req.body < 0) req.body = memfd_create("vorn-body", MFD_CLOEXEC);
    if (req.body < 0 || !write_all(req.body, data, n)) req.body_failed = true;
}

// Reads the records of one request up to the end of its body. Returns
// READ_READY with req filled, READ_ENDED when the connection ended between
// requests, READ_BROKEN when it broke (or ran out of time) inside one.
int read_request() {
    if (req.body >= 0) close(req.body);
    req.id = 0;
    req.params_used = 0;
    req.params_done = req.params_over = req.body_failed = false;
    req.body = -1;
    bool begun = false;
    for (;;) {
        FcgiRecord rec;
        int r = take(&rec);
        if (r < 0) return READ_BROKEN;
        if (r == 0) {
            if (!begun && stop_wanted) return READ_ENDED;
            int got = fill(begun ? req.deadline : -1);
            if (got == -3) continue;
            if (got == 0 && !begun && conn->start == conn->have) return READ_ENDED;
            if (got == -2) log_line("fastcgi: request not received within %d s", options.timeout);
            if (got <= 0) return READ_BROKEN;
            continue;
        }
        const FcgiHeader &h = rec.h;
        if (h.id == 0) {
            answer_management(rec);
            continue;
        }
        if (h.type == FCGI_BEGIN_REQUEST) {
            if (begun) {
                if (h.id != req.id) send_end(h.id, 0, FCGI_CANT_MPX_CONN);
                continue;
            }
            if (h.content_length < 8) {
                log_line("fastcgi: BEGIN_REQUEST record too short: connection closed");
                return READ_BROKEN;
            }
            int role = (rec.content[0] << 8) | rec.content[1];
            bool keep = rec.content[2] & FCGI_KEEP_CONN;
            if (role != FCGI_RESPONDER) {
                send_end(h.id, 0, FCGI_UNKNOWN_ROLE);
                if (!keep) return READ_ENDED;
                continue;
            }
            begun = true;
            req.id = h.id;
            req.keep = keep;
            req.deadline = now_ms() + (long long)options.timeout * 1000;
            continue;
        }
        if (!begun || h.id != req.id) continue;   // a record of no request here
        switch (h.type) {
        case FCGI_PARAMS:
            if (req.params_done) break;
            if (h.content_length == 0)
                req.params_done = true;
            else if (req.params_over || h.content_length > FCGI_PARAMS_MAX - req.params_used)
                req.params_over = true;
            else {
                memcpy(req.params + req.params_used, rec.content, h.content_length);
                req.params_used += h.content_length;
            }
            break;
        case FCGI_STDIN:
            if (h.content_length == 0) return READ_READY;
            store_body(rec.content, h.content_length);
            break;
        case FCGI_ABORT_REQUEST:
            send_end(req.id, 0, FCGI_REQUEST_COMPLETE);
            if (!req.keep) return READ_ENDED;
            begun = false;
            req.params_used = 0;
            req.params_done = req.params_over = false;
            break;
        default: break;   // DATA belongs to another role
        }
    }
}

// ---- the request process

int no_body = -1;   // the standard input of a request without a body: /dev/null

[[noreturn]] void run_request(char **env, int body, int out) {
    sigset_t none;
    sigemptyset(&none);
    for (int sig : {SIGTERM, SIGHUP, SIGCHLD, SIGPIPE, SIGINT}) signal(sig, SIG_DFL);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    setpgid(0, 0);   // the time limit ends the request and all it started
    int in = body >= 0 ? body : no_body >= 0 ? no_body : open("/dev/null", O_RDONLY);
    if (in < 0 || dup2(in, 0) < 0 || lseek(0, 0, SEEK_SET) < 0 || dup2(out, 1) < 0) _exit(127);
    close_range(3, ~0U, 0);
    environ = env;
    // V_main finds them again as a CGI run does
    free(V_HOME);
    free(TMP_DIR);
    V_HOME = TMP_DIR = nullptr;
    char *argv[] = {const_cast<char *>(program), nullptr};
    V_main(1, argv);
    _exit(0);
}

// The request as the log names it: its URI, else its script and query.
const char *request_name(char *const *env, char *out, size_t size) {
    const char *uri = fcgi_env_value(env, "REQUEST_URI");
    const char *script = fcgi_env_value(env, "SCRIPT_NAME");
    const char *query = fcgi_env_value(env, "QUERY_STRING");
    if (!script) script = "";
    if (uri && *uri)
        snprintf(out, size, "%s", uri);
    else if (query && *query)
        snprintf(out, size, "%s?%s", script, query);
    else
        snprintf(out, size, "%s", script);
    return *out ? out : "(no URI)";
}

void refuse(const char *status, const char *message, char *const *env) {
    char name[LOG_NAME + 1];
    log_line("fastcgi: %s: %s", request_name(env, name, sizeof name), message);
    char page[512];
    snprintf(page, sizeof page, "Status: %s\r\nContent-Type: text/html\r\n\r\n<h3>%s</h3>\n",
             status, message);
    if (send_stream(FCGI_STDOUT, req.id, page)) send_finish(req.id, 1);
}

// Reads records that arrive while the request runs: an ABORT_REQUEST ends
// it, another request on this connection is refused. False when the
// request is to end (aborted, or the connection is gone).
bool watch_connection() {
    int got = fill(0);
    if (got == 0 || got == -1) {
        conn->broken = true;
        return false;
    }
    FcgiRecord rec;
    int r;
    while ((r = take(&rec)) > 0) {
        if (rec.h.id == 0)
            answer_management(rec);
        else if (rec.h.type == FCGI_BEGIN_REQUEST && rec.h.id != req.id)
            send_end(rec.h.id, 0, FCGI_CANT_MPX_CONN);
        else if (rec.h.type == FCGI_ABORT_REQUEST && rec.h.id == req.id)
            return false;
    }
    return r == 0;
}

void describe_end(int status, char *text, size_t size) {
    if (WIFSIGNALED(status))
        snprintf(text, size, "ended by signal %d (%s)", WTERMSIG(status),
                 strsignal(WTERMSIG(status)));
    else
        snprintf(text, size, "exit status %d", WEXITSTATUS(status));
}

// Forks the request process and relays its output until it has ended and
// its standard output is closed (by it and by whatever it started), the
// time limit passes, or the server aborts the request.
void serve_request() {
    char **env;
    const char *error = nullptr;
    size_t env_at = (req.params_used + alignof(char *) - 1) & ~(alignof(char *) - 1);
    bool params_ok =
        fcgi_request_environment(req.params, req.params_used, server_env, server_env_count,
                                 req.params + env_at, &env, &error) == 0;
    if (req.params_over) {
        char message[128];
        snprintf(message, sizeof message, "FastCGI request parameters over %zu bytes: refused",
                 FCGI_PARAMS_MAX);
        return refuse("400 Bad Request", message, env);
    }
    if (!params_ok) return refuse("400 Bad Request", error, env);
    if (req.body_failed) return refuse("500 Internal Server Error", "body not stored", env);

    int out[2];
    if (pipe2(out, O_CLOEXEC)) return refuse("500 Internal Server Error", "no pipe", env);
    // no fflush(stderr) before this fork: standard error is unbuffered
    // and each log line is flushed as written, so nothing can be pending,
    // and the flush would write (and so copy) two pages of the C library
    pid_t pid = fork();
    if (pid == 0) run_request(env, req.body, out[1]);
    close(out[1]);
    if (req.body >= 0) close(req.body);   // an upload's memory goes with the request
    req.body = -1;
    if (pid < 0) {
        close(out[0]);
        return refuse("500 Internal Server Error", "cannot fork", env);
    }
    int pidfd = (int)syscall(SYS_pidfd_open, pid, 0);

    bool eof = false, exited = false, sent = false, timed_out = false, aborted = false;
    int status = 0;
    while (!(eof && exited)) {
        struct pollfd p[3] = {{eof ? -1 : out[0], POLLIN, 0},
                              {exited ? -1 : pidfd, POLLIN, 0},
                              {conn->fd, POLLIN, 0}};
        // without a process descriptor the exit is looked for every 50 ms
        long long deadline = req.deadline;
        if (pidfd < 0 && !exited) deadline = std::min(deadline, now_ms() + 50);
        int r = wait_for(p, 3, deadline);
        if (r == 0 && now_ms() >= req.deadline) {
            timed_out = true;
            break;
        }
        if (!exited && (pidfd < 0 || (p[1].revents & POLLIN))) {
            if (waitpid(pid, &status, WNOHANG) == pid) exited = true;
        }
        if (r <= 0) continue;
        if (p[0].revents) {
            ssize_t n = read(out[0], conn->relay, sizeof conn->relay);
            if (n > 0) {
                sent = true;
                if (!send_record(FCGI_STDOUT, req.id, conn->relay, (size_t)n)) break;
            } else if (n == 0 || errno != EINTR) {
                eof = true;
            }
        }
        if ((p[2].revents & (POLLIN | POLLHUP | POLLERR)) && !watch_connection()) {
            aborted = !conn->broken;
            break;
        }
    }
    close(out[0]);
    if (!exited) {
        kill(-pid, SIGKILL);
        kill(pid, SIGKILL);
        waitpid(pid, &status, 0);
    }
    if (pidfd >= 0) close(pidfd);
    if (conn->broken) return;
    char name[LOG_NAME + 1];
    if (timed_out) {
        log_line("fastcgi: %s: time limit of %d s reached: request ended",
                 request_name(env, name, sizeof name), options.timeout);
        if (!sent) send_stream(FCGI_STDOUT, req.id, "Status: 504 Gateway Timeout\r\n\r\n");
    } else if (!aborted && exited && WIFSIGNALED(status)) {
        char end[128];
        describe_end(status, end, sizeof end);
        log_line("fastcgi: %s: %s", request_name(env, name, sizeof name), end);
        if (!sent) send_stream(FCGI_STDOUT, req.id, "Status: 500 Internal Server Error\r\n\r\n");
    }
    int app_status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    send_finish(req.id, app_status);
}

void serve_connection(int fd) {
    conn->fd = fd;
    conn->start = conn->have = 0;
    conn->broken = false;
    for (;;) {
        int r = read_request();
        if (r != READ_READY) break;
        serve_request();
        if (conn->broken || !req.keep || stop_wanted) break;
    }
    close(fd);
}

// A connection process: takes connections from the shared listening socket
// one at a time until SIGTERM, which lets the request in flight finish.
[[noreturn]] void worker(int listener) {
    signal(SIGHUP, SIG_IGN);
    signal(SIGCHLD, SIG_DFL);
    signal(SIGPIPE, SIG_IGN);
    set_handler(SIGTERM, on_stop);
    set_handler(SIGINT, on_stop);
    // Where the kernel gives process descriptors, the end of a request
    // process shows on its descriptor: SIGCHLD then stays blocked, so that
    // an exit neither wakes this process again nor interrupts its waits.
    // Without them the signal is what cuts the 50 ms wait short.
    int probe = (int)syscall(SYS_pidfd_open, getpid(), 0);
    if (probe >= 0) {
        close(probe);
        sigaddset(&wait_mask, SIGCHLD);
    }
    no_body = open("/dev/null", O_RDONLY | O_CLOEXEC);
    void *area =
        mmap(nullptr, sizeof(Conn), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (area == MAP_FAILED || madvise(area, sizeof(Conn), MADV_DONTFORK)) {
        log_line("fastcgi: no memory for a connection: %s", strerror(errno));
        _exit(1);
    }
    conn = new (area) Conn;   // zero, as a fresh mapping is
    req.body = -1;
    while (!stop_wanted) {
        struct pollfd p = {listener, POLLIN, 0};
        if (wait_for(&p, 1, -1) <= 0) continue;
        int fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd >= 0) serve_connection(fd);   // else another process took it
    }
    V_coverage_dump();
    _exit(0);
}

// ---- the parent: it keeps options.children connection processes

pid_t kids[MAX_CHILDREN];
int kid_count;

void forget(pid_t pid) {
    for (int i = 0; i < kid_count; i++) {
        if (kids[i] == pid) {
            kids[i] = kids[--kid_count];
            return;
        }
    }
}

void reap() {
    int status;
    pid_t pid;
    while ((pid = waitpid(-1, &status, WNOHANG)) > 0) forget(pid);
}

void spawn_workers(int listener) {
    while (kid_count < options.children) {
        fflush(stderr);
        pid_t pid = fork();
        if (pid == 0) worker(listener);
        if (pid < 0) {
            log_line("fastcgi: cannot fork: %s", strerror(errno));
            return;
        }
        kids[kid_count++] = pid;
    }
}

// The connections wait in the listening socket's queue while every
// connection process is busy: that is the limit on concurrent requests.
int serve(int listener, const char *unix_path) {
    while (!stop_wanted) {
        reap();
        if (reread_wanted) {
            reread_wanted = 0;
            reread();
            // the processes forked before the reading end after their
            // connection; their successors are forked from the new state
            for (int i = 0; i < kid_count; i++) kill(kids[i], SIGTERM);
        }
        spawn_workers(listener);
        wait_for(nullptr, 0, -1);   // until a signal: a child ended, HUP, TERM
    }
    // Stop: no new connections; each connection ends after its request.
    close(listener);
    if (unix_path && *unix_path) unlink(unix_path);
    for (int i = 0; i < kid_count; i++) kill(kids[i], SIGTERM);
    while (kid_count > 0) {
        int status;
        pid_t pid = waitpid(-1, &status, 0);
        if (pid < 0 && errno != EINTR) break;
        if (pid > 0) forget(pid);
    }
    drop_pages();
    log_line("fastcgi: stopped");
    return 0;
}

}   // namespace

bool V_fastcgi_wanted(int argc, char **argv) {
    // Under a web server the arguments may be the visitor's query string
    // (`?--fastcgi+/tmp/s`): never a server then.
    if (getenv("REQUEST_METHOD") || getenv("GATEWAY_INTERFACE")) return false;
    if (argc >= 2 && !strcmp(argv[1], "--fastcgi")) return true;
    return argc == 1 && is_listening(0);
}

int V_fastcgi_serve(int argc, char **argv) {
    // The dynamic symbols are bound once, in the parent, before any fork:
    // bound lazily, each request process would look up again every library
    // function it calls. The marker keeps the caller's own LD_BIND_NOW.
    // The same start turns off the C library's restartable sequences
    // (used only to tell the CPU a thread runs on): with them the kernel
    // writes the thread block whenever it resumes a connection process,
    // and after each fork that page is shared, so the write copies it. A
    // caller's own GLIBC_TUNABLES are left as they are.
    if (!getenv(BOUND_MARK)) {
        setenv(BOUND_MARK, getenv("LD_BIND_NOW") ? "kept" : "set", 1);
        setenv("LD_BIND_NOW", "1", 1);
        if (!getenv("GLIBC_TUNABLES")) {
            setenv("GLIBC_TUNABLES", NO_RSEQ, 1);
            setenv(TUNED_MARK, "1", 1);
        }
        V_coverage_dump();
        execv("/proc/self/exe", argv);   // on failure the server runs as it is
    }
    if (!strcmp(getenv(BOUND_MARK), "set")) unsetenv("LD_BIND_NOW");
    if (getenv(TUNED_MARK)) unsetenv("GLIBC_TUNABLES");
    unsetenv(BOUND_MARK);
    unsetenv(TUNED_MARK);
    if (argc > 0 && argv[0]) program = argv[0];
    if (argc >= 2 && parse_options(argc, argv)) {
        fprintf(stderr, "Usage: vorn --fastcgi [ADDRESS] [--children N] [--timeout SECONDS]\n"
                        "  ADDRESS: a Unix socket path or HOST:PORT; without it, the listening\n"
                        "  socket on descriptor 0\n");
        return 2;
    }
    if (argc < 2) parse_options(argc, argv);
    int listener = 0;
    const char *unix_path = nullptr;
    if (options.address) {
        bool is_path = strchr(options.address, '/') != nullptr;
        listener = is_path ? listen_unix(options.address) : listen_inet(options.address);
        if (is_path) unix_path = options.address;
        if (listener < 0) return 1;
    } else if (!is_listening(0)) {
        fprintf(stderr, "vorn: --fastcgi needs an ADDRESS or a listening socket on descriptor 0\n");
        return 2;
    }
    // several servers may share a handed-over socket: accept never blocks
    fcntl(listener, F_SETFL, fcntl(listener, F_GETFL) | O_NONBLOCK);
    fcntl(listener, F_SETFD, FD_CLOEXEC);

    sigset_t blocked;
    sigemptyset(&blocked);
    for (int sig : {SIGTERM, SIGINT, SIGHUP, SIGCHLD}) sigaddset(&blocked, sig);
    sigprocmask(SIG_BLOCK, &blocked, &wait_mask);
    for (int sig : {SIGTERM, SIGINT, SIGHUP, SIGCHLD}) sigdelset(&wait_mask, sig);
    set_handler(SIGTERM, on_stop);
    set_handler(SIGINT, on_stop);
    set_handler(SIGHUP, on_reread);
    set_handler(SIGCHLD, on_child);
    signal(SIGPIPE, SIG_IGN);

    start_warm();
    log_line("fastcgi: serving on %s, %d children, time limit %d s",
             options.address ? options.address : "descriptor 0", options.children, options.timeout);
    return serve(listener, unix_path);
}
