// Files of this process in the temporary directory, which is often shared
// with other users: none is opened through a link planted under its name,
// and a name that is taken already is used only when the file there is ours.
#pragma once
#include <cstdio>

enum class TmpOpen {
    Truncate,   // read and write from an empty file
    Append      // write after what the file holds
};

// Opens path (mode 0600 when created) without following a symbolic link. A
// name that exists already is taken over only when it holds a regular file
// of our own with no other link (left by an earlier process with our id).
// Returns the stream, or null with errno set; see V_tmp_refused.
FILE *V_open_tmp(const char *path, TmpOpen how);

// True when errno from V_open_tmp means the name was held by something we
// must not write through (a link, another user's file, a device).
bool V_tmp_refused(int err);

// The reason for errno err from V_open_tmp, in words for a message.
const char *V_tmp_reason(int err);

// Writes one line to standard error (the web server's log) saying that the
// file `what` at path was refused and why.
void V_tmp_report(const char *what, const char *path, int err);
