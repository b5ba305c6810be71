// Page checking, `vorn --check PAGE...`: reads pages and the files they
// include without running them, and reports the faults a reader can see
// before a visitor does (unknown command words, blocks that do not close,
// stray block ends and branches, includes of missing files).
#pragma once

// Exit statuses of a check.
constexpr int V_CHECK_CLEAN = 0;        // nothing found
constexpr int V_CHECK_FOUND = 1;        // at least one finding
constexpr int V_CHECK_UNREADABLE = 2;   // a named page could not be read, or none was named

// True when the first argument is --check and no web server started the
// program: a request must never reach the file system through arguments
// that a server derives from the query string.
bool V_check_wanted(int argc, char **argv);

// Checks the pages named by argv[0] .. argv[argc - 1] and every file they
// include, once each. Writes one line per finding, "FILE:LINE: message",
// to standard output and a line per unreadable page to standard error.
// Returns the exit status: V_CHECK_UNREADABLE wins over V_CHECK_FOUND.
int V_check_pages(int argc, char **argv);
