// Placeholder bodies until this module is written.
#include "values/dates.h"

int SETdate(struct tm *tmr, const char *format, char *buff, int mode) { return -1; }
int V_dt2str(long dt, const char *format, char *buff) { return -1; }
int V_str2dt(const char *text, const char *format, long *dt) { return -1; }
void V_date_info(uint16_t *year, uint16_t *month, uint16_t *day, uint16_t *hours, uint16_t *minutes, uint16_t *seconds) {}
