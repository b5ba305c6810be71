// The response's header block under a web server. What goes into it (the
// Content-Type, the status, the cookie lines and the lines pages add) is
// held here and written whole when the block ends, so that a status set
// late, such as the error routine's, still reaches it. The end is written
// once: before the page runs or, deferred, before its first output.
#pragma once
#include <string_view>

constexpr const char *V_BANNER = "Vorn v.6.7";

// Opens the block (the request came from a web server) with the type of its
// Content-Type line. With no_body (a HEAD request) everything written after
// the block goes to /dev/null.
void V_response_open(const char *content_type, bool no_body);
// True while the block is open: opened and its end not yet written.
bool V_response_pending();
// Lets the block stay open until the first page output (V_response_settle).
void V_response_defer();
// Ends a deferred block; called before anything may write to standard
// output: page output through V_out, a child process, <@fork>.
void V_response_settle();
// Writes the end: the block's lines (while it is open), the empty line and
// the banner comment, then the warning of a cut form field. Once per
// process; from a shell, where no block was opened, only the banner part.
void V_response_end();

// Adds a line that its writer made whole, line end included (Set-Cookie):
// into the block while it is open, else straight to standard output, where
// a run from a shell writes it.
void V_response_line(const char *line);

// The header commands' part. Each returns null when done, else why the line
// was refused; nothing is added then. A name must be an HTTP token and a
// value or reason may hold no control byte but the tab, so that no text can
// end or split a header line. Without an open block they check and do
// nothing (from a shell), or are refused once it has ended.
const char *V_response_header(std::string_view name, std::string_view value);
// Status CODE, 200 to 599; an empty reason takes the usual phrase.
const char *V_response_status(int code, std::string_view reason);
// Location URL with a status of 300 to 399, both or neither.
const char *V_response_redirect(std::string_view url, int code);

// A fatal error while the block is open gives the status 500, or 404 after
// V_response_not_found (the request named no page that may run).
void V_response_not_found();
void V_response_error();

bool V_is_token(std::string_view text);
