/* The floor for bench/fastcgi.sh: the least a FastCGI server can do that
   answers every request in a fresh process, as Vorn's does. N processes
   take connections from one Unix socket; for each request one of them reads
   its records up to the end of the body, forks, and the child writes a
   fixed small page and the end records and exits. Nothing is parsed or
   checked beyond the record framing: it measures fork, exit and the
   server's round trip, not a page.
   Usage: fork_floor SOCKET [N]  (N defaults to 8) */
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

static const char page[] =
    "Content-Type: text/html\r\n\r\n"
    "<html><head><title>Bench</title></head>\n<body>\n<h1>Hello, Ada</h1>\n"
    "<p>You asked for item 42.</p>\n<ul>\n<li>name: Ada</li>\n<li>item: 42</li>\n</ul>\n"
    "<p>Bench ends here.</p>\n</body></html>\n";

static int read_full(int fd, unsigned char *buf, size_t n)
{
    size_t got = 0;
    while (got < n) {
        ssize_t r = read(fd, buf + got, n - got);
        if (r <= 0)
            return -1;
        got += (size_t)r;
    }
    return 0;
}

static void header(unsigned char *out, int type, int id, size_t len, size_t pad)
{
    out[0] = 1;
    out[1] = (unsigned char)type;
    out[2] = (unsigned char)(id >> 8);
    out[3] = (unsigned char)id;
    out[4] = (unsigned char)(len >> 8);
    out[5] = (unsigned char)len;
    out[6] = (unsigned char)pad;
    out[7] = 0;
}

/* The answer: one STDOUT record with the page, an empty one, END_REQUEST. */
static void answer(int fd, int id)
{
    unsigned char out[8 + sizeof page + 8 + 8 + 16];
    size_t len = sizeof page - 1, pad = (8 - len % 8) % 8, at = 0;
    header(out, 6, id, len, pad);
    memcpy(out + 8, page, len);
    memset(out + 8 + len, 0, pad);
    at = 8 + len + pad;
    header(out + at, 6, id, 0, 0);
    header(out + at + 8, 3, id, 8, 0);
    memset(out + at + 16, 0, 8);
    at += 24;
    if (write(fd, out, at) != (ssize_t)at)
        _exit(1);
}

static void serve(int conn)
{
    unsigned char h[8], body[65535 + 255];
    int id = 1;
    for (;;) {
        if (read_full(conn, h, 8))
            return;
        size_t len = ((size_t)h[4] << 8) | h[5];
        id = (h[2] << 8) | h[3];
        if (read_full(conn, body, len + h[6]))
            return;
        if (h[1] == 5 && len == 0) /* the end of STDIN: the request is whole */
            break;
    }
    pid_t pid = fork();
    if (pid == 0) {
        answer(conn, id);
        _exit(0);
    }
    if (pid > 0)
        waitpid(pid, NULL, 0);
}

int main(int argc, char **argv)
{
    if (argc < 2) {
        fprintf(stderr, "usage: fork_floor SOCKET [N]\n");
        return 2;
    }
    int n = argc > 2 ? atoi(argv[2]) : 8;
    struct sockaddr_un sa = {.sun_family = AF_UNIX};
    if (strlen(argv[1]) >= sizeof sa.sun_path)
        return 2;
    strcpy(sa.sun_path, argv[1]);
    unlink(argv[1]);
    int listener = socket(AF_UNIX, SOCK_STREAM, 0);
    if (listener < 0 || bind(listener, (struct sockaddr *)&sa, sizeof sa) ||
        listen(listener, 128) || chmod(argv[1], 0666)) {
        perror("fork_floor");
        return 1;
    }
    for (int i = 0; i < n; i++) {
        if (fork() == 0) {
            for (;;) {
                int conn = accept(listener, NULL, NULL);
                if (conn < 0)
                    continue;
                serve(conn);
                close(conn);
            }
        }
    }
    signal(SIGTERM, SIG_DFL);
    while (wait(NULL) > 0)
        ;
    return 0;
}
