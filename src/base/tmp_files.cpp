// Files of this process in the temporary directory. Anyone may have put
// something under one of our names before we come: creation is exclusive,
// no open follows a link, and a file found under the name is judged on the
// open descriptor, not on the name, before a byte of it is cut or written.
#include "base/tmp_files.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/owners.h"

namespace {

constexpr mode_t PRIVATE_MODE = 0600;
// A name that vanishes between the exclusive create and the second open is
// created again; a few rounds, so that a name kept flickering cannot hold us.
constexpr int OPEN_ROUNDS = 3;

// Opens the existing name with flags and keeps it only when it is a regular
// file of our own with one link. Returns the descriptor, or -1 with errno:
// ENOENT when the name has gone, ELOOP for a symbolic link, EEXIST for
// anything else we will not write through.
int take_over(const char *path, int flags) {
    // a planted fifo must not stall the request in open
    Fd fd(open(path, flags | O_NONBLOCK));
    if (!fd) {
        if (errno != ENOENT && errno != ELOOP) errno = EEXIST;
        return -1;
    }
    struct stat st;
    // one link: a hard link to another file of ours (a database, a page)
    // would be cut through this name
    if (fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode) || st.st_uid != geteuid() ||
        st.st_nlink != 1) {
        errno = EEXIST;
        return -1;
    }
    if (fcntl(fd.get(), F_SETFL, flags & O_APPEND) != 0) return -1;
    return fd.release();
}

// The descriptor of path: new, or a stale file of ours taken over.
int open_private(const char *path, int flags) {
    for (int round = 0; round < OPEN_ROUNDS; round++) {
        int fd = open(path, flags | O_CREAT | O_EXCL, PRIVATE_MODE);
        if (fd >= 0 || errno != EEXIST) return fd;
        fd = take_over(path, flags);
        if (fd >= 0 || errno != ENOENT) return fd;
    }
    return -1;
}

}   // namespace

FILE *V_open_tmp(const char *path, TmpOpen how) {
    bool append = how == TmpOpen::Append;
    int flags = (append ? O_WRONLY | O_APPEND : O_RDWR) | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC;
    Fd fd(open_private(path, flags));
    if (!fd) return nullptr;
    // a file taken over is emptied only now that it is known to be ours
    FILE *f =
        !append && ftruncate(fd.get(), 0) != 0 ? nullptr : fdopen(fd.get(), append ? "a" : "w+");
    if (f) fd.release();   // the stream closes it now
    return f;
}

bool V_tmp_refused(int err) {
    return err == ELOOP || err == EEXIST;
}

const char *V_tmp_reason(int err) {
    if (err == ELOOP) return "a symbolic link stands at that name";
    if (err == EEXIST) return "the name holds a file that is not ours alone";
    return strerror(err);
}

void V_tmp_report(const char *what, const char *path, int err) {
    fprintf(stderr, "Vorn: %s %s refused: %s\n", what, path, V_tmp_reason(err));
}
