// Placeholder bodies until this module is written.
#include "interp/conditions.h"

int V_if(V_FILE *fp, char *buff, int compile, int ignore) { return -1; }
int V_user_cmp(const char *left, const char *op, const char *right) { return -1; }
int V_user_icmp(int left, const char *op, int right) { return -1; }
int V_user_fcmp(double left, const char *op, double right) { return -1; }
int V_CMPpatt(const char *patt, const char *val) { return -1; }
int V_CMPexec(const char *patt, const char *val) { return -1; }
int V_check_int(const char *text) { return -1; }
int V_check_float(const char *text) { return -1; }
int V_check_date(const char *text) { return -1; }
int V_get_int(const char *src, char *dst, int n) { return -1; }
char *V_today(V_heap *hp) { return {}; }
