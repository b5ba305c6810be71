// Cookies: <@cookie> reads one request cookie into a variable; the
// Set-Cookie lines come from the V_ServerCOOKIES and V_SessionCOOKIES lists.
#pragma once

int V_cookie(char *buff, int compile, int ignore);
void V_set_cookies();
