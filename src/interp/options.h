// The mode commands: <@option>, <@compile> and <@html>, and the settings
// they switch.
#pragma once

int V_option(char *buff, int *compile, int ignore);
int V_compile(char *buff, int *compile, int ignore);
int V_html(char *buff, int compile, int ignore);
