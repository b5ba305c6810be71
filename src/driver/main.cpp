// The program's entry: one process serves one request, from a web server
// as a CGI program or from a shell with a page and variable assignments.
#include "driver/request.h"

int main(int argc, char **argv)
{
    return V_main(argc, argv);
}
