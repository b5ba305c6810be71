/* The floor for bench/compare.sh: the least a CGI program can do, a header
   block and one line, built with gcc -O2 -static so that no loader runs. */
#include <stdio.h>

int main(void)
{
    fputs("Content-Type: text/html\r\n\r\n<p>hello</p>\n", stdout);
    return 0;
}
