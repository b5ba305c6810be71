// Owners of a FILE * or a descriptor that lives inside one function: it is
// closed on every way out of the function. Closing keeps errno, so a failure
// path may set errno for its caller before the owner lets go. Tables that
// hold streams for the life of the process keep plain handles.
#pragma once
#include <cerrno>
#include <cstdio>
#include <memory>
#include <unistd.h>

struct CloseFile {
    void operator()(FILE *f) const {
        int err = errno;
        fclose(f);
        errno = err;
    }
};
using File = std::unique_ptr<FILE, CloseFile>;

// A descriptor, or -1 for none. release() hands it on (to fdopen's stream,
// to the caller) without closing it.
class Fd {
public:
    explicit Fd(int fd = -1) : fd_(fd) {}
    Fd(const Fd &) = delete;
    Fd &operator=(const Fd &) = delete;
    ~Fd() {
        if (fd_ < 0) return;
        int err = errno;
        close(fd_);
        errno = err;
    }
    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    int release() {
        int fd = fd_;
        fd_ = -1;
        return fd;
    }

private:
    int fd_;
};
