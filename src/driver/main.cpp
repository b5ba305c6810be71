// The program's entry: one process serves one request, from a web server
// as a CGI program or from a shell with a page and variable assignments;
// from a shell, `--check PAGE...` checks pages without running them;
// `--fastcgi` serves requests as a FastCGI server, a process for each.
#include "driver/fastcgi.h"
#include "driver/request.h"
#include "interp/page_check.h"

int main(int argc, char **argv) {
    V_install_hooks();
    if (V_check_wanted(argc, argv)) return V_check_pages(argc - 2, argv + 2);
    if (V_fastcgi_wanted(argc, argv)) return V_fastcgi_serve(argc, argv);
    return V_main(argc, argv);
}
