// The FastCGI server: a warm parent that forks a fresh process for every
// request, so that a request runs exactly as a CGI run of the program would.
#pragma once

// True for `vorn --fastcgi ...`, and for a start with no arguments on a
// listening socket (descriptor 0), as web servers start FastCGI programs;
// never for a CGI request (REQUEST_METHOD or GATEWAY_INTERFACE set).
bool V_fastcgi_wanted(int argc, char **argv);

// Serves requests until SIGTERM; returns the exit status.
// Usage: vorn --fastcgi [ADDRESS] [--children N] [--timeout SECONDS]
int V_fastcgi_serve(int argc, char **argv);
